#include "platform/atspi/elements.h"

#include <memory>
#include <optional>

#include "platform/atspi/session.h"
#include "text/text.h"

namespace tovrin {
namespace {

class AtspiElement : public AXObject {
 public:
  enum class Kind { kSystemWide, kActiveApplication, kText };
  explicit AtspiElement(Kind kind, std::string text = {})
      : kind_(kind), text_(std::move(text)) {}
  std::optional<std::string> stringValue() const override {
    if (kind_ != Kind::kText) return std::nullopt;
    return text_;
  }
  Kind kind() const { return kind_; }

 private:
  Kind kind_;
  std::string text_;
};

}  // namespace

AXObjectHandle createAtspiSystemWideElement() {
  return std::make_unique<AtspiElement>(AtspiElement::Kind::kSystemWide);
}

AXAttributeResult copyAtspiAttribute(
    const AXObject& element, std::string_view attribute,
    const AccessibilitySession& session, const std::function<AtspiRead()>& read,
    const std::function<void(std::string_view)>& log) {
  const auto* object = dynamic_cast<const AtspiElement*>(&element);
  if (object == nullptr) return {kAXErrorIllegalArgument, nullptr};
  if (object->kind() == AtspiElement::Kind::kSystemWide &&
      attribute == "AXFocusedUIElement") {
    // The accessibility bus knows which application is active.
    if (!session.mayBeThere()) return {kAXErrorAPIDisabled, nullptr};
    return {kAXErrorSuccess, std::make_unique<AtspiElement>(
                                 AtspiElement::Kind::kActiveApplication)};
  }
  if (object->kind() != AtspiElement::Kind::kActiveApplication ||
      attribute != "AXSelectedText") {
    return {kAXErrorAttributeUnsupported, nullptr};
  }
  const AtspiRead answer = read();
  if (answer.error != kAXErrorSuccess) return {answer.error, nullptr};
  // The name is the application's own: escaped like any other.
  log("[tovrin] Accessibility: read through AT-SPI from " +
      escapeForLog(answer.source));
  return {kAXErrorSuccess,
          std::make_unique<AtspiElement>(AtspiElement::Kind::kText,
                                         toValidUtf8(answer.text))};
}

}  // namespace tovrin
