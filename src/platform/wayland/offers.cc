#include "platform/wayland/offers.h"

#include <algorithm>
#include <initializer_list>

#include "platform/linux/formats.h"
#include "text/text.h"

namespace tovrin {
namespace {

constexpr char kMimeText[] = "TEXT";
constexpr char kMimeString[] = "STRING";

std::vector<std::string> listed(std::initializer_list<const char*> wanted,
                                const std::vector<std::string>& offered) {
  std::vector<std::string> found;
  for (const char* type : wanted) {
    if (std::find(offered.begin(), offered.end(), type) != offered.end()) {
      found.emplace_back(type);
    }
  }
  return found;
}

}  // namespace

std::vector<std::string> servedTextTypes() {
  return {kMimePlainUtf8, kMimeUtf8String, kMimePlain, kMimeText, kMimeString};
}

std::string servedTextFor(std::string_view mimeType, std::string_view text) {
  if (mimeType == kMimeString) return latin1IfRepresentable(text);
  return std::string(text);
}

std::vector<std::string> typesToRead(PasteboardType type,
                                     const std::vector<std::string>& offered) {
  switch (type) {
    case PasteboardType::kString:
      return listed({kMimePlainUtf8, kMimeUtf8String, kMimePlain}, offered);
    case PasteboardType::kHTML:
      return listed({kMimeHtml}, offered);
    case PasteboardType::kRTF:
      return listed({kMimeRtf, kMimeApplicationRtf}, offered);
  }
  return {};
}

std::string textFromOffer(std::string_view mimeType, std::string bytes) {
  if (mimeType == kMimeHtml) return decodeHtml(bytes);
  // GTK ends lines with CRLF under the text/plain types, as it does on X11.
  if (mimeType == kMimePlainUtf8 || mimeType == kMimePlain) {
    bytes = crlfToLf(bytes);
  }
  dropOneTrailingNul(bytes);
  return toValidUtf8(bytes);
}

std::vector<std::string> onlyIfOffered(const std::vector<std::string>& offered,
                                       const char* type) {
  if (std::find(offered.begin(), offered.end(), type) == offered.end()) {
    return {};
  }
  return {type};
}

}  // namespace tovrin
