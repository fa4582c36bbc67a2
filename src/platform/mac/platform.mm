// The macOS backend: Accessibility for the selected text, CoreGraphics for
// the copy keystroke, AppKit for the frontmost application, the modifier
// keys, the pasteboard and the RTF conversion, Foundation for URLs. Each
// operation is the one system call it is named after; every decision about
// what to call when is in the shared code.

#import <AppKit/AppKit.h>
#import <ApplicationServices/ApplicationServices.h>
#import <Carbon/Carbon.h>
#import <Foundation/Foundation.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "platform/mac/foundation.h"
#include "platform/mac/pasteboard.h"
#include "platform/platform.h"
#include "platform/system.h"

namespace tovrin {

// The seam carries the system's own numbers; a Mac build checks them
// against the SDK.
static_assert(kAXErrorSuccess == ::kAXErrorSuccess);
static_assert(kAXErrorFailure == ::kAXErrorFailure);
static_assert(kAXErrorIllegalArgument == ::kAXErrorIllegalArgument);
static_assert(kAXErrorCannotComplete == ::kAXErrorCannotComplete);
static_assert(kAXErrorAttributeUnsupported == ::kAXErrorAttributeUnsupported);
static_assert(kAXErrorAPIDisabled == ::kAXErrorAPIDisabled);
static_assert(kAXErrorNoValue == ::kAXErrorNoValue);
static_assert(kModifierFlagCapsLock == NSEventModifierFlagCapsLock);
static_assert(kModifierFlagShift == NSEventModifierFlagShift);
static_assert(kModifierFlagControl == NSEventModifierFlagControl);
static_assert(kModifierFlagOption == NSEventModifierFlagOption);
static_assert(kModifierFlagCommand == NSEventModifierFlagCommand);
static_assert(kEventSourceStateHIDSystemState ==
              static_cast<int>(kCGEventSourceStateHIDSystemState));
static_assert(kHIDEventTap == static_cast<int>(kCGHIDEventTap));
static_assert(kVirtualKeyC == kVK_ANSI_C);
static_assert(kEventFlagMaskCommand == kCGEventFlagMaskCommand);

namespace {

std::string toUtf8(NSString* text) {
  return utf8FromCFString((__bridge CFStringRef)text);
}

NSString* toNSString(std::string_view text) {
  return (__bridge_transfer NSString*)createCFStringFromUtf8(text);
}

/// An accessibility element or attribute value, released with the object.
class MacAXObject : public AXObject {
 public:
  explicit MacAXObject(CFOwned<CFTypeRef> object)
      : object_(std::move(object)) {}

  std::optional<std::string> stringValue() const override {
    if (!object_ || CFGetTypeID(object_.get()) != CFStringGetTypeID()) {
      return std::nullopt;
    }
    std::optional<std::string> text;
    runGuarded([&] {
      text = utf8FromCFString(static_cast<CFStringRef>(object_.get()));
    });
    return text;
  }

  CFTypeRef get() const { return object_.get(); }

 private:
  CFOwned<CFTypeRef> object_;
};

class MacEventSource : public EventSource {
 public:
  explicit MacEventSource(CFOwned<CGEventSourceRef> source)
      : source_(std::move(source)) {}
  CGEventSourceRef get() const { return source_.get(); }

 private:
  CFOwned<CGEventSourceRef> source_;
};

class MacKeyboardEvent : public KeyboardEvent {
 public:
  explicit MacKeyboardEvent(CFOwned<CGEventRef> event)
      : event_(std::move(event)) {}

  void setFlags(uint64_t flags) override {
    CGEventSetFlags(event_.get(), static_cast<CGEventFlags>(flags));
  }
  void post(int tap) override {
    CGEventPost(static_cast<CGEventTapLocation>(tap), event_.get());
  }

 private:
  CFOwned<CGEventRef> event_;
};

// Time, threads and output are the shared system services of
// SystemPlatform: on macOS the log goes through NSLog (log_mac.mm) and the
// workers are dispatch's (worker_mac.mm).
class MacPlatform : public SystemPlatform {
 public:
  // Accessibility.
  bool isProcessTrusted() override { return AXIsProcessTrusted() != 0; }

  bool isProcessTrustedWithPrompt() override {
    bool trusted = false;
    runGuarded([&] {
      NSDictionary* options =
          @{(__bridge id)kAXTrustedCheckOptionPrompt : @YES};
      trusted =
          AXIsProcessTrustedWithOptions((__bridge CFDictionaryRef)options) != 0;
    });
    return trusted;
  }

