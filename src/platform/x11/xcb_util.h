#ifndef TOVRIN_PLATFORM_X11_XCB_UTIL_H_
#define TOVRIN_PLATFORM_X11_XCB_UTIL_H_

// Ownership of what XCB and Xlib hand out, and reading window properties.
//
// XCB replies and errors are malloc'ed and go back with free(); what Xlib
// returns goes back with XFree. Requests here go through XCB with their
// errors collected per request: a window of another client that vanished
// meanwhile gives an empty answer, never Xlib's process-wide error handler.

#include <X11/Xlib.h>
#include <xcb/xcb.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tovrin {

/// Frees what XCB allocates.
struct XcbFree {
  void operator()(void* pointer) const { std::free(pointer); }
};
/// An XCB reply, freed on every path.
template <typename T>
using XcbReply = std::unique_ptr<T, XcbFree>;

/// Frees what Xlib allocates.
struct XlibFree {
  void operator()(void* pointer) const {
    if (pointer != nullptr) XFree(pointer);
  }
};
/// Memory from Xlib (a keyboard mapping, an atom name), freed on every path.
template <typename T>
using XlibPointer = std::unique_ptr<T, XlibFree>;

/// The XCB connection beneath an Xlib display.
xcb_connection_t* xcbOf(Display* display);

/// Waits for the reply to `cookie`; null when the request failed. The error
/// is dropped: callers only need to know that there is no answer.
template <typename Reply, typename Cookie>
XcbReply<Reply> xcbReply(xcb_connection_t* connection,
                         Reply* (*replyOf)(xcb_connection_t*, Cookie,
                                           xcb_generic_error_t**),
                         Cookie cookie) {
  xcb_generic_error_t* error = nullptr;
  XcbReply<Reply> reply(replyOf(connection, cookie, &error));
  std::free(error);
  return reply;
}

/// The items of a format-32 value packed as native-endian uint32_t.
std::vector<uint32_t> unpack32(std::string_view data);

/// A window property as read.
struct PropertyValue {
  /// None when the window has no such property.
  Atom type = None;
  /// 8, 16 or 32; 0 when the property does not exist.
  int format = 0;
  /// The items packed as consecutive native-endian 8-, 16- or 32-bit
  /// values, as the server sends them.
  std::string data;
  /// False when the property is longer than what was asked for.
  bool complete = true;

  bool exists() const { return type != None; }
  /// The items of a format-32 value (atoms, windows, integers); empty
  /// otherwise.
  std::vector<uint32_t> values32() const;
};

/// Length limits of readProperty, in the 4-byte units the protocol counts
/// in: all of it, or a bound for values of other clients that should be
/// short (names, ids).
inline constexpr uint32_t kWholeProperty = 0x1FFFFFFF;
inline constexpr uint32_t kShortProperty = 16384;

/// Reads `property` of `window`, at most `maxLength` units of it. With
/// `remove`, the server deletes the property once it was read whole (which
/// an INCR owner takes as the request for the next chunk). Nothing when the
/// window does not exist or the connection failed; a value whose type is
/// None when the property does not exist.
std::optional<PropertyValue> readProperty(Display* display, Window window,
                                          Atom property,
                                          uint32_t maxLength = kWholeProperty,
                                          bool remove = false);

}  // namespace tovrin

#endif  // TOVRIN_PLATFORM_X11_XCB_UTIL_H_
