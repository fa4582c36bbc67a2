#include "platform/wayland/libraries.h"

#include <dlfcn.h>
#include <wayland-client-core.h>
#include <xkbcommon/xkbcommon.h>

#include <cstdarg>
#include <cstring>
#include <mutex>

#include "ext-data-control-v1-client.h"
#include "fake-input-client.h"
#include "plasma-window-management-client.h"
#include "platform/wayland/data_control.h"
#include "virtual-keyboard-unstable-v1-client.h"
#include "wayland-client-protocol.h"
#include "wlr-data-control-unstable-v1-client.h"
#include "wlr-foreign-toplevel-management-unstable-v1-client.h"

// Each function: its name, result and parameters (types, then names).
#define TOVRIN_WAYLAND_FUNCTIONS(X)                                          \
  X(wl_display_connect, wl_display*, (const char* name), (name))             \
  X(wl_display_disconnect, void, (wl_display * display), (display))          \
  X(wl_display_get_fd, int, (wl_display * display), (display))               \
  X(wl_display_flush, int, (wl_display * display), (display))                \
  X(wl_display_prepare_read, int, (wl_display * display), (display))        \
  X(wl_display_read_events, int, (wl_display * display), (display))         \
  X(wl_display_cancel_read, void, (wl_display * display), (display))        \
  X(wl_display_dispatch_pending, int, (wl_display * display), (display))    \
  X(wl_display_get_error, int, (wl_display * display), (display))           \
  X(wl_log_set_handler_client, void, (wl_log_func_t handler), (handler))    \
  X(wl_proxy_add_listener, int,                                              \
    (wl_proxy * proxy, void (**implementation)(void), void* data),           \
    (proxy, implementation, data))                                           \
  X(wl_proxy_destroy, void, (wl_proxy * proxy), (proxy))                     \
  X(wl_proxy_get_version, uint32_t, (wl_proxy * proxy), (proxy))             \
  X(wl_proxy_set_user_data, void, (wl_proxy * proxy, void* data),            \
    (proxy, data))                                                           \
  X(wl_proxy_get_user_data, void*, (wl_proxy * proxy), (proxy))              \
  X(wl_proxy_get_class, const char*, (wl_proxy * proxy), (proxy))            \
  X(wl_proxy_marshal_array_flags, wl_proxy*,                                 \
    (wl_proxy * proxy, uint32_t opcode, const wl_interface* interface,       \
     uint32_t version, uint32_t flags, wl_argument* args),                   \
    (proxy, opcode, interface, version, flags, args))

#define TOVRIN_XKB_FUNCTIONS(X)                                              \
  X(xkb_context_new, xkb_context*, (xkb_context_flags flags), (flags))       \
  X(xkb_context_unref, void, (xkb_context * context), (context))             \
  X(xkb_context_set_log_fn, void,                                            \
    (xkb_context * context,                                                  \
     void (*log)(xkb_context*, xkb_log_level, const char*, va_list)),        \
    (context, log))                                                          \
  X(xkb_keymap_new_from_string, xkb_keymap*,                                 \
    (xkb_context * context, const char* string, xkb_keymap_format format,    \
     xkb_keymap_compile_flags flags),                                        \
    (context, string, format, flags))                                        \
  X(xkb_keymap_new_from_names, xkb_keymap*,                                  \
    (xkb_context * context, const xkb_rule_names* names,                     \
     xkb_keymap_compile_flags flags),                                        \
    (context, names, flags))                                                 \
  X(xkb_keymap_unref, void, (xkb_keymap * keymap), (keymap))                 \
  X(xkb_keymap_get_as_string, char*,                                         \
    (xkb_keymap * keymap, xkb_keymap_format format), (keymap, format))       \
  X(xkb_keymap_min_keycode, xkb_keycode_t, (xkb_keymap * keymap), (keymap))  \
  X(xkb_keymap_max_keycode, xkb_keycode_t, (xkb_keymap * keymap), (keymap))  \
  X(xkb_keymap_key_get_syms_by_level, int,                                   \
    (xkb_keymap * keymap, xkb_keycode_t key, xkb_layout_index_t layout,      \
     xkb_level_index_t level, const xkb_keysym_t** symbols),                 \
    (keymap, key, layout, level, symbols))                                   \
  X(xkb_keymap_key_by_name, xkb_keycode_t,                                   \
    (xkb_keymap * keymap, const char* name), (keymap, name))                 \
  X(xkb_keymap_mod_get_index, xkb_mod_index_t,                               \
    (xkb_keymap * keymap, const char* name), (keymap, name))                 \
  X(xkb_keymap_num_layouts, xkb_layout_index_t, (xkb_keymap * keymap),       \
    (keymap))

