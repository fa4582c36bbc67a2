#include "platform/x11/desktop.h"

#include <X11/Xatom.h>
#include <xcb/res.h>
#include <xcb/xcb.h>

#include <array>
#include <vector>

#include "platform/x11/xcb_util.h"

namespace tovrin {
namespace {

/// A property of another client's window, up to kShortProperty; nothing
/// when the window or the property does not exist.
std::optional<PropertyValue> readShortProperty(Display* display, Window window,
                                               Atom property) {
  auto value = readProperty(display, window, property, kShortProperty);
  if (!value || !value->exists()) return std::nullopt;
  return value;
}

std::optional<Window> readWindowProperty(Display* display, Window window,
                                         Atom property) {
  const auto value = readShortProperty(display, window, property);
  if (!value) return std::nullopt;
  const std::vector<uint32_t> ids = value->values32();
  if (ids.empty()) return std::nullopt;
  return Window{ids.front()};
}

/// The parent of `window`; nothing at the root or when it vanished.
std::optional<Window> parentOf(Display* display, Window window) {
  xcb_connection_t* connection = xcbOf(display);
  const auto reply = xcbReply(connection, &xcb_query_tree_reply,
                              xcb_query_tree(connection, window));
  if (!reply || reply->parent == XCB_WINDOW_NONE || window == reply->root) {
    return std::nullopt;
  }
  return Window{reply->parent};
}

/// The nearest window from `window` up to the root that carries WM_CLASS:
/// the application's own window around a focused subwindow.
Window clientWindowOf(Display* display, Window window) {
  // Deep trees are a sign of a broken answer; a toolkit window sits a few
  // levels below its top-level window at most.
  constexpr int kMaxDepth = 32;
  for (int depth = 0; depth < kMaxDepth && window != 0; ++depth) {
    if (windowClass(display, window)) return window;
    window = parentOf(display, window).value_or(0);
  }
  return 0;
}

}  // namespace

Window focusedWindow(Display* display) {
  const Window root = DefaultRootWindow(display);
  const Atom activeAtom = XInternAtom(display, "_NET_ACTIVE_WINDOW", False);
  if (const auto active = readWindowProperty(display, root, activeAtom)) {
    // A window manager is running; 0 means that no window is active.
    return *active;
  }
  Window focus = 0;
  int revert = 0;
  XGetInputFocus(display, &focus, &revert);
  if (focus == PointerRoot || focus == None || focus == root) {
    // The focus follows the pointer: keys go to the window beneath it.
    Window rootReturn = 0, child = 0;
    int rootX = 0, rootY = 0, x = 0, y = 0;
    unsigned int mask = 0;
    if (!XQueryPointer(display, root, &rootReturn, &child, &rootX, &rootY, &x,
                       &y, &mask) ||
        child == None) {
      return 0;
    }
    focus = child;
  }
  if (const Window client = clientWindowOf(display, focus)) return client;
  return focus;
}

std::optional<WindowClass> windowClass(Display* display, Window window) {
  const auto value = readShortProperty(display, window, XA_WM_CLASS);
  if (!value || value->format != 8 || value->data.empty()) return std::nullopt;
  // Two NUL-terminated strings: the instance name, then the class name.
  const std::string& bytes = value->data;
  const size_t end = bytes.find('\0');
  WindowClass names;
  names.instance = bytes.substr(0, end);
  if (end != std::string::npos) {
    const std::string rest = bytes.substr(end + 1);
    names.className = rest.substr(0, rest.find('\0'));
  }
  return names;
}

std::optional<std::string> applicationIdentifier(Display* display,
                                                 Window window) {
  const Atom gtkAtom = XInternAtom(display, "_GTK_APPLICATION_ID", False);
  if (const auto id = readShortProperty(display, window, gtkAtom)) {
    if (id->format == 8 && !id->data.empty()) {
      return id->data.substr(0, id->data.find('\0'));
    }
  }
  if (const auto names = windowClass(display, window)) {
    if (!names->className.empty()) return names->className;
  }
  return std::nullopt;
}

std::optional<pid_t> windowProcessId(Display* display, Window window) {
  xcb_connection_t* connection = xcbOf(display);
  xcb_res_client_id_spec_t spec{static_cast<uint32_t>(window),
                                XCB_RES_CLIENT_ID_MASK_LOCAL_CLIENT_PID};
  const auto reply =
      xcbReply(connection, &xcb_res_query_client_ids_reply,
               xcb_res_query_client_ids(connection, 1, &spec));
  if (!reply) return std::nullopt;
  for (auto ids = xcb_res_query_client_ids_ids_iterator(reply.get());
       ids.rem > 0; xcb_res_client_id_value_next(&ids)) {
    // The mask constant of the request is compared with the answer's id
    // type; the PID comes as one 32-bit value.
    if (ids.data->spec.mask == XCB_RES_CLIENT_ID_MASK_LOCAL_CLIENT_PID &&
        xcb_res_client_id_value_value_length(ids.data) == 1) {
      return static_cast<pid_t>(*xcb_res_client_id_value_value(ids.data));
    }
  }
  return std::nullopt;
}

uint64_t currentModifierFlags(Display* display) {
  Window rootReturn = 0, child = 0;
  int rootX = 0, rootY = 0, x = 0, y = 0;
  unsigned int mask = 0;
  if (!XQueryPointer(display, DefaultRootWindow(display), &rootReturn, &child,
                     &rootX, &rootY, &x, &y, &mask)) {
    return 0;
  }
  return modifierFlagsFromMask(mask);
}

uint64_t modifierFlagsFromMask(unsigned int mask) {
  constexpr std::array<std::pair<unsigned int, uint64_t>, 5> kMapping = {{
      {ShiftMask, 0x20000},
      {LockMask, 0x10000},
      {ControlMask, 0x40000},
      {Mod1Mask, 0x80000},
      {Mod4Mask, 0x100000},
  }};
  uint64_t flags = 0;
  for (const auto& [x11, mac] : kMapping) {
    if (mask & x11) flags |= mac;
  }
  return flags;
}

CopyShortcut copyShortcutFor(const std::optional<WindowClass>& windowClass) {
  if (!windowClass) return CopyShortcut::kControlC;
  return copyShortcutFor({windowClass->instance, windowClass->className});
}

}  // namespace tovrin
