// libFuzzer target for the RTF to HTML converter. Besides crashes and
// sanitizer reports it checks properties every conversion must keep: valid
// UTF-8, properly nested inline markup and output proportional to input.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "rtf/rtf_to_html.h"

namespace {

/// Output may grow by at most this factor over the input (plus the fixed
/// document frame); markup per input byte is bounded.
constexpr size_t kMaxGrowth = 64;
constexpr size_t kFrameBytes = 4096;

[[noreturn]] void fail(const char* what) {
  std::fprintf(stderr, "rtf_to_html invariant broken: %s\n", what);
  std::abort();
}

bool isValidUtf8(std::string_view s) {
  size_t i = 0;
  while (i < s.size()) {
    const auto c = static_cast<unsigned char>(s[i]);
    size_t len = 0;
    uint32_t cp = 0;
    if (c < 0x80) {
      ++i;
      continue;
    } else if ((c & 0xE0) == 0xC0) {
      len = 2;
      cp = c & 0x1F;
    } else if ((c & 0xF0) == 0xE0) {
      len = 3;
      cp = c & 0x0F;
    } else if ((c & 0xF8) == 0xF0) {
      len = 4;
      cp = c & 0x07;
    } else {
      return false;
    }
    if (i + len > s.size()) return false;
    for (size_t k = 1; k < len; ++k) {
      const auto t = static_cast<unsigned char>(s[i + k]);
      if ((t & 0xC0) != 0x80) return false;
      cp = (cp << 6) | (t & 0x3F);
    }
    static constexpr uint32_t kMin[] = {0, 0, 0x80, 0x800, 0x10000};
    if (cp < kMin[len] || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) {
      return false;
    }
    i += len;
  }
  return true;
}

/// Checks that p, a, b, i and span tags in the body nest properly and that
/// text holds no raw '<' (every '<' must start a tag).
bool hasWellFormedBody(std::string_view html) {
  constexpr std::string_view kOpen = "<body>\n";
  constexpr std::string_view kClose = "</body>\n</html>\n";
  const size_t start = html.find(kOpen);
  if (start == std::string_view::npos || html.size() < kClose.size() ||
      html.substr(html.size() - kClose.size()) != kClose) {
    return false;
  }
  std::string_view body = html.substr(
      start + kOpen.size(), html.size() - kClose.size() - start - kOpen.size());
  std::vector<std::string_view> open;
  size_t pos = 0;
  while ((pos = body.find('<', pos)) != std::string_view::npos) {
    const size_t end = body.find('>', pos);
    if (end == std::string_view::npos) return false;
    std::string_view tag = body.substr(pos + 1, end - pos - 1);
    pos = end + 1;
    if (tag == "br") continue;
    const bool closing = !tag.empty() && tag[0] == '/';
    if (closing) tag.remove_prefix(1);
    const std::string_view name = tag.substr(0, tag.find(' '));
    if (name != "p" && name != "a" && name != "b" && name != "i" &&
        name != "span") {
      return false;
    }
    if (closing) {
      if (open.empty() || open.back() != name) return false;
      open.pop_back();
    } else {
      // Paragraphs sit at the top level; apart from spans (tab spans sit
      // inside styled ones) no element nests inside itself.
      if ((name == "p") != open.empty()) return false;
      for (const std::string_view outer : open) {
        if (outer == name && name != "span") return false;
      }
      open.push_back(name);
    }
  }
  return open.empty();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  const std::optional<std::string> html = tovrin::convertRtfToHtml(input);
  if (!html) return 0;
  if (html->size() > kMaxGrowth * size + kFrameBytes) fail("output too large");
  if (!isValidUtf8(*html)) fail("invalid UTF-8");
  if (!hasWellFormedBody(*html)) fail("badly nested markup");
  return 0;
}
