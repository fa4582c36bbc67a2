#include "platform/linux/copy_shortcut.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tovrin {
namespace {

TEST(CopyShortcutTest, TerminalsGetTheirCopyKeyOrNone) {
  // The two names of an X11 window class, or a Wayland app id and nothing.
  using Names = std::vector<std::pair<std::string_view, std::string_view>>;
  const std::pair<CopyShortcut, Names> cases[] = {
      // Terminals that copy with Ctrl+Shift+C, matched by either name and
      // whatever the case.
      {CopyShortcut::kControlShiftC,
       {{"gnome-terminal-server", "Gnome-terminal"},
        {"xfce4-terminal", "Xfce4-terminal"}, {"konsole", "konsole"},
        {"Alacritty", "Alacritty"}, {"st-256color", "St"},
        {"org.wezfurlong.wezterm", "org.wezfurlong.wezterm"}, {"", "KGX"},
        {"main", "kitty"}, {"foot", ""}, {"footclient", ""},
        {"org.gnome.Terminal", ""}, {"org.gnome.Console", ""},
        {"org.gnome.Ptyxis", ""}, {"org.kde.konsole", ""},
        {"org.kde.yakuake", ""}, {"com.gexperts.Tilix", ""},
        {"com.mitchellh.ghostty", ""}, {"com.raggesilver.BlackBox", ""}}},
      // xterm and the rxvt family: no key at all.
      {CopyShortcut::kNone,
       {{"xterm", "XTerm"}, {"uxterm", "UXTerm"}, {"urxvt", "URxvt"},
        {"rxvt", "Rxvt"}, {"urxvt-unicode", ""}}},
      // Everything else, also names that only contain a terminal's and ids
      // of a terminal's vendor.
      {CopyShortcut::kControlC,
       {{"mousepad", "Mousepad"},
        {"chromium (/root/.config/chromium)", "Chromium"},
        {"xterm-notes", "Xterm-notes"}, {"kittycat", "Stack"}, {"", ""},
        {"org.gnome.TextEditor", ""}, {"org.kde.kate", ""}, {"firefox", ""},
        {"org.gnome.Terminal.Preferences", ""}, {"konsole.org.kde", ""}}},
  };
  for (const auto& [shortcut, names] : cases) {
    for (const auto& [first, second] : names) {
      EXPECT_EQ(copyShortcutFor({first, second}), shortcut)
          << first << "/" << second;
    }
  }
  // An application that goes by no name.
  EXPECT_EQ(copyShortcutFor({}), CopyShortcut::kControlC);
}

}  // namespace
}  // namespace tovrin
