#include "rtf/field_instruction.h"

#include <cstddef>
#include <utility>

#include "rtf/ascii.h"

namespace tovrin::rtf {

std::optional<std::string> hyperlinkTarget(std::string_view inst) {
  size_t pos = 0;
  const auto skipSpace = [&] {
    while (pos < inst.size() && (inst[pos] == ' ' || inst[pos] == '\t' ||
                                 inst[pos] == '\r' || inst[pos] == '\n')) {
      ++pos;
    }
  };
  // A quoted argument may contain spaces; Word doubles backslashes in it.
  const auto readArgument = [&] {
    std::string arg;
    if (pos < inst.size() && inst[pos] == '"') {
      ++pos;
      while (pos < inst.size() && inst[pos] != '"') {
        if (inst[pos] == '\\' && pos + 1 < inst.size() &&
            (inst[pos + 1] == '\\' || inst[pos + 1] == '"')) {
          ++pos;
        }
        arg.push_back(inst[pos++]);
      }
      if (pos < inst.size()) ++pos;
    } else {
      while (pos < inst.size() && inst[pos] != ' ' && inst[pos] != '\t' &&
             inst[pos] != '\r' && inst[pos] != '\n') {
        arg.push_back(inst[pos++]);
      }
    }
    return arg;
  };

  skipSpace();
  constexpr std::string_view kHyperlink = "HYPERLINK";
  if (inst.size() - pos < kHyperlink.size()) return std::nullopt;
  for (size_t i = 0; i < kHyperlink.size(); ++i) {
    const char c = inst[pos + i];
    if ((c & ~0x20) != kHyperlink[i]) return std::nullopt;
  }
  pos += kHyperlink.size();
  if (pos < inst.size() && inst[pos] != ' ' && inst[pos] != '"' &&
      inst[pos] != '\t') {
    return std::nullopt;
  }

  std::string url;
  std::string anchor;
  bool have_url = false;
  while (true) {
    skipSpace();
    if (pos >= inst.size()) break;
    if (inst[pos] == '\\' && pos + 1 < inst.size() &&
        isAsciiLetter(inst[pos + 1])) {
      const char which = inst[pos + 1];
      pos += 2;
      while (pos < inst.size() && isAsciiLetter(inst[pos])) ++pos;
      // \l names a bookmark; \o (tooltip) and \t (target frame) carry an
      // argument of their own that is not the address.
      if (which == 'l') {
        skipSpace();
        anchor = readArgument();
      } else if (which == 'o' || which == 't') {
        skipSpace();
        readArgument();
      }
      continue;
    }
    std::string arg = readArgument();
    if (!have_url) {
      url = std::move(arg);
      have_url = true;
    }
  }
  if (!anchor.empty()) url += "#" + anchor;
  if (url.empty()) return std::nullopt;
  return url;
}

}  // namespace tovrin::rtf
