// Stand-in for the virtual key codes of Carbon (HIToolbox/Events.h) that
// tovrin's macOS backend checks its own constants against, for the type
// check only (see ../README.md).

#ifndef TOVRIN_SDK_CARBON_CARBON_H_
#define TOVRIN_SDK_CARBON_CARBON_H_

#include <ApplicationServices/ApplicationServices.h>

// The key codes of the ANSI keyboard name positions, not characters: C is
// the key that types "c" on a US layout.
enum {
  kVK_ANSI_C = 0x08,
};

#endif  // TOVRIN_SDK_CARBON_CARBON_H_
