#include "platform/x11/xcb_util.h"

#include <X11/Xlib-xcb.h>

#include <cstring>

namespace tovrin {

xcb_connection_t* xcbOf(Display* display) { return XGetXCBConnection(display); }

std::vector<uint32_t> unpack32(std::string_view data) {
  std::vector<uint32_t> values(data.size() / sizeof(uint32_t));
  if (!values.empty()) {
    std::memcpy(values.data(), data.data(), values.size() * sizeof(uint32_t));
  }
  return values;
}

std::vector<uint32_t> PropertyValue::values32() const {
  if (format != 32) return {};
  return unpack32(data);
}

std::optional<PropertyValue> readProperty(Display* display, Window window,
                                          Atom property, uint32_t maxLength,
                                          bool remove) {
  xcb_connection_t* connection = xcbOf(display);
  const XcbReply<xcb_get_property_reply_t> reply = xcbReply(
      connection, &xcb_get_property_reply,
      xcb_get_property(
          connection, remove ? 1 : 0, static_cast<xcb_window_t>(window),
          static_cast<xcb_atom_t>(property), XCB_ATOM_ANY, 0, maxLength));
  if (!reply) return std::nullopt;
  PropertyValue value;
  if (reply->type == XCB_ATOM_NONE) return value;
  if (reply->format != 8 && reply->format != 16 && reply->format != 32) {
    return std::nullopt;
  }
  value.type = reply->type;
  value.format = reply->format;
  value.complete = reply->bytes_after == 0;
  value.data.assign(
      static_cast<const char*>(xcb_get_property_value(reply.get())),
      static_cast<size_t>(xcb_get_property_value_length(reply.get())));
  return value;
}

}  // namespace tovrin
