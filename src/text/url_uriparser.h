#ifndef TOVRIN_TEXT_URL_URIPARSER_H_
#define TOVRIN_TEXT_URL_URIPARSER_H_

#include <optional>
#include <string_view>

#include "platform/platform.h"

namespace tovrin {

/// Reads `text` as an absolute URI (RFC 3986) with uriparser, the way the
/// platform's `parseURL` reads URLs off the clipboard: nothing when the text
/// is not a valid absolute URI (spaces, a missing scheme, bad escapes). A
/// URL is a file URL when its scheme is `file` (in any case) and its host is
/// empty or `localhost`. The path is percent-decoded byte for byte (an
/// escaped NUL stays a NUL byte) and loses one trailing slash unless it is
/// "/" itself; a file URL without a path but with an authority has the path
/// "/".
std::optional<ParsedURL> parseURLWithUriparser(std::string_view text);

}  // namespace tovrin

#endif  // TOVRIN_TEXT_URL_URIPARSER_H_
