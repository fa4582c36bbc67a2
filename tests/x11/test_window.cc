#include "tests/x11/test_window.h"

#include <X11/Xutil.h>

#include <string>

namespace tovrin::testing {

Window mapTestWindow(Display* display, Window parent, WindowPlace place,
                     const char* wmClass, long eventMask) {
  Window window =
      XCreateSimpleWindow(display, parent, place.x, place.y, place.width,
                          place.height, 0, 0, WhitePixel(display, 0));
  if (wmClass != nullptr) {
    std::string name = wmClass;
    XClassHint hint;
    hint.res_name = name.data();
    hint.res_class = name.data();
    XSetClassHint(display, window, &hint);
  }
  XSelectInput(display, window, eventMask);
  XMapWindow(display, window);
  // Without a window manager nothing redirects the map: once the server
  // has the request, the window is viewable.
  XSync(display, False);
  return window;
}

}  // namespace tovrin::testing
