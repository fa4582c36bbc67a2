#include "platform/mac/foundation.h"

#import <Foundation/Foundation.h>

#include <cstdint>
#include <type_traits>
#include <vector>

#include "text/utf16.h"

namespace tovrin {

// NSString's code units are the ones utf16.h converts.
static_assert(std::is_same_v<unichar, uint16_t>);

bool runGuarded(const std::function<void()>& body) {
  // On the 64-bit runtimes the C++ catch takes Objective-C exceptions too;
  // the @catch says as much where that is not known.
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
  @autoreleasepool {
    NSString* text = (__bridge NSString*)string;
    const NSUInteger length = text.length;
    if (length == 0) return {};
    std::vector<uint16_t> units(length);
    [text getCharacters:units.data() range:NSMakeRange(0, length)];
    return utf8FromUtf16(units);
  }
}

CFStringRef createCFStringFromUtf8(std::string_view text) {
  const std::vector<uint16_t> units = utf16FromUtf8(text);
  // A string of no characters still wants a valid buffer.
  static const unichar kNothing = 0;
  @autoreleasepool {
    NSString* string = [[NSString alloc]
        initWithCharacters:units.empty() ? &kNothing : units.data()
                    length:units.size()];
    return (__bridge_retained CFStringRef)string;
  }
}

}  // namespace tovrin
