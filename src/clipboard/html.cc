#include "clipboard/html.h"

#include <memory>
#include <string>
#include <vector>

#include "clipboard/bounded_read.h"
#include "platform/platform.h"
#include "text/text.h"

namespace tovrin {
namespace {

constexpr int64_t kReadTimeoutMs = 2000;

/// ["a", "b"]: the types line's rendering of a list. Type names come from
/// other programs: escaped, they keep the log line one line.
std::string renderTypes(const std::vector<std::string>& types) {
  std::string text = "[";
  for (size_t i = 0; i < types.size(); ++i) {
    if (i > 0) text += ", ";
    text += '"' + escapeForLog(types[i]) + '"';
  }
  return text + "]";
}

}  // namespace

std::optional<std::string> getHtmlFromClipboard(Platform& platform) {
  const std::shared_ptr<Pasteboard> pasteboard = platform.generalPasteboard();

  if (const auto types = pasteboard->types()) {
    platform.log("[tovrin] Available clipboard types: " + renderTypes(*types));
  }

  platform.log("[tovrin] Checking for direct HTML on clipboard...");
  const auto html = readClipboardWithTimeout<std::string>(
      platform,
      [pasteboard] { return pasteboard->stringForType(PasteboardType::kHTML); },
      kReadTimeoutMs);
  if (html) {
    platform.log("[tovrin] Found HTML content: " +
                 std::to_string(countCharacters(*html)) + " chars");
    return html;
  }

  platform.log("[tovrin] Checking for RTF on clipboard...");
  const auto rtf = readClipboardWithTimeout<std::string>(
      platform,
      [pasteboard] { return pasteboard->dataForType(PasteboardType::kRTF); },
      kReadTimeoutMs);
  if (rtf) {
    platform.log("[tovrin] Found RTF data: " + std::to_string(rtf->size()) +
                 " bytes, converting to HTML...");
    auto converted = platform.convertRtfToHtml(*rtf);
    if (converted && isValidUtf8(*converted)) {
      platform.log("[tovrin] Converted RTF to HTML: " +
                   std::to_string(countCharacters(*converted)) + " chars");
      return converted;
    }
  }

  platform.log("[tovrin] No HTML or RTF content found on clipboard");
  return std::nullopt;
}

}  // namespace tovrin
