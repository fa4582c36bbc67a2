#!/usr/bin/python3
# file_copier.py FOLDER [ACTIVE]: a window that copies the files of FOLDER
# as a file manager does when its copy shortcut reaches it: Ctrl+C puts
# their list on the clipboard as text/uri-list and as
# x-special/gnome-copied-files. Its app id is org.tovrin.FileCopier. Given
# ACTIVE, it puts that text on the clipboard once its window is active:
# GNOME tells no other client where the keys go.
import os
import sys
import urllib.parse

import gi

gi.require_version("Gdk", "4.0")
gi.require_version("Gtk", "4.0")
from gi.repository import Gdk, GLib, Gtk

folder = os.fsencode(sys.argv[1])
uris = b"".join(b"file://" + urllib.parse.quote(os.path.join(folder, name)).encode()
                + b"\r\n" for name in sorted(os.listdir(folder)))


def offer(mime, data):
    return Gdk.ContentProvider.new_for_bytes(mime, GLib.Bytes.new(data))


def copy(window):
    window.get_clipboard().set_content(Gdk.ContentProvider.new_union([
        offer("text/uri-list", uris),
        offer("x-special/gnome-copied-files",
              b"copy\n" + uris.replace(b"\r\n", b"\n").rstrip(b"\n")),
    ]))


def on_key(controller, keyval, keycode, state, window):
    control = state & Gdk.ModifierType.CONTROL_MASK
    if control and keyval in (Gdk.KEY_c, Gdk.KEY_C):
        copy(window)
        return True
    return False


def on_active(window, _):
    if window.is_active():
        window.get_clipboard().set_content(
            offer("text/plain;charset=utf-8", sys.argv[2].encode()))


# No GtkApplication: it would want a session bus, which the tests' sway
# and KWin have not. The program's name is the window's app id.
GLib.set_prgname("org.tovrin.FileCopier")
Gtk.init()
window = Gtk.Window(title="files")
window.set_child(Gtk.Label(label="files selected"))
keys = Gtk.EventControllerKey()
keys.connect("key-pressed", on_key, window)
window.add_controller(keys)
window.connect("close-request", lambda *_: sys.exit(0))
if len(sys.argv) > 2:
    window.connect("notify::is-active", on_active)
window.present()
loop = GLib.MainLoop()
loop.run()
