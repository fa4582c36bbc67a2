#include "platform/wayland/data_control.h"

#include "ext-data-control-v1-client.h"
#include "wlr-data-control-unstable-v1-client.h"

namespace tovrin {

const DataControlPair kDataControlPairs[kDataControlInterfaces] = {
    {&zwlr_data_control_manager_v1_interface,
     &ext_data_control_manager_v1_interface},
    {&zwlr_data_control_device_v1_interface,
     &ext_data_control_device_v1_interface},
    {&zwlr_data_control_source_v1_interface,
     &ext_data_control_source_v1_interface},
    {&zwlr_data_control_offer_v1_interface,
     &ext_data_control_offer_v1_interface},
};

const wl_interface* dataControlInterfaceFor(std::string_view owner,
                                            const wl_interface* requested) {
  if (requested == nullptr || !owner.starts_with("ext_data_control_")) {
    return requested;
  }
  for (const DataControlPair& pair : kDataControlPairs) {
    if (pair.wlr == requested) return pair.ext;
  }
  return requested;
}

bool DataControlChoice::offered(std::string_view interface) {
  const DataControlPair& managers = kDataControlPairs[0];
  if (interface == managers.ext->name) {
    chosen_ = managers.ext;
    return true;
  }
  if (interface == managers.wlr->name && chosen_ == nullptr) {
    chosen_ = managers.wlr;
    return true;
  }
  return false;
}

}  // namespace tovrin
