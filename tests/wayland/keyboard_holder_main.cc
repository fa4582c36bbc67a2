// keyboard_holder [LAYOUT]: keeps a virtual keyboard on the seat of
// $WAYLAND_DISPLAY for as long as it runs, and presses keys on it for the
// tests. Under KWin, which has no virtual keyboards, it types through
// KWin's fake input instead (in KWin's own layout), and answers which
// window is active.
//
// A compositor without input devices (sway on its headless backend) gives
// its seat no keyboard: applications never bind one, and keys that a
// short-lived virtual keyboard sends reach nobody. With this keyboard held
// the seat has one from the start, the way a person's desktop does.
//
// The keymap is compiled from RMLVO names (layout LAYOUT, "us" when none).
// On standard input, one command a line:
//   ctrl+a, ctrl+shift+Left, shift+End, Return   presses those keys
//   layout ru                                    gives the keyboard that layout
//   active            (KWin) answers the active window's app id, or "none",
//                     bytes below 0x20 as \xNN
// Keys are keysym names, looked up in the keymap; a keysym the layout does
// not have (a Latin letter under "ru") is the key at its US position, as a
// person would press it. Each command is answered on standard output, once
// the compositor has handled it: "ok", or "error: " and why. "ready" is
// printed once the keyboard is in place. It ends at the end of its input,
// or when the compositor goes away.

#include <poll.h>
#include <sys/mman.h>
#include <time.h>
#include <unistd.h>
#include <wayland-client.h>
#include <xkbcommon/xkbcommon.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "fake-input-client.h"
#include "plasma-window-management-client.h"
#include "virtual-keyboard-unstable-v1-client.h"

