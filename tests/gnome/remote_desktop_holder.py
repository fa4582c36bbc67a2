#!/usr/bin/python3
# remote_desktop_holder.py MODE: the user's keyboard and clipboard on a
# headless GNOME compositor, through remote-desktop sessions of its own
# (data-control and wl-clipboard do not work there).
#
#   hold        starts a session, presses a key once so that the seat has a
#               keyboard (windows then take the focus), prints "ready", then
#               presses combinations read on stdin ("ctrl+a", "shift+End"),
#               answering "ok" or "error: WHY" for each
#   own TEXT    owns the clipboard with TEXT, prints "ready", and serves it
#               until another program owns the clipboard
#   read        prints the clipboard's text as one JSON string; exit 1 when
#               there is none
import json
import os
import select
import sys
import time

import gi
gi.require_version("Gio", "2.0")
from gi.repository import Gio, GLib  # noqa: E402

NAME = "org.gnome.Mutter.RemoteDesktop"
SESSION = NAME + ".Session"
TEXT = "text/plain;charset=utf-8"
KEYSYMS = {"ctrl": 0xffe3, "shift": 0xffe1, "alt": 0xffe9, "End": 0xff57,
           "Home": 0xff50, "Left": 0xff51, "Right": 0xff53, "Up": 0xff52,
           "Down": 0xff54, "Return": 0xff0d, "space": 0x20,
           "Escape": 0xff1b, "Shift_L": 0xffe1}

bus = Gio.bus_get_sync(Gio.BusType.SESSION, None)


def call(path, iface, method, args=None, fds=False):
    if fds:
        return bus.call_with_unix_fd_list_sync(
            NAME, path, iface, method, args, None, 0, 5000, None, None)
    return bus.call_sync(NAME, path, iface, method, args, None, 0, 5000, None)


def session():
    return call("/org/gnome/Mutter/RemoteDesktop", NAME,
                "CreateSession").unpack()[0]


def pump(seconds):
    end = time.monotonic() + seconds
    context = GLib.MainContext.default()
    while time.monotonic() < end:
        context.iteration(False)
        time.sleep(0.005)


def press(path, combination):
    keys = []
    for name in combination.split("+"):
        if name in KEYSYMS:
            keys.append(KEYSYMS[name])
        elif len(name) == 1:
            keys.append(ord(name))
        else:
            raise ValueError("unknown key " + name)
    for key in keys:
        call(path, SESSION, "NotifyKeyboardKeysym", GLib.Variant("(ub)", (key, True)))
    for key in reversed(keys):
        call(path, SESSION, "NotifyKeyboardKeysym", GLib.Variant("(ub)", (key, False)))
    # A round trip: the compositor has handled the keys before it answers.
    call("/org/gnome/Mutter/RemoteDesktop", "org.freedesktop.DBus.Properties",
         "Get", GLib.Variant("(ss)", (NAME, "Version")))


def hold():
    path = session()
    call(path, SESSION, "Start")
    press(path, "Shift_L")
    print("ready", flush=True)
    for line in sys.stdin:
        try:
            press(path, line.strip())
            print("ok", flush=True)
        except Exception as error:  # noqa: BLE001
            print("error: %s" % error, flush=True)


def own(text):
    path = session()
    state = {"owned": False, "replaced": False}

    def on_signal(_c, _s, _p, _i, member, parameters):
        if member == "SelectionOwnerChanged":
            ours = parameters.unpack()[0].get("session-is-owner", False)
            if ours:
                state["owned"] = True
            elif state["owned"]:
                state["replaced"] = True
        elif member == "SelectionTransfer":
            _, serial = parameters.unpack()
            result, fds = call(path, SESSION, "SelectionWrite",
                               GLib.Variant("(u)", (serial,)), fds=True)
            fd = fds.get(result.unpack()[0])
            os.write(fd, text.encode())
            os.close(fd)
            call(path, SESSION, "SelectionWriteDone",
                 GLib.Variant("(ub)", (serial, True)))

    bus.signal_subscribe(NAME, SESSION, None, path, None, 0, on_signal)
    call(path, SESSION, "EnableClipboard", GLib.Variant(
        "(a{sv})", ({"mime-types": GLib.Variant("as", [TEXT, "text/plain"])},)))
    pump(0.2)
    print("ready", flush=True)
    while not state["replaced"]:
        pump(0.1)


def read():
    path = session()
    call(path, SESSION, "EnableClipboard", GLib.Variant("(a{sv})", ({},)))
    try:
        result, fds = call(path, SESSION, "SelectionRead",
                           GLib.Variant("(s)", (TEXT,)), fds=True)
    except GLib.Error:
        return 1
    fd = fds.get(result.unpack()[0])
    os.set_blocking(fd, False)
    data = b""
    end = time.monotonic() + 5
    context = GLib.MainContext.default()
    while time.monotonic() < end:
        context.iteration(False)
        ready, _, _ = select.select([fd], [], [], 0.01)
        if ready:
            chunk = os.read(fd, 65536)
            if not chunk:
                print(json.dumps(data.decode("utf-8", "replace")), flush=True)
                return 0
            data += chunk
    return 1


if __name__ == "__main__":
    mode = sys.argv[1] if len(sys.argv) > 1 else ""
    if mode == "hold":
        hold()
    elif mode == "own":
        own(sys.argv[2])
    elif mode == "read":
        sys.exit(read())
    else:
        sys.exit("usage: remote_desktop_holder.py hold|own TEXT|read")
