#ifndef TOVRIN_PLATFORM_LINUX_LINUX_PLATFORM_H_
#define TOVRIN_PLATFORM_LINUX_LINUX_PLATFORM_H_

// What every Linux backend does alike: the conversions, which need no
// display (tovrin's own RTF reader, uriparser for URLs).

#include "platform/system.h"
#include "rtf/rtf_to_html.h"
#include "text/url_uriparser.h"

namespace tovrin {

class LinuxPlatform : public SystemPlatform {
 public:
  std::optional<std::string> convertRtfToHtml(std::string_view rtf) override {
    return tovrin::convertRtfToHtml(rtf);
  }
  std::optional<ParsedURL> parseURL(std::string_view text) override {
    return parseURLWithUriparser(text);
  }
};

}  // namespace tovrin

#endif  // TOVRIN_PLATFORM_LINUX_LINUX_PLATFORM_H_
