#include "platform/foundation_mac.h"

#import <Foundation/Foundation.h>

#include <cstdint>
#include <vector>

#include "platform/utf16_mac.h"

namespace tovrin {

static_assert(sizeof(unichar) == sizeof(uint16_t));

bool runGuarded(const std::function<void()>& body) {
  @autoreleasepool {
    @try {
      try {
        body();
      } catch (...) {
        return false;
      }
      return true;
    } @catch (id exception) {
      return false;
    }
  }
}

std::string utf8FromCFString(CFStringRef string) {
  if (string == nullptr) return {};
  NSString* text = (__bridge NSString*)string;
  const NSUInteger length = text.length;
  if (length == 0) return {};
  std::vector<unichar> units(length);
  [text getCharacters:units.data() range:NSMakeRange(0, length)];
  return utf8FromUtf16(std::span<const uint16_t>(
      reinterpret_cast<const uint16_t*>(units.data()), units.size()));
}

CFStringRef createCFStringFromUtf8(std::string_view text) {
  const std::vector<uint16_t> units = utf16FromUtf8(text);
  // A string of no characters still wants a valid buffer.
  static const unichar kNothing = 0;
  NSString* string = [[NSString alloc]
      initWithCharacters:units.empty()
                             ? &kNothing
                             : reinterpret_cast<const unichar*>(units.data())
                  length:units.size()];
  return (__bridge_retained CFStringRef)string;
}

}  // namespace tovrin
