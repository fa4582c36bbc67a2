#include "clipboard/file_paths.h"

#include <cstdlib>
#include <string_view>
#include <unordered_set>

#include <utf8proc.h>

#include "platform/platform.h"
#include "text/text.h"

namespace tovrin {
namespace {

/// Unicode's white space and line breaks: general category Z with U+0009 to
/// U+000D and U+0085.
bool isWhitespaceOrNewline(utf8proc_int32_t c) {
  return (c >= 0x09 && c <= 0x0D) || c == 0x20 || c == 0x85 || c == 0xA0 ||
         c == 0x1680 || (c >= 0x2000 && c <= 0x200A) || c == 0x2028 ||
         c == 0x2029 || c == 0x202F || c == 0x205F || c == 0x3000;
}

std::string_view trimWhitespace(std::string_view text) {
  size_t begin = 0;
  size_t end = 0;
  bool seenContent = false;
  size_t position = 0;
  while (position < text.size()) {
    utf8proc_int32_t c = 0;
    auto length = utf8proc_iterate(
        reinterpret_cast<const utf8proc_uint8_t*>(text.data() + position),
        static_cast<utf8proc_ssize_t>(text.size() - position), &c);
    if (length <= 0) {
      c = -1;  // not white space
      length = 1;
    }
    const size_t next = position + static_cast<size_t>(length);
    if (!isWhitespaceOrNewline(c)) {
      if (!seenContent) begin = position;
      seenContent = true;
      end = next;
    }
    position = next;
  }
  return seenContent ? text.substr(begin, end - begin) : std::string_view();
}

/// The composed normal form of `text`, under which canonically equivalent
/// texts are equal; the text itself when it cannot be normalised.
std::string canonicalKey(std::string_view text) {
  utf8proc_uint8_t* composed = nullptr;
  const auto length = utf8proc_map(
      reinterpret_cast<const utf8proc_uint8_t*>(text.data()),
      static_cast<utf8proc_ssize_t>(text.size()), &composed,
      static_cast<utf8proc_option_t>(UTF8PROC_STABLE | UTF8PROC_COMPOSE));
  if (length < 0) return std::string(text);
  std::string key(reinterpret_cast<const char*>(composed),
                  static_cast<size_t>(length));
  std::free(composed);
  return key;
}

std::vector<std::string> pathsFromURLObjects(Pasteboard& pasteboard) {
  const auto objects = pasteboard.readFileURLObjects();
  if (!objects || objects->empty()) return {};
  std::vector<std::string> paths;
  for (const PasteboardURLObject& object : *objects) {
    if (!object.isURL) return {};
    if (!object.path.empty()) paths.push_back(object.path);
  }
  return paths;
}

std::vector<std::string> pathsFromItems(Platform& platform,
                                        Pasteboard& pasteboard) {
  const auto items = pasteboard.pasteboardItems();
  if (!items) return {};
  std::vector<std::string> paths;
  for (const PasteboardItem& item : *items) {
    if (!item.fileURLString || item.fileURLString->empty()) continue;
    const auto url = platform.parseURL(*item.fileURLString);
    // Text that is no URL, or a URL of another scheme, is taken as it is.
    paths.push_back(url && url->isFileURL ? url->path : *item.fileURLString);
  }
  return paths;
}

std::vector<std::string> pathsFromFilenamesList(Pasteboard& pasteboard) {
  const auto list = pasteboard.propertyListForType("NSFilenamesPboardType");
  if (!list || !list->stringArray) return {};
  return *list->stringArray;
}

}  // namespace

std::vector<std::string> dedupePaths(const std::vector<std::string>& paths) {
  std::vector<std::string> unique;
  std::unordered_set<std::string> seen;
  for (const std::string& path : paths) {
    // File names are bytes; an answer carries text.
    const std::string valid = toValidUtf8(path);
    const std::string_view trimmed = trimWhitespace(valid);
    if (trimmed.empty()) continue;
    if (!seen.insert(canonicalKey(trimmed)).second) continue;
    unique.emplace_back(trimmed);
  }
  return unique;
}

std::vector<std::string> getFilePathsFromClipboard(Platform& platform,
                                                   Pasteboard& pasteboard) {
  std::vector<std::string> collected;
  const auto append = [&](const std::vector<std::string>& found,
                          const char* line) {
    if (found.empty()) return;
    platform.log(line + std::to_string(found.size()));
    collected.insert(collected.end(), found.begin(), found.end());
  };
  append(pathsFromURLObjects(pasteboard),
         "[tovrin] File path strategy #1 (readObjects NSURL): ");
  append(pathsFromItems(platform, pasteboard),
         "[tovrin] File path strategy #2 (pasteboardItems .fileURL): ");
  append(pathsFromFilenamesList(pasteboard),
         "[tovrin] File path strategy #3 (NSFilenamesPboardType): ");

  std::vector<std::string> unique = dedupePaths(collected);
  if (!unique.empty()) {
    platform.log("[tovrin] Combined file path extraction: " +
                 std::to_string(unique.size()) + " unique path(s)");
  }
  return unique;
}

}  // namespace tovrin