namespace {

struct Globals {
  wl_seat* seat = nullptr;
  zwp_virtual_keyboard_manager_v1* manager = nullptr;
  org_kde_kwin_fake_input* fakeInput = nullptr;
  org_kde_plasma_window_management* windows = nullptr;
  std::vector<std::string> uuids;  // KWin's windows, as it announces them
};

struct PlasmaWindow {
  std::string appId;
  bool active = false;
};

template <typename... Arguments>
void ignore(void*, Arguments...) {}

const org_kde_plasma_window_listener kWindowListener = {
    ignore, [](void* data, org_kde_plasma_window*, const char* appId) {
      static_cast<PlasmaWindow*>(data)->appId = appId;
    },
    [](void* data, org_kde_plasma_window*, uint32_t flags) {
      static_cast<PlasmaWindow*>(data)->active =
          (flags & ORG_KDE_PLASMA_WINDOW_MANAGEMENT_STATE_ACTIVE) != 0;
    },
    ignore, ignore, ignore, ignore, ignore, ignore, ignore, ignore, ignore,
    ignore, ignore, ignore, ignore, ignore};

const org_kde_plasma_window_management_listener kWindowsListener = {
    ignore, ignore, ignore, ignore,
    [](void* data, org_kde_plasma_window_management*, uint32_t,
       const char* uuid) {
      static_cast<Globals*>(data)->uuids.emplace_back(uuid);
    }};

/// The app id of KWin's active window; "none" when no window is active.
std::string activeWindow(wl_display* display, Globals& globals) {
  std::vector<std::unique_ptr<PlasmaWindow>> windows;
  std::vector<org_kde_plasma_window*> handles;
  for (const std::string& uuid : globals.uuids) {
    windows.push_back(std::make_unique<PlasmaWindow>());
    handles.push_back(org_kde_plasma_window_management_get_window_by_uuid(
        globals.windows, uuid.c_str()));
    org_kde_plasma_window_add_listener(handles.back(), &kWindowListener,
                                       windows.back().get());
  }
  wl_display_roundtrip(display);
  std::string active = "none";
  for (size_t i = 0; i < windows.size(); ++i) {
    if (windows[i]->active) {
      active.clear();
      for (const unsigned char c : windows[i]->appId) {
        char escape[5];
        std::snprintf(escape, sizeof escape, "\\x%02x", c);
        active += c < 0x20 ? std::string(escape) : std::string(1, c);
      }
    }
    org_kde_plasma_window_destroy(handles[i]);
  }
  return active;
}

void onGlobal(void* data, wl_registry* registry, uint32_t name,
              const char* interface, uint32_t) {
  auto* globals = static_cast<Globals*>(data);
  if (std::strcmp(interface, wl_seat_interface.name) == 0 &&
      globals->seat == nullptr) {
    globals->seat = static_cast<wl_seat*>(
        wl_registry_bind(registry, name, &wl_seat_interface, 1));
  } else if (std::strcmp(interface,
                         zwp_virtual_keyboard_manager_v1_interface.name) == 0) {
    globals->manager = static_cast<zwp_virtual_keyboard_manager_v1*>(
        wl_registry_bind(registry, name,
                         &zwp_virtual_keyboard_manager_v1_interface, 1));
  } else if (std::strcmp(interface, org_kde_kwin_fake_input_interface.name) ==
             0) {
    globals->fakeInput = static_cast<org_kde_kwin_fake_input*>(
        wl_registry_bind(registry, name, &org_kde_kwin_fake_input_interface, 4));
  } else if (std::strcmp(interface,
                         org_kde_plasma_window_management_interface.name) ==
             0) {
    globals->windows = static_cast<org_kde_plasma_window_management*>(
        wl_registry_bind(registry, name,
                         &org_kde_plasma_window_management_interface, 16));
    org_kde_plasma_window_management_add_listener(globals->windows,
                                                  &kWindowsListener, globals);
  }
}

void onGlobalRemove(void*, wl_registry*, uint32_t) {}

struct KeymapDeleter {
  void operator()(xkb_keymap* keymap) const { xkb_keymap_unref(keymap); }
};
using Keymap = std::unique_ptr<xkb_keymap, KeymapDeleter>;

Keymap compile(xkb_context* context, const std::string& layout) {
  xkb_rule_names names = {"evdev", "pc105", layout.c_str(), "", ""};
  return Keymap(
      xkb_keymap_new_from_names(context, &names, XKB_KEYMAP_COMPILE_NO_FLAGS));
}

/// A key of a keymap and the level (0 plain, 1 with Shift) giving a keysym.
struct KeyPosition {
  xkb_keycode_t keycode = 0;
  xkb_level_index_t level = 0;
};

std::optional<KeyPosition> findKeysym(xkb_keymap* keymap,
                                      xkb_layout_index_t layout,
                                      xkb_keysym_t keysym) {
  // The plain level anywhere first: "Left" is on the arrow key, not on the
  // keypad's shifted 4.
  for (xkb_level_index_t level = 0; level < 2; ++level) {
    for (xkb_keycode_t key = xkb_keymap_min_keycode(keymap);
         key <= xkb_keymap_max_keycode(keymap); ++key) {
      if (layout >= xkb_keymap_num_layouts_for_key(keymap, key) ||
          level >= xkb_keymap_num_levels_for_key(keymap, key, layout)) {
        continue;
      }
      const xkb_keysym_t* syms = nullptr;
      const int count =
          xkb_keymap_key_get_syms_by_level(keymap, key, layout, level, &syms);
      for (int i = 0; i < count; ++i) {
        if (syms[i] == keysym) return KeyPosition{key, level};
      }
    }
  }
  return std::nullopt;
}

uint32_t modifierMask(xkb_keymap* keymap, const char* name) {
  const xkb_mod_index_t index = xkb_keymap_mod_get_index(keymap, name);
  return index == XKB_MOD_INVALID ? 0 : 1u << index;
}

uint32_t nowMs() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<uint32_t>(now.tv_sec * 1000 + now.tv_nsec / 1000000);
}

class Holder {
 public:
  Holder(wl_display* display, zwp_virtual_keyboard_v1* keyboard,
         org_kde_kwin_fake_input* fakeInput, xkb_context* context)
      : display_(display),
        keyboard_(keyboard),
        fakeInput_(fakeInput),
        context_(context),
        usKeymap_(compile(context, "us")) {}

