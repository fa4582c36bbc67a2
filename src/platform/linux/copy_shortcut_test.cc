#include "platform/linux/copy_shortcut.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <string_view>

namespace tovrin {

// Found by GoogleTest through the type's namespace, for readable failures.
void PrintTo(CopyShortcut shortcut, std::ostream* out) {
  switch (shortcut) {
    case CopyShortcut::kControlC:
      *out << "Ctrl+C";
      return;
    case CopyShortcut::kControlShiftC:
      *out << "Ctrl+Shift+C";
      return;
    case CopyShortcut::kNone:
      *out << "no keystroke";
      return;
  }
}

namespace {

TEST(CopyShortcutTest, TerminalsGetTheirCopyKeyOrNone) {
  // The two names of an X11 window class.
  struct Case {
    std::string_view instance;
    std::string_view className;
    CopyShortcut expected;
  };
  const Case cases[] = {
      // Terminals that copy with Ctrl+Shift+C, matched by either name and
      // whatever the case.
      {"gnome-terminal-server", "Gnome-terminal", CopyShortcut::kControlShiftC},
      {"xfce4-terminal", "Xfce4-terminal", CopyShortcut::kControlShiftC},
      {"konsole", "konsole", CopyShortcut::kControlShiftC},
      {"Alacritty", "Alacritty", CopyShortcut::kControlShiftC},
      {"st-256color", "St", CopyShortcut::kControlShiftC},
      {"org.wezfurlong.wezterm", "org.wezfurlong.wezterm",
       CopyShortcut::kControlShiftC},
      {"", "KGX", CopyShortcut::kControlShiftC},
      {"main", "kitty", CopyShortcut::kControlShiftC},
      // xterm and the rxvt family: no key at all.
      {"xterm", "XTerm", CopyShortcut::kNone},
      {"uxterm", "UXTerm", CopyShortcut::kNone},
      {"urxvt", "URxvt", CopyShortcut::kNone},
      {"rxvt", "Rxvt", CopyShortcut::kNone},
      {"urxvt-unicode", "", CopyShortcut::kNone},
      // Everything else, also names that only contain a terminal's.
      {"mousepad", "Mousepad", CopyShortcut::kControlC},
      {"chromium (/root/.config/chromium)", "Chromium",
       CopyShortcut::kControlC},
      {"xterm-notes", "Xterm-notes", CopyShortcut::kControlC},
      {"kittycat", "Stack", CopyShortcut::kControlC},
      {"", "", CopyShortcut::kControlC},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.instance) + "/" + std::string(c.className));
    EXPECT_EQ(copyShortcutFor({c.instance, c.className}), c.expected);
  }
}

TEST(CopyShortcutTest, TerminalsAreKnownByTheirWaylandAppIds) {
  struct Case {
    std::string_view appId;
    CopyShortcut expected;
  };
  const Case cases[] = {
      {"foot", CopyShortcut::kControlShiftC},
      {"footclient", CopyShortcut::kControlShiftC},
      {"kitty", CopyShortcut::kControlShiftC},
      {"Alacritty", CopyShortcut::kControlShiftC},
      {"org.wezfurlong.wezterm", CopyShortcut::kControlShiftC},
      {"org.gnome.Terminal", CopyShortcut::kControlShiftC},
      {"org.gnome.Console", CopyShortcut::kControlShiftC},
      {"org.gnome.Ptyxis", CopyShortcut::kControlShiftC},
      {"org.kde.konsole", CopyShortcut::kControlShiftC},
      {"org.kde.yakuake", CopyShortcut::kControlShiftC},
      {"com.gexperts.Tilix", CopyShortcut::kControlShiftC},
      {"com.mitchellh.ghostty", CopyShortcut::kControlShiftC},
      {"com.raggesilver.BlackBox", CopyShortcut::kControlShiftC},
      // Applications, also ids of a terminal's vendor or that only contain
      // a terminal's name.
      {"org.gnome.TextEditor", CopyShortcut::kControlC},
      {"org.kde.kate", CopyShortcut::kControlC},
      {"firefox", CopyShortcut::kControlC},
      {"org.gnome.Terminal.Preferences", CopyShortcut::kControlC},
      {"konsole.org.kde", CopyShortcut::kControlC},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.appId));
    EXPECT_EQ(copyShortcutFor({c.appId}), c.expected);
  }
  // An application that goes by no name.
  EXPECT_EQ(copyShortcutFor({}), CopyShortcut::kControlC);
}

}  // namespace
}  // namespace tovrin
