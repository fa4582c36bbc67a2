#ifndef TOVRIN_PLATFORM_LINUX_EMPTY_PASTEBOARD_H_
#define TOVRIN_PLATFORM_LINUX_EMPTY_PASTEBOARD_H_

// The pasteboard of a desktop whose clipboard cannot be had (a display
// that does not open, a compositor without data-control): it holds
// nothing and takes nothing.

#include "platform/platform.h"

namespace tovrin {

class EmptyPasteboard : public Pasteboard {
 public:
  std::optional<std::vector<std::string>> types() override { return {}; }
  std::optional<std::string> stringForType(PasteboardType) override {
    return {};
  }
  std::optional<std::string> dataForType(PasteboardType) override { return {}; }
  std::optional<PropertyList> propertyListForType(std::string_view) override {
    return {};
  }
  std::optional<std::vector<PasteboardURLObject>> readFileURLObjects()
      override {
    return {};
  }
  std::optional<std::vector<PasteboardItem>> pasteboardItems() override {
    return {};
  }
  void guardString(std::string_view) override {}
  void clearContents() override {}
  bool setString(std::string_view, PasteboardType) override { return false; }
};

}  // namespace tovrin

#endif  // TOVRIN_PLATFORM_LINUX_EMPTY_PASTEBOARD_H_
