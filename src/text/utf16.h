#ifndef TOVRIN_TEXT_UTF16_H_
#define TOVRIN_TEXT_UTF16_H_

// Between tovrin's UTF-8 text and the UTF-16 code units that NSString holds.
// Plain C++, so that the conversions are tested on every machine; the macOS
// backend moves the code units in and out of NSString.

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tovrin {

/// The UTF-8 text of `units`. A surrogate without its partner (which an
/// NSString may hold, e.g. when an application cuts a selection inside an
/// emoji) becomes U+FFFD, as invalid input does everywhere else in tovrin; a
/// U+0000 unit stays a NUL byte.
std::string utf8FromUtf16(std::span<const uint16_t> units);

/// The UTF-16 code units of `text`. Text from tovrin is valid UTF-8; should
/// it not be, it is repaired by toValidUtf8 first, so the text still
/// arrives, marked where it was damaged, instead of being lost.
std::vector<uint16_t> utf16FromUtf8(std::string_view text);

}  // namespace tovrin

#endif  // TOVRIN_TEXT_UTF16_H_
