#ifndef TOVRIN_PLATFORM_LINUX_COPY_SHORTCUT_H_
#define TOVRIN_PLATFORM_LINUX_COPY_SHORTCUT_H_

// Which copy shortcut an application takes, by the names it goes by: on X11
// the instance and class of its WM_CLASS, on Wayland its app id. Ordinary
// applications copy on Ctrl+C; terminal emulators pass Ctrl+C to the
// program they run, so they get their own copy key or none.

#include <initializer_list>
#include <string_view>

namespace tovrin {

/// How an application wants the copy shortcut.
enum class CopyShortcut {
  kControlC,       // ordinary applications
  kControlShiftC,  // terminals that bind Ctrl+Shift+C to copy
  kNone,           // terminals without a copy key: it would interrupt the
                   // program running in them, and their selection is in
                   // PRIMARY already
};

/// The copy shortcut of the application that goes by `names`: that of a
/// known terminal when one of the names is the terminal's, ignoring ASCII
/// case (a name that only contains it does not count), else kControlC.
CopyShortcut copyShortcutFor(std::initializer_list<std::string_view> names);

}  // namespace tovrin

#endif  // TOVRIN_PLATFORM_LINUX_COPY_SHORTCUT_H_
