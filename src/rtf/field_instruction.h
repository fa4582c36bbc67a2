#ifndef TOVRIN_RTF_FIELD_INSTRUCTION_H_
#define TOVRIN_RTF_FIELD_INSTRUCTION_H_

#include <optional>
#include <string>
#include <string_view>

namespace tovrin::rtf {

/// Extracts the target of a HYPERLINK field instruction, e.g.
/// `HYPERLINK "https://x/" \o "tip"` or `HYPERLINK \l "anchor"`; a bookmark
/// is appended to the address after '#'. Returns std::nullopt for any other
/// field and for a link without a target. The result is not escaped.
std::optional<std::string> hyperlinkTarget(std::string_view inst);

}  // namespace tovrin::rtf

#endif  // TOVRIN_RTF_FIELD_INSTRUCTION_H_
