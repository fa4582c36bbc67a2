#ifndef TOVRIN_TESTS_X11_TEST_WINDOW_H_
#define TOVRIN_TESTS_X11_TEST_WINDOW_H_

// Windows that stand for applications in the tests of the X11 desktop and
// keyboard, on a server without a window manager.

#include <X11/Xlib.h>

namespace tovrin::testing {

/// Where a test window goes, relative to its parent.
struct WindowPlace {
  int x = 0;
  int y = 0;
  unsigned int width = 200;
  unsigned int height = 100;
};

/// Creates a window of `parent` at `place`, selecting `eventMask` on it,
/// with WM_CLASS `wmClass` (instance and class) unless that is null, maps
/// it and waits until the server has. It goes away with its connection.
Window mapTestWindow(Display* display, Window parent, WindowPlace place,
                     const char* wmClass, long eventMask = NoEventMask);

}  // namespace tovrin::testing

#endif  // TOVRIN_TESTS_X11_TEST_WINDOW_H_
