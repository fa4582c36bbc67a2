// AppKit's general pasteboard behind the seam's Pasteboard: each operation
// is the NSPasteboard call of the same name, guarded and in an autorelease
// pool of its own.

#include "platform/mac/pasteboard.h"

#import <AppKit/AppKit.h>

#include <string>
#include <utility>
#include <vector>

#include "platform/mac/foundation.h"

namespace tovrin {
namespace {

std::string toUtf8(NSString* text) {
  return utf8FromCFString((__bridge CFStringRef)text);
}

NSString* toNSString(std::string_view text) {
  return (__bridge_transfer NSString*)createCFStringFromUtf8(text);
}

NSPasteboardType typeFor(PasteboardType type) {
  switch (type) {
    case PasteboardType::kString:
      return NSPasteboardTypeString;
    case PasteboardType::kHTML:
      return NSPasteboardTypeHTML;
    case PasteboardType::kRTF:
      return NSPasteboardTypeRTF;
  }
  return nil;  // no entry has a type that is not in the enum
}

// Readers run on dispatch workers while the main thread waits, and a reader
// that missed its deadline may still be inside AppKit when the next read
// starts. The object itself is safe to share: its one member is set once, in
// the constructor, and only read after; each call has its own autorelease
// pool, which a worker thread needs. The calls into NSPasteboard are not
// serialised here: a lock would hold every later read, and the restoring
// write on the main thread, behind a reader stuck on a slow application.
class MacPasteboard : public Pasteboard {
 public:
  explicit MacPasteboard(NSPasteboard* pasteboard) : pasteboard_(pasteboard) {}

  std::optional<std::vector<std::string>> types() override {
    std::optional<std::vector<std::string>> result;
    runGuarded([&] {
      NSArray<NSPasteboardType>* types = pasteboard_.types;
      if (types == nil) return;
      std::vector<std::string> names;
      names.reserve(types.count);
      for (NSPasteboardType type in types) names.push_back(toUtf8(type));
      result = std::move(names);
    });
    return result;
  }

  std::optional<std::string> stringForType(PasteboardType type) override {
    std::optional<std::string> result;
    runGuarded([&] {
      NSString* text = [pasteboard_ stringForType:typeFor(type)];
      if (text != nil) result = toUtf8(text);
    });
    return result;
  }

  std::optional<std::string> dataForType(PasteboardType type) override {
    std::optional<std::string> result;
    runGuarded([&] {
      NSData* data = [pasteboard_ dataForType:typeFor(type)];
      if (data == nil) return;
      const NSUInteger length = data.length;
      result = length == 0
                   ? std::string()
                   : std::string(static_cast<const char*>(data.bytes), length);
    });
    return result;
  }

  std::optional<PropertyList> propertyListForType(
      std::string_view type) override {
    std::optional<PropertyList> result;
    runGuarded([&] {
      id list = [pasteboard_ propertyListForType:toNSString(type)];
      if (list == nil) return;
      PropertyList found;
      if ([list isKindOfClass:NSArray.class]) {
        std::vector<std::string> strings;
        bool allStrings = true;
        for (id element in (NSArray*)list) {
          if (![element isKindOfClass:NSString.class]) {
            allStrings = false;
            break;
          }
          strings.push_back(toUtf8((NSString*)element));
        }
        if (allStrings) found.stringArray = std::move(strings);
      }
      result = std::move(found);
    });
    return result;
  }

  std::optional<std::vector<PasteboardURLObject>> readFileURLObjects()
      override {
    std::optional<std::vector<PasteboardURLObject>> result;
    runGuarded([&] {
      NSArray* objects = [pasteboard_
          readObjectsForClasses:@[ NSURL.class ]
                        options:@{
                          NSPasteboardURLReadingFileURLsOnlyKey : @YES
                        }];
      if (objects == nil) return;
      std::vector<PasteboardURLObject> found;
      found.reserve(objects.count);
      for (id object in objects) {
        PasteboardURLObject entry;
        if ([object isKindOfClass:NSURL.class]) {
          entry.isURL = true;
          NSString* path = ((NSURL*)object).path;
          if (path != nil) entry.path = toUtf8(path);
        }
        found.push_back(std::move(entry));
      }
      result = std::move(found);
    });
    return result;
  }

  std::optional<std::vector<PasteboardItem>> pasteboardItems() override {
    std::optional<std::vector<PasteboardItem>> result;
    runGuarded([&] {
      NSArray<NSPasteboardItem*>* items = pasteboard_.pasteboardItems;
      if (items == nil) return;
      std::vector<PasteboardItem> found;
      found.reserve(items.count);
      for (NSPasteboardItem* item in items) {
        PasteboardItem entry;
        NSString* url = [item stringForType:NSPasteboardTypeFileURL];
        if (url != nil) entry.fileURLString = toUtf8(url);
        found.push_back(std::move(entry));
      }
      result = std::move(found);
    });
    return result;
  }

  // Nothing outlives this process here to put the text back; a host that
  // kills tovrin mid-copy leaves the pasteboard as the copy left it.
  void guardString(std::string_view) override {}
  void clearContents() override {
    runGuarded([&] { [pasteboard_ clearContents]; });
  }

  bool setString(std::string_view text, PasteboardType type) override {
    bool written = false;
    runGuarded([&] {
      NSString* string = toNSString(text);
      if (string == nil) return;
      written = [pasteboard_ setString:string forType:typeFor(type)];
    });
    return written;
  }

 private:
  NSPasteboard* const pasteboard_;
};

}  // namespace

std::shared_ptr<Pasteboard> createGeneralPasteboard() {
  NSPasteboard* general = nil;
  runGuarded([&] { general = NSPasteboard.generalPasteboard; });
  // Should AppKit give none, every message to nil answers nil, 0 or NO: a
  // pasteboard that holds nothing and takes nothing.
  return std::make_shared<MacPasteboard>(general);
}

}  // namespace tovrin