namespace tovrin {
namespace {

struct Functions {
#define TOVRIN_POINTER(name, result, parameters, arguments) \
  result(*name) parameters = nullptr;
  TOVRIN_WAYLAND_FUNCTIONS(TOVRIN_POINTER)
  TOVRIN_XKB_FUNCTIONS(TOVRIN_POINTER)
#undef TOVRIN_POINTER
};

Functions functions;

template <typename Pointer>
bool resolve(void* library, const char* name, Pointer& pointer) {
  pointer = reinterpret_cast<Pointer>(dlsym(library, name));
  return pointer != nullptr;
}

bool loadOnce() {
  // Never closed: the functions stay in use until the process ends.
  void* wayland = dlopen("libwayland-client.so.0", RTLD_NOW | RTLD_LOCAL);
  void* xkb = dlopen("libxkbcommon.so.0", RTLD_NOW | RTLD_LOCAL);
  if (wayland == nullptr || xkb == nullptr) return false;
  bool complete = true;
#define TOVRIN_RESOLVE_WAYLAND(name, result, parameters, arguments) \
  complete = resolve(wayland, #name, functions.name) && complete;
#define TOVRIN_RESOLVE_XKB(name, result, parameters, arguments) \
  complete = resolve(xkb, #name, functions.name) && complete;
  TOVRIN_WAYLAND_FUNCTIONS(TOVRIN_RESOLVE_WAYLAND)
  TOVRIN_XKB_FUNCTIONS(TOVRIN_RESOLVE_XKB)
#undef TOVRIN_RESOLVE_WAYLAND
#undef TOVRIN_RESOLVE_XKB
  return complete;
}

/// The interfaces of the objects tovrin makes requests on, known by name:
/// libwayland tells a proxy's interface only by its name.
const wl_interface* const kInterfaces[] = {
    &wl_display_interface,
    &wl_registry_interface,
    &wl_callback_interface,
    &wl_seat_interface,
    &wl_keyboard_interface,
    &zwlr_data_control_manager_v1_interface,
    &zwlr_data_control_device_v1_interface,
    &zwlr_data_control_source_v1_interface,
    &zwlr_data_control_offer_v1_interface,
    &ext_data_control_manager_v1_interface,
    &ext_data_control_device_v1_interface,
    &ext_data_control_source_v1_interface,
    &ext_data_control_offer_v1_interface,
    &zwlr_foreign_toplevel_manager_v1_interface,
    &zwlr_foreign_toplevel_handle_v1_interface,
    &zwp_virtual_keyboard_manager_v1_interface,
    &zwp_virtual_keyboard_v1_interface,
    &org_kde_kwin_fake_input_interface,
    &org_kde_plasma_window_management_interface,
    &org_kde_plasma_window_interface,
};

const wl_interface* interfaceNamed(const char* name) {
  for (const wl_interface* interface : kInterfaces) {
    if (std::strcmp(interface->name, name) == 0) return interface;
  }
  return nullptr;
}

/// The arguments of a request, taken from `list` as its signature says (as
/// libwayland does for its own variadic marshalling). Returns the count;
/// -1 when the signature has more than `capacity`.
int argumentsOf(const char* signature, va_list list, wl_argument* arguments,
                int capacity) {
  int count = 0;
  for (const char* type = signature; *type != '\0'; ++type) {
    if (*type == '?' || (*type >= '0' && *type <= '9')) continue;
    if (count == capacity) return -1;
    wl_argument& argument = arguments[count++];
    switch (*type) {
      case 'i':
        argument.i = va_arg(list, int32_t);
        break;
      case 'u':
        argument.u = va_arg(list, uint32_t);
        break;
      case 'f':
        argument.f = va_arg(list, wl_fixed_t);
        break;
      case 's':
        argument.s = va_arg(list, const char*);
        break;
      case 'o':
      case 'n':
        argument.o = va_arg(list, wl_object*);
        break;
      case 'a':
        argument.a = va_arg(list, wl_array*);
        break;
      case 'h':
        argument.h = va_arg(list, int32_t);
        break;
      default:
        return -1;
    }
  }
  return count;
}

}  // namespace

bool loadWaylandLibraries() {
  static std::once_flag once;
  static bool loaded = false;
  std::call_once(once, [] { loaded = loadOnce(); });
  return loaded;
}

}  // namespace tovrin

// The libraries' own names, for the calls that wayland-scanner's code and
// libwayland's headers make.
extern "C" {

#define TOVRIN_FORWARD(name, result, parameters, arguments) \
  result name parameters {                                  \
    return tovrin::functions.name arguments;                \
  }
TOVRIN_WAYLAND_FUNCTIONS(TOVRIN_FORWARD)
TOVRIN_XKB_FUNCTIONS(TOVRIN_FORWARD)
#undef TOVRIN_FORWARD

wl_proxy* wl_proxy_marshal_flags(wl_proxy* proxy, uint32_t opcode,
                                 const wl_interface* interface,
                                 uint32_t version, uint32_t flags, ...) {
  const char* owner = wl_proxy_get_class(proxy);
  const wl_interface* own = tovrin::interfaceNamed(owner);
  if (own == nullptr || opcode >= static_cast<uint32_t>(own->method_count)) {
    return nullptr;
  }
  constexpr int kMaxArguments = 20;
  wl_argument arguments[kMaxArguments] = {};
  va_list list;
  va_start(list, flags);
  const int count = tovrin::argumentsOf(own->methods[opcode].signature, list,
                                        arguments, kMaxArguments);
  va_end(list);
  if (count < 0) return nullptr;
  return wl_proxy_marshal_array_flags(
      proxy, opcode, tovrin::dataControlInterfaceFor(owner, interface), version,
      flags, arguments);
}

}  // extern "C"
