#include "rtf/code_pages.h"

#include <cerrno>
#include <cstdint>
#include <cstring>

namespace tovrin::rtf {
namespace {

iconv_t noDescriptor() {
  return reinterpret_cast<iconv_t>(static_cast<intptr_t>(-1));
}

}  // namespace

/// Maps an RTF \fcharset value to a Windows code page; 0 means "use the
/// document's code page".
int codePageForCharset(int charset) {
  // clang-format off
  switch (charset) {
    case 0: return 1252;    // ANSI
    case 2: return 1252;    // Symbol: glyph numbers, read as Latin text
    case 77: return 10000;  // Mac Roman
    case 78: return 10001;  // Mac Japanese
    case 79: return 10003;  // Mac Korean
    case 80: return 10008;  // Mac Simplified Chinese
    case 81: return 10002;  // Mac Traditional Chinese
    case 89: return 10007;  // Mac Cyrillic
    case 128: return 932;   // Shift_JIS
    case 129: return 949;   // Hangul
    case 130: return 1361;  // Johab
    case 134: return 936;   // GBK
    case 136: return 950;   // Big5
    case 161: return 1253;  // Greek
    case 162: return 1254;  // Turkish
    case 163: return 1258;  // Vietnamese
    case 177: return 1255;  // Hebrew
    case 178: return 1256;  // Arabic
    case 186: return 1257;  // Baltic
    case 204: return 1251;  // Cyrillic
    case 222: return 874;   // Thai
    case 238: return 1250;  // Eastern European
    case 254: return 437;   // PC 437
    case 255: return 437;   // OEM
    default: return 0;
  }
  // clang-format on
}

/// glibc iconv name of a Windows code page, or nullptr when unsupported.
const char* iconvName(int code_page) {
  // clang-format off
  switch (code_page) {
    case 437: return "IBM437";
    case 850: return "IBM850";
    case 874: return "CP874";
    case 932: return "CP932";
    case 936: return "CP936";
    case 949: return "CP949";
    case 950: return "CP950";
    case 1250: return "CP1250";
    case 1251: return "CP1251";
    case 1252: return "CP1252";
    case 1253: return "CP1253";
    case 1254: return "CP1254";
    case 1255: return "CP1255";
    case 1256: return "CP1256";
    case 1257: return "CP1257";
    case 1258: return "CP1258";
    case 1361: return "JOHAB";
    case 10000: return "MACINTOSH";
    case 10001: return "SHIFT_JIS";
    case 10002: return "BIG5";
    case 10003: return "EUC-KR";
    case 10007: return "MAC-CYRILLIC";
    case 10008: return "GB2312";
    case 20127: return "ASCII";
    case 20866: return "KOI8-R";
    case 28591: return "ISO-8859-1";
    case 28592: return "ISO-8859-2";
    case 28595: return "ISO-8859-5";
    case 28597: return "ISO-8859-7";
    case 28605: return "ISO-8859-15";
    case 65001: return "UTF-8";
    default: return nullptr;
  }
  // clang-format on
}

/// Code pages where a byte below 0x80 may be the second half of a character.
bool isMultiByte(int code_page) {
  switch (code_page) {
    case 932:
    case 936:
    case 949:
    case 950:
    case 1361:
    case 10001:
    case 10002:
    case 10003:
    case 10008:
      return true;
    default:
      return false;
  }
}

CodePageDecoder::~CodePageDecoder() {
  for (const Entry& e : entries_) {
    if (e.descriptor != noDescriptor()) iconv_close(e.descriptor);
  }
}

void CodePageDecoder::decode(int code_page, std::string_view bytes,
                             std::string& out) {
  // Unknown code pages share one descriptor, which keeps entries_ short
  // whatever numbers a document throws at us.
  if (iconvName(code_page) == nullptr) code_page = kDefaultCodePage;
  iconv_t cd = descriptorFor(code_page);
  if (cd == noDescriptor()) cd = descriptorFor(kDefaultCodePage);
  if (cd == noDescriptor()) {
    // Without iconv's tables (e.g. a static build) Latin-1 is the best
    // guess that still yields valid UTF-8.
    char buffer[4];
    for (const char b : bytes) {
      out.append(buffer, encodeUtf8(static_cast<unsigned char>(b), buffer));
    }
    return;
  }
  char* in = const_cast<char*>(bytes.data());
  size_t in_left = bytes.size();
  size_t used = out.size();
  out.resize(used + in_left * 3 + 8);
  while (in_left > 0) {
    char* dst = out.data() + used;
    size_t dst_left = out.size() - used;
    const size_t result = iconv(cd, &in, &in_left, &dst, &dst_left);
    used = out.size() - dst_left;
    if (result != static_cast<size_t>(-1)) break;
    if (errno == E2BIG) {
      out.resize(out.size() * 2);
      continue;
    }
    // An invalid or truncated sequence: give up on one byte and resync.
    if (out.size() - used < 8) out.resize(out.size() + in_left * 3 + 8);
    std::memcpy(out.data() + used, "\xEF\xBF\xBD", 3);
    used += 3;
    ++in;
    --in_left;
  }
  iconv(cd, nullptr, nullptr, nullptr, nullptr);
  out.resize(used);
}

iconv_t CodePageDecoder::descriptorFor(int code_page) {
  for (const Entry& e : entries_) {
    if (e.code_page == code_page) return e.descriptor;
  }
  const char* name = iconvName(code_page);
  const iconv_t cd = name ? iconv_open("UTF-8", name) : noDescriptor();
  entries_.push_back({code_page, cd});
  return cd;
}

}  // namespace tovrin::rtf