  AXObjectHandle createSystemWideElement() override {
    CFOwned<CFTypeRef> element(AXUIElementCreateSystemWide());
    if (!element) return nullptr;
    return std::make_unique<MacAXObject>(std::move(element));
  }

  AXAttributeResult copyAttributeValue(const AXObject& element,
                                       std::string_view attribute) override {
    const auto* object = dynamic_cast<const MacAXObject*>(&element);
    if (object == nullptr || object->get() == nullptr) {
      return {kAXErrorIllegalArgument, nullptr};
    }
    const CFOwned<CFStringRef> name(createCFStringFromUtf8(attribute));
    if (!name) return {kAXErrorFailure, nullptr};
    CFTypeRef value = nullptr;
    // No messaging timeout is set: the system's default applies.
    const AXError error = AXUIElementCopyAttributeValue(
        static_cast<AXUIElementRef>(object->get()), name.get(), &value);
    // Owned from here on, whatever the answer.
    CFOwned<CFTypeRef> owned(value);
    if (error != kAXErrorSuccess || !owned) return {error, nullptr};
    return {error, std::make_unique<MacAXObject>(std::move(owned))};
  }

  // Applications and input.
  std::optional<std::string> frontmostApplicationBundleIdentifier() override {
    std::optional<std::string> identifier;
    runGuarded([&] {
      NSString* bundle =
          NSWorkspace.sharedWorkspace.frontmostApplication.bundleIdentifier;
      if (bundle != nil) identifier = toUtf8(bundle);
    });
    return identifier;
  }

  uint64_t modifierFlags() override {
    uint64_t flags = 0;
    runGuarded([&] { flags = NSEvent.modifierFlags; });
    return flags;
  }

  EventSourceHandle createEventSource(int stateId) override {
    CFOwned<CGEventSourceRef> source(
        CGEventSourceCreate(static_cast<CGEventSourceStateID>(stateId)));
    if (!source) return nullptr;
    return std::make_unique<MacEventSource>(std::move(source));
  }

  KeyboardEventHandle createKeyboardEvent(EventSource* source,
                                          uint16_t virtualKey,
                                          bool keyDown) override {
    const auto* macSource = dynamic_cast<const MacEventSource*>(source);
    CFOwned<CGEventRef> event(CGEventCreateKeyboardEvent(
        macSource == nullptr ? nullptr : macSource->get(),
        static_cast<CGKeyCode>(virtualKey), keyDown));
    if (!event) return nullptr;
    return std::make_unique<MacKeyboardEvent>(std::move(event));
  }

  // Clipboard and conversions.
  std::shared_ptr<Pasteboard> generalPasteboard() override {
    if (!pasteboard_) pasteboard_ = createGeneralPasteboard();
    return pasteboard_;
  }

  std::optional<std::string> convertRtfToHtml(std::string_view rtf) override {
    std::optional<std::string> html;
    runGuarded([&] {
      NSData* data = [NSData dataWithBytes:rtf.data() length:rtf.size()];
      NSAttributedString* text = [[NSAttributedString alloc] initWithRTF:data
                                                      documentAttributes:nil];
      if (text == nil) return;
      NSData* encoded =
          [text dataFromRange:NSMakeRange(0, text.length)
              documentAttributes:@{
                NSDocumentTypeDocumentAttribute : NSHTMLTextDocumentType
              }
                           error:nil];
      if (encoded == nil) return;
      NSString* decoded = [[NSString alloc] initWithData:encoded
                                                encoding:NSUTF8StringEncoding];
      if (decoded != nil) html = toUtf8(decoded);
    });
    return html;
  }

  std::optional<ParsedURL> parseURL(std::string_view text) override {
    std::optional<ParsedURL> parsed;
    runGuarded([&] {
      NSURL* url = [NSURL URLWithString:toNSString(text)];
      if (url == nil) return;
      ParsedURL result;
      result.isFileURL = [url isFileURL];
      NSString* path = url.path;
      if (path != nil) result.path = toUtf8(path);
      parsed = std::move(result);
    });
    return parsed;
  }

 private:
  std::shared_ptr<Pasteboard> pasteboard_;
};

}  // namespace

std::unique_ptr<Platform> createPlatform() {
  return std::make_unique<MacPlatform>();
}

}  // namespace tovrin
