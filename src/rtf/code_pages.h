#ifndef TOVRIN_RTF_CODE_PAGES_H_
#define TOVRIN_RTF_CODE_PAGES_H_

#include <iconv.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace tovrin::rtf {

/// The code page of a document that names none, and the stand-in for code
/// pages iconv cannot read.
constexpr int kDefaultCodePage = 1252;

/// Writes `cp` as UTF-8 into `out` (room for 4 bytes); returns the length.
inline size_t encodeUtf8(char32_t cp, char* out) {
  if (cp < 0x80) {
    out[0] = static_cast<char>(cp);
    return 1;
  }
  if (cp < 0x800) {
    out[0] = static_cast<char>(0xC0 | (cp >> 6));
    out[1] = static_cast<char>(0x80 | (cp & 0x3F));
    return 2;
  }
  if (cp < 0x10000) {
    out[0] = static_cast<char>(0xE0 | (cp >> 12));
    out[1] = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out[2] = static_cast<char>(0x80 | (cp & 0x3F));
    return 3;
  }
  out[0] = static_cast<char>(0xF0 | (cp >> 18));
  out[1] = static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
  out[2] = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
  out[3] = static_cast<char>(0x80 | (cp & 0x3F));
  return 4;
}

/// Maps an RTF \fcharset value to a Windows code page; 0 means "use the
/// document's code page".
int codePageForCharset(int charset);

/// glibc iconv name of a Windows code page, or nullptr when unsupported.
const char* iconvName(int code_page);

/// Code pages where a byte below 0x80 may be the second half of a character.
bool isMultiByte(int code_page);

/// Decodes code-page bytes to UTF-8 through iconv, keeping one descriptor
/// per code page for the lifetime of a single conversion.
class CodePageDecoder {
 public:
  CodePageDecoder() = default;
  CodePageDecoder(const CodePageDecoder&) = delete;
  CodePageDecoder& operator=(const CodePageDecoder&) = delete;
  ~CodePageDecoder();

  /// Appends the UTF-8 form of `bytes` to `out`; bytes that are invalid in
  /// `code_page` become U+FFFD. Unknown code pages are read as 1252.
  void decode(int code_page, std::string_view bytes, std::string& out);

 private:
  struct Entry {
    int code_page;
    iconv_t descriptor;
  };

  iconv_t descriptorFor(int code_page);

  std::vector<Entry> entries_;
};

}  // namespace tovrin::rtf

#endif  // TOVRIN_RTF_CODE_PAGES_H_
