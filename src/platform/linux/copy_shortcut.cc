#include "platform/linux/copy_shortcut.h"

#include <algorithm>
#include <cctype>

namespace tovrin {
namespace {

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
  return a.size() == b.size() &&
         std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
           return std::tolower(static_cast<unsigned char>(x)) ==
                  std::tolower(static_cast<unsigned char>(y));
         });
}

}  // namespace

CopyShortcut copyShortcutFor(std::initializer_list<std::string_view> names) {
  // xterm and the rxvt family interrupt their program on Ctrl+C and on
  // Ctrl+Shift+C alike, and have no copy key: the selection is in PRIMARY.
  static constexpr std::string_view kNoCopyKey[] = {
      "xterm", "uxterm", "rxvt", "urxvt", "urxvt-unicode", "mrxvt",
      "aterm", "eterm",  "xvt",  "9term", "koi8rxterm",   "lxterm"};
  // WM_CLASS names, and the app ids that the same terminals take on Wayland
  // where these differ (GNOME Terminal, Konsole, Yakuake, Tilix).
  static constexpr std::string_view kControlShiftC[] = {
      "gnome-terminal", "gnome-terminal-server", "xfce4-terminal",
      "konsole",        "kitty",                 "alacritty",
      "st",             "st-256color",           "terminator",
      "tilix",          "lxterminal",            "mate-terminal",
      "sakura",         "terminology",           "guake",
      "tilda",          "qterminal",             "foot",
      "footclient",     "org.wezfurlong.wezterm", "wezterm",
      "roxterm",        "termite",               "kgx",
      "org.gnome.console", "org.gnome.ptyxis",   "ptyxis",
      "cool-retro-term", "yakuake",             "deepin-terminal",
      "terminal",       "x-terminal-emulator",   "contour",
      "ghostty",        "com.mitchellh.ghostty", "rio",
      "blackbox",       "com.raggesilver.blackbox",
      "org.gnome.terminal", "org.kde.konsole",   "org.kde.yakuake",
      "com.gexperts.tilix"};
  const auto matches = [&](const auto& list) {
    for (const std::string_view name : names) {
      for (const std::string_view entry : list) {
        if (equalsIgnoringCase(name, entry)) return true;
      }
    }
    return false;
  };
  if (matches(kNoCopyKey)) return CopyShortcut::kNone;
  if (matches(kControlShiftC)) return CopyShortcut::kControlShiftC;
  return CopyShortcut::kControlC;
}

}  // namespace tovrin
