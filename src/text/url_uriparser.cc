#include "text/url_uriparser.h"

#include <uriparser/Uri.h>

#include <string>

namespace tovrin {
namespace {

/// Frees what uriparser allocated for a parsed URI, on every path.
class ParsedUri {
 public:
  ParsedUri() = default;
  ParsedUri(const ParsedUri&) = delete;
  ParsedUri& operator=(const ParsedUri&) = delete;
  ~ParsedUri() { uriFreeUriMembersA(&uri_); }

  UriUriA* get() { return &uri_; }
  const UriUriA& operator*() const { return uri_; }

 private:
  UriUriA uri_ = {};
};

std::string_view rangeText(const UriTextRangeA& range) {
  if (range.first == nullptr || range.afterLast == nullptr) return {};
  return std::string_view(range.first,
                          static_cast<size_t>(range.afterLast - range.first));
}

bool equalsIgnoringAsciiCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    auto lower = [](char c) {
      return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
    };
    if (lower(a[i]) != lower(b[i])) return false;
  }
  return true;
}

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// uriparser's own unescaping works on NUL-terminated text and would cut the
// path at an escaped NUL; the parser has already checked every escape, so a
// plain byte-for-byte decoding is enough here.
std::string percentDecoded(std::string_view text) {
  std::string decoded;
  decoded.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%' && i + 2 < text.size()) {
      int high = hexValue(text[i + 1]);
      int low = hexValue(text[i + 2]);
      if (high >= 0 && low >= 0) {
        decoded.push_back(static_cast<char>(high * 16 + low));
        i += 2;
        continue;
      }
    }
    decoded.push_back(text[i]);
  }
  return decoded;
}

}  // namespace

std::optional<ParsedURL> parseURLWithUriparser(std::string_view text) {
  if (text.empty()) return std::nullopt;
  ParsedUri uri;
  const char* errorPos = nullptr;
  if (uriParseSingleUriExA(uri.get(), text.data(), text.data() + text.size(),
                           &errorPos) != URI_SUCCESS) {
    return std::nullopt;
  }
  std::string_view scheme = rangeText((*uri).scheme);
  if (scheme.empty()) return std::nullopt;  // a relative reference

  ParsedURL parsed;
  std::string_view host = rangeText((*uri).hostText);
  parsed.isFileURL =
      equalsIgnoringAsciiCase(scheme, "file") &&
      (host.empty() || equalsIgnoringAsciiCase(host, "localhost"));

  // uriparser keeps the leading slash of a path only as a flag, and none at
  // all when an authority precedes the path. A file URL with an authority
  // but no path ("file://localhost") names the root.
  const bool hasAuthority = (*uri).hostText.first != nullptr;
  const bool fromRoot =
      (*uri).absolutePath ||
      (hasAuthority && ((*uri).pathHead != nullptr || parsed.isFileURL));
  std::string rawPath;
  if (fromRoot) rawPath.push_back('/');
  bool firstSegment = true;
  for (const UriPathSegmentA* segment = (*uri).pathHead; segment != nullptr;
       segment = segment->next) {
    if (!firstSegment) rawPath.push_back('/');
    rawPath.append(rangeText(segment->text));
    firstSegment = false;
  }
  parsed.path = percentDecoded(rawPath);
  if (parsed.path.size() > 1 && parsed.path.back() == '/') {
    parsed.path.pop_back();
  }
  return parsed;
}

}  // namespace tovrin