  /// Gives the keyboard the keymap of `layout`; an error text when it
  /// cannot.
  std::string setLayout(const std::string& layout) {
    Keymap keymap = compile(context_, layout);
    if (!keymap) return "no keymap for layout " + layout;
    if (keyboard_ == nullptr) {
      // Fake input types in KWin's layout, which is KWin's setting.
      if (keymap_) return "KWin's layout is not the keyboard's to change";
      keymap_ = std::move(keymap);
      return "";
    }
    char* text =
        xkb_keymap_get_as_string(keymap.get(), XKB_KEYMAP_FORMAT_TEXT_V1);
    if (text == nullptr) return "keymap not serialised";
    const size_t size = std::strlen(text) + 1;
    const int fd = memfd_create("keyboard-holder-keymap", MFD_CLOEXEC);
    bool written =
        fd >= 0 && write(fd, text, size) == static_cast<ssize_t>(size);
    std::free(text);
    if (!written) {
      if (fd >= 0) close(fd);
      return "keymap not written";
    }
    zwp_virtual_keyboard_v1_keymap(keyboard_, WL_KEYBOARD_KEYMAP_FORMAT_XKB_V1,
                                   fd, static_cast<uint32_t>(size));
    close(fd);
    keymap_ = std::move(keymap);
    return "";
  }

  /// Presses and releases "mod+mod+key"; an error text when a name is
  /// unknown.
  std::string press(const std::string& combination) {
    std::vector<std::string> names;
    std::stringstream parts(combination);
    for (std::string part; std::getline(parts, part, '+');) {
      names.push_back(part);
    }
    if (names.empty() || names.back().empty())
      return "no key in " + combination;
    uint32_t mods = 0;
    for (size_t i = 0; i + 1 < names.size(); ++i) {
      const uint32_t mask = modifier(names[i]);
      if (mask == 0) return "unknown modifier " + names[i];
      mods |= mask;
    }
    xkb_keysym_t keysym =
        xkb_keysym_from_name(names.back().c_str(), XKB_KEYSYM_NO_FLAGS);
    if (keysym == XKB_KEY_NoSymbol) {
      keysym = xkb_keysym_from_name(names.back().c_str(),
                                    XKB_KEYSYM_CASE_INSENSITIVE);
    }
    if (keysym == XKB_KEY_NoSymbol) return "unknown keysym " + names.back();
    std::optional<KeyPosition> key = findKeysym(keymap_.get(), 0, keysym);
    if (!key && usKeymap_) key = findKeysym(usKeymap_.get(), 0, keysym);
    if (!key) return "no key gives " + names.back();
    if (key->level == 1)
      mods |= modifierMask(keymap_.get(), XKB_MOD_NAME_SHIFT);

    // Evdev codes: the keymap's codes less 8.
    const uint32_t code = key->keycode - 8;
    if (keyboard_ == nullptr) return pressFake(mods, code);
    zwp_virtual_keyboard_v1_modifiers(keyboard_, mods, 0, 0, 0);
    zwp_virtual_keyboard_v1_key(keyboard_, nowMs(), code,
                                WL_KEYBOARD_KEY_STATE_PRESSED);
    zwp_virtual_keyboard_v1_key(keyboard_, nowMs(), code,
                                WL_KEYBOARD_KEY_STATE_RELEASED);
    zwp_virtual_keyboard_v1_modifiers(keyboard_, 0, 0, 0, 0);
    return "";
  }

  /// Fake input has no modifiers of its own: KWin takes them from the
  /// modifier keys pressed.
  std::string pressFake(uint32_t mods, uint32_t code) {
    const std::pair<const char*, uint32_t> modifierKeys[] = {
        {XKB_MOD_NAME_CTRL, 29}, {XKB_MOD_NAME_SHIFT, 42},
        {XKB_MOD_NAME_ALT, 56}, {XKB_MOD_NAME_LOGO, 125}};
    std::vector<uint32_t> keys;
    for (const auto& [name, evdev] : modifierKeys) {
      if ((mods & modifierMask(keymap_.get(), name)) != 0) keys.push_back(evdev);
    }
    keys.push_back(code);
    for (const uint32_t key : keys) {
      org_kde_kwin_fake_input_keyboard_key(fakeInput_, key,
                                           WL_KEYBOARD_KEY_STATE_PRESSED);
    }
    for (auto key = keys.rbegin(); key != keys.rend(); ++key) {
      org_kde_kwin_fake_input_keyboard_key(fakeInput_, *key,
                                           WL_KEYBOARD_KEY_STATE_RELEASED);
    }
    return "";
  }

