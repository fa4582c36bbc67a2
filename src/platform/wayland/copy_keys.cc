#include "platform/wayland/copy_keys.h"

#include <sys/mman.h>
#include <unistd.h>
#include <wayland-client.h>
#include <xkbcommon/xkbcommon.h>

#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "platform/wayland/connection.h"
#include "platform/wayland/libraries.h"

namespace tovrin {
namespace {

using Clock = std::chrono::steady_clock;

/// XKB numbers keys from 8: the evdev code plus 8.
constexpr uint32_t kEvdevOffset = 8;
/// The most keymap text we take from the compositor.
constexpr size_t kMaxKeymapSize = size_t{4} << 20;

struct ContextFree {
  void operator()(xkb_context* context) const { xkb_context_unref(context); }
};
struct KeymapFree {
  void operator()(xkb_keymap* keymap) const { xkb_keymap_unref(keymap); }
};
using Context = std::unique_ptr<xkb_context, ContextFree>;
using Keymap = std::unique_ptr<xkb_keymap, KeymapFree>;

Context newContext() {
  if (!loadWaylandLibraries()) return nullptr;
  Context context(xkb_context_new(XKB_CONTEXT_NO_ENVIRONMENT_NAMES));
  // xkbcommon writes its complaints about a keymap to standard error on its
  // own: they would not be lines of our log.
  if (context) {
    xkb_context_set_log_fn(context.get(),
                           [](xkb_context*, xkb_log_level, const char*,
                              va_list) {});
  }
  return context;
}

/// The first key whose first level in `layout` is `symbol`; 0 when there
/// is none.
xkb_keycode_t keyWithSymbol(xkb_keymap* keymap, xkb_keysym_t symbol,
                            xkb_layout_index_t layout) {
  const xkb_keycode_t last = xkb_keymap_max_keycode(keymap);
  for (xkb_keycode_t key = xkb_keymap_min_keycode(keymap); key <= last; ++key) {
    const xkb_keysym_t* symbols = nullptr;
    const int count =
        xkb_keymap_key_get_syms_by_level(keymap, key, layout, 0, &symbols);
    for (int i = 0; i < count; ++i) {
      if (symbols[i] == symbol) return key;
    }
  }
  return 0;
}

/// The key with `symbol` in `layout`, else the key XKB names `name`; 0
/// when neither.
xkb_keycode_t keyOf(xkb_keymap* keymap, xkb_keysym_t symbol,
                    xkb_layout_index_t layout, const char* name) {
  const xkb_keycode_t key = keyWithSymbol(keymap, symbol, layout);
  if (key != 0) return key;
  const xkb_keycode_t named = xkb_keymap_key_by_name(keymap, name);
  return named == XKB_KEYCODE_INVALID ? 0 : named;
}

uint32_t modifierMask(xkb_keymap* keymap, const char* name) {
  const xkb_mod_index_t index = xkb_keymap_mod_get_index(keymap, name);
  return index == XKB_MOD_INVALID || index >= 32 ? 0 : uint32_t{1} << index;
}

/// The copy keys of `keymap`, whose text is `text` when the caller has it
/// (the seat's keymap, handed over as is) and is made from it otherwise.
std::optional<CopyKeys> copyKeysOfKeymap(xkb_keymap* keymap,
                                         std::optional<std::string> text) {
  if (keymap == nullptr) return std::nullopt;
  CopyKeys keys;
  // The first layout with a Latin c (QWERTY, AZERTY, Dvorak...; us in
  // ru,us). GTK 4 takes Control with a Cyrillic letter for no shortcut when
  // no layout of the keymap has the Latin letter.
  xkb_keycode_t c = 0;
  const xkb_layout_index_t layouts = xkb_keymap_num_layouts(keymap);
  for (xkb_layout_index_t layout = 0; layout < layouts && c == 0; ++layout) {
    c = keyWithSymbol(keymap, XKB_KEY_c, layout);
    keys.layout = layout;
  }
  const xkb_keycode_t control =
      keyOf(keymap, XKB_KEY_Control_L, keys.layout, "LCTL");
  const xkb_keycode_t shift =
      keyOf(keymap, XKB_KEY_Shift_L, keys.layout, "LFSH");
  keys.controlMask = modifierMask(keymap, XKB_MOD_NAME_CTRL);
  keys.shiftMask = modifierMask(keymap, XKB_MOD_NAME_SHIFT);
  if (c < kEvdevOffset || control < kEvdevOffset || shift < kEvdevOffset ||
      keys.controlMask == 0 || keys.shiftMask == 0) {
    return std::nullopt;
  }
  keys.c = c - kEvdevOffset;
  keys.control = control - kEvdevOffset;
  keys.shift = shift - kEvdevOffset;
  if (text) {
    keys.keymap = std::move(*text);
    return keys;
  }
  char* made = xkb_keymap_get_as_string(keymap, XKB_KEYMAP_FORMAT_TEXT_V1);
  if (made == nullptr) return std::nullopt;
  keys.keymap = made;
  free(made);
  return keys;
}

}  // namespace

std::optional<CopyKeys> copyKeysOf(std::string_view keymapText) {
  const Context context = newContext();
  if (!context) return std::nullopt;
  std::string text(keymapText);
  const Keymap keymap(xkb_keymap_new_from_string(
      context.get(), text.c_str(), XKB_KEYMAP_FORMAT_TEXT_V1,
      XKB_KEYMAP_COMPILE_NO_FLAGS));
  return copyKeysOfKeymap(keymap.get(), std::move(text));
}

std::optional<CopyKeys> copyKeysOfLayout(const std::string& layout,
                                         const std::string& variant) {
  const Context context = newContext();
  if (!context) return std::nullopt;
  xkb_rule_names names = {};
  names.layout = layout.c_str();
  names.variant = variant.empty() ? nullptr : variant.c_str();
  const Keymap keymap(xkb_keymap_new_from_names(context.get(), &names,
                                                XKB_KEYMAP_COMPILE_NO_FLAGS));
  return copyKeysOfKeymap(keymap.get(), std::nullopt);
}

std::optional<std::string> seatKeymap(WaylandConnection& connection,
                                      Clock::time_point deadline) {
  if (connection.seat() == nullptr || !connection.seatHasKeyboard()) {
    return std::nullopt;
  }
  struct Received {
    std::optional<std::string> keymap;
  } received;
  static const wl_keyboard_listener kListener = {
      [](void* data, wl_keyboard*, uint32_t format, int32_t fd, uint32_t size) {
        auto* result = static_cast<Received*>(data);
        if (format == WL_KEYBOARD_KEYMAP_FORMAT_XKB_V1 && size > 0 &&
            size <= kMaxKeymapSize) {
          void* map = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, fd, 0);
          if (map != MAP_FAILED) {
            const char* text = static_cast<const char*>(map);
            result->keymap.emplace(text, strnlen(text, size));
            munmap(map, size);
          }
        }
        close(fd);
      },
      [](void*, wl_keyboard*, uint32_t, wl_surface*, wl_array*) {},
      [](void*, wl_keyboard*, uint32_t, wl_surface*) {},
      [](void*, wl_keyboard*, uint32_t, uint32_t, uint32_t, uint32_t) {},
      [](void*, wl_keyboard*, uint32_t, uint32_t, uint32_t, uint32_t,
         uint32_t) {},
      [](void*, wl_keyboard*, int32_t, int32_t) {},
  };
  wl_keyboard* keyboard = wl_seat_get_keyboard(connection.seat());
  wl_keyboard_add_listener(keyboard, &kListener, &received);
  // A seat without a keyboard never sends a keymap: one exchange tells.
  connection.roundtrip(deadline);
  if (wl_keyboard_get_version(keyboard) >= WL_KEYBOARD_RELEASE_SINCE_VERSION) {
    wl_keyboard_release(keyboard);
  } else {
    wl_keyboard_destroy(keyboard);
  }
  return received.keymap;
}

std::optional<CopyKeys> seatCopyKeys(WaylandConnection& connection) {
  if (const auto keymap =
          seatKeymap(connection, Clock::now() + kWaylandReplyTimeout)) {
    if (auto keys = copyKeysOf(*keymap)) return keys;
  }
  return copyKeysOfLayout("us");
}

}  // namespace tovrin
