#ifndef TOVRIN_RTF_CONTROL_WORDS_H_
#define TOVRIN_RTF_CONTROL_WORDS_H_

#include <cstdint>
#include <string_view>

namespace tovrin::rtf {

/// What a control word does to the reader; several words may share one.
enum class Kw : uint8_t {
  kSkipDestination,
  kFontTable,
  kColorTable,
  kAnsi,
  kMac,
  kPc,
  kPca,
  kAnsiCodePage,
  kDefaultFont,
  kFont,
  kFontCharset,
  kFontCodePage,
  kRed,
  kGreen,
  kBlue,
  kField,
  kFieldInstruction,
  kFieldResult,
  kAttachment,
  kPar,
  kLine,
  kTab,
  kSoftBreak,  // \page, \sect, \row: end a paragraph that has content
  kCell,
  kPard,
  kAlign,
  kPlain,
  kBold,
  kItalic,
  kUnderline,
  kUnderlineNone,
  kStrike,
  kColor,
  kFontSize,
  kHidden,
  kUnicodeSkip,
  kUnicode,
  kChar,
};

/// One control word this reader acts on.
struct Keyword {
  std::string_view name;
  Kw kw;
  /// For kAlign an Align, for kChar the code point; otherwise 0.
  int value;
};

/// The control word spelt `name` (case-sensitive), or nullptr for one this
/// reader ignores.
const Keyword* findKeyword(std::string_view name);

}  // namespace tovrin::rtf

#endif  // TOVRIN_RTF_CONTROL_WORDS_H_
