#ifndef TOVRIN_CLIPBOARD_HTML_H_
#define TOVRIN_CLIPBOARD_HTML_H_

#include <optional>
#include <string>

namespace tovrin {

class Platform;

/// The HTML form of what is on the general pasteboard: the HTML that the
/// source application put there, else an HTML document converted from its
/// RTF, else nothing. Each of the two pasteboard reads is bounded to 2 s.
std::optional<std::string> getHtmlFromClipboard(Platform& platform);

}  // namespace tovrin

#endif  // TOVRIN_CLIPBOARD_HTML_H_
