#ifndef TOVRIN_RTF_RTF_TO_HTML_H_
#define TOVRIN_RTF_RTF_TO_HTML_H_

#include <optional>
#include <string>
#include <string_view>

namespace tovrin {

/// Converts an RTF document to a UTF-8 HTML document covering its whole
/// text, laid out the way the Cocoa HTML writer lays out clipboard HTML
/// (numbered `p.pN` / `span.sN` classes, `<b>`, `<i>`, `<a href>`).
///
/// Used on Linux when the clipboard offers a selection only as RTF.
///
/// Input rules:
///  - After optional leading ASCII whitespace (space, tab, CR, LF) the input
///    must start with "{\rtf"; otherwise, or when it is empty, the result is
///    std::nullopt.
///  - Conversion stops at the brace that closes the document group; anything
///    after it (stray braces, a trailing NUL) is ignored. Missing closing
///    braces at the end are tolerated.
///  - Groups nested deeper than an internal limit are still read for their
///    text, but formatting changes inside them last until the innermost
///    group within the limit closes.
///
/// Output rules:
///  - Only `<`, `>` and `&` are escaped in text; everything else is raw
///    UTF-8. A non-breaking space (`\~`) is written as a raw U+00A0.
///  - Bytes that are invalid in their code page become U+FFFD.
///
/// Runs in time linear in the input; the output size is bounded by a
/// constant multiple of the input size.
std::optional<std::string> convertRtfToHtml(std::string_view rtf);

}  // namespace tovrin

#endif  // TOVRIN_RTF_RTF_TO_HTML_H_
