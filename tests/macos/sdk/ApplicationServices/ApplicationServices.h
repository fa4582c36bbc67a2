// Stand-in for the ApplicationServices umbrella, for the type check only
// (see ../README.md): the parts of CoreGraphics and HIServices that tovrin's
// macOS backend uses.

#ifndef TOVRIN_SDK_APPLICATIONSERVICES_APPLICATIONSERVICES_H_
#define TOVRIN_SDK_APPLICATIONSERVICES_APPLICATIONSERVICES_H_

#include <CoreFoundation/CoreFoundation.h>
#include <CoreGraphics/CoreGraphics.h>
#include <HIServices/HIServices.h>

#endif  // TOVRIN_SDK_APPLICATIONSERVICES_APPLICATIONSERVICES_H_
