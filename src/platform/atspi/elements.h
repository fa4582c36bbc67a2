#ifndef TOVRIN_PLATFORM_ATSPI_ELEMENTS_H_
#define TOVRIN_PLATFORM_ATSPI_ELEMENTS_H_

// The accessibility elements of the Wayland backends, which read over
// AT-SPI from the active application: the system-wide element, the active
// application (its focused element stands for it), and a text. No client
// learns which window has the keyboard on Wayland, so the elements carry no
// more than that, and the AT-SPI read finds the application itself.

#include <functional>
#include <string>
#include <string_view>

#include "platform/atspi/atspi_reader.h"
#include "platform/platform.h"

namespace tovrin {

class AccessibilitySession;

/// Creates the system-wide element.
AXObjectHandle createAtspiSystemWideElement();

/// copyAttributeValue() for those elements: AXFocusedUIElement of the
/// system-wide element when a bus may be there, and AXSelectedText of the
/// active application, which `read` gives. The application's name is
/// logged through `log`, escaped.
AXAttributeResult copyAtspiAttribute(
    const AXObject& element, std::string_view attribute,
    const AccessibilitySession& session, const std::function<AtspiRead()>& read,
    const std::function<void(std::string_view)>& log);

}  // namespace tovrin

#endif  // TOVRIN_PLATFORM_ATSPI_ELEMENTS_H_
