#import <Foundation/Foundation.h>

#include <string_view>

#include "platform/mac/foundation.h"
#include "platform/system.h"

namespace tovrin {

void writeLogLine(std::string_view line) {
  @autoreleasepool {
    // The line is an argument, never the format: a "%" in it is printed.
    NSString* text = (__bridge_transfer NSString*)createCFStringFromUtf8(line);
    NSLog(@"%@", text);
  }
}

}  // namespace tovrin