  /// Answers a command once the compositor has handled what it sent.
  bool answer(const std::string& error) {
    if (wl_display_roundtrip(display_) < 0) return false;
    std::printf("%s\n", error.empty() ? "ok" : ("error: " + error).c_str());
    std::fflush(stdout);
    return true;
  }

 private:
  uint32_t modifier(const std::string& name) {
    const char* xkbName = nullptr;
    if (name == "ctrl" || name == "control") xkbName = XKB_MOD_NAME_CTRL;
    if (name == "shift") xkbName = XKB_MOD_NAME_SHIFT;
    if (name == "alt") xkbName = XKB_MOD_NAME_ALT;
    if (name == "super" || name == "logo") xkbName = XKB_MOD_NAME_LOGO;
    return xkbName == nullptr ? 0 : modifierMask(keymap_.get(), xkbName);
  }

  wl_display* display_;
  zwp_virtual_keyboard_v1* keyboard_;
  org_kde_kwin_fake_input* fakeInput_;
  xkb_context* context_;
  Keymap keymap_;
  Keymap usKeymap_;
};

}  // namespace

int main(int argc, char** argv) {
  const std::string layout = argc > 1 ? argv[1] : "us";
  wl_display* display = wl_display_connect(nullptr);
  if (display == nullptr) {
    std::fprintf(stderr, "keyboard_holder: no Wayland display\n");
    return 1;
  }
  static const wl_registry_listener listener = {onGlobal, onGlobalRemove};
  Globals globals;
  wl_registry_add_listener(wl_display_get_registry(display), &listener,
                           &globals);
  if (wl_display_roundtrip(display) < 0 || globals.seat == nullptr ||
      (globals.manager == nullptr && globals.fakeInput == nullptr)) {
    std::fprintf(stderr, "keyboard_holder: no seat or no virtual keyboards\n");
    return 1;
  }
  zwp_virtual_keyboard_v1* keyboard = nullptr;
  if (globals.manager != nullptr) {
    keyboard = zwp_virtual_keyboard_manager_v1_create_virtual_keyboard(
        globals.manager, globals.seat);
  } else {
    org_kde_kwin_fake_input_authenticate(globals.fakeInput, "keyboard_holder",
                                         "the tests' keys");
  }
  xkb_context* context = xkb_context_new(XKB_CONTEXT_NO_FLAGS);
  Holder holder(display, keyboard, globals.fakeInput, context);
  const std::string error = holder.setLayout(layout);
  if (!error.empty()) {
    std::fprintf(stderr, "keyboard_holder: %s\n", error.c_str());
    return 1;
  }
  if (wl_display_roundtrip(display) < 0) return 1;
  std::printf("ready\n");
  std::fflush(stdout);

  std::string pending;
  for (;;) {
    pollfd fds[2] = {{0, POLLIN, 0}, {wl_display_get_fd(display), POLLIN, 0}};
    wl_display_flush(display);
    if (poll(fds, 2, -1) < 0) continue;
    if (fds[1].revents != 0 && wl_display_dispatch(display) < 0) return 1;
    if (fds[0].revents == 0) continue;
    char buffer[4096];
    const ssize_t count = read(0, buffer, sizeof buffer);
    if (count <= 0) break;
    pending.append(buffer, static_cast<size_t>(count));
    for (size_t end; (end = pending.find('\n')) != std::string::npos;) {
      const std::string line = pending.substr(0, end);
      pending.erase(0, end + 1);
      std::string result;
      if (line == "active" && globals.windows != nullptr) {
        std::printf("%s\n", activeWindow(display, globals).c_str());
        std::fflush(stdout);
        continue;
      }
      if (line.rfind("layout ", 0) == 0) {
        result = holder.setLayout(line.substr(7));
      } else {
        result = holder.press(line);
      }
      if (!holder.answer(result)) return 1;
    }
  }
  if (keyboard != nullptr) zwp_virtual_keyboard_v1_destroy(keyboard);
  wl_display_roundtrip(display);
  xkb_context_unref(context);
  wl_display_disconnect(display);
  return 0;
}
