#ifndef TOVRIN_PLATFORM_MAC_FOUNDATION_H_
#define TOVRIN_PLATFORM_MAC_FOUNDATION_H_

// What the files of the macOS backend share: ownership of Core Foundation
// objects, text between std::string and CFString, and the guard around
// every call into AppKit and Foundation. C++ only, so that it can be
// included anywhere; the Objective-C stays in the .mm files.

#include <CoreFoundation/CoreFoundation.h>

#include <functional>
#include <string>
#include <string_view>
#include <utility>

namespace tovrin {

/// Owns one Core Foundation object that a "Create" or "Copy" call handed
/// out, and releases it when it goes. Holds nothing when given null.
template <typename Ref>
class CFOwned {
 public:
  CFOwned() = default;
  explicit CFOwned(Ref ref) : ref_(ref) {}
  CFOwned(CFOwned&& other) noexcept
      : ref_(std::exchange(other.ref_, nullptr)) {}
  CFOwned& operator=(CFOwned&& other) noexcept {
    if (this != &other) {
      reset();
      ref_ = std::exchange(other.ref_, nullptr);
    }
    return *this;
  }
  CFOwned(const CFOwned&) = delete;
  CFOwned& operator=(const CFOwned&) = delete;
  ~CFOwned() { reset(); }

  Ref get() const { return ref_; }
  explicit operator bool() const { return ref_ != nullptr; }

 private:
  void reset() {
    if (ref_ != nullptr) CFRelease(ref_);
    ref_ = nullptr;
  }

  Ref ref_ = nullptr;
};

/// Runs `body` in an autorelease pool of its own, so that what AppKit
/// autoreleases is freed on any thread, dispatch workers included. An
/// Objective-C or C++ exception thrown by `body` ends it and goes no
/// further: the answer is then false, and the caller's result keeps the
/// value it had before (which is why bodies assign their result last).
bool runGuarded(const std::function<void()>& body);

/// The text of `string` as UTF-8 (see utf8FromUtf16); "" for null.
std::string utf8FromCFString(CFStringRef string);

/// A new string with the text of `text` (see utf16FromUtf8 for text that is
/// not UTF-8), owned by the caller; null only when memory ran out.
CFStringRef createCFStringFromUtf8(std::string_view text);

}  // namespace tovrin

#endif  // TOVRIN_PLATFORM_MAC_FOUNDATION_H_
