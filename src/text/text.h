#ifndef TOVRIN_TEXT_TEXT_H_
#define TOVRIN_TEXT_TEXT_H_

#include <cstdint>
#include <string>
#include <string_view>

namespace tovrin {

/// `bytes` as valid UTF-8: every ill-formed part becomes U+FFFD, one for
/// each maximal ill-formed subpart, as the Unicode standard recommends. Text from outside (arguments, other programs)
/// goes through this before it reaches an answer, so every answer is valid
/// JSON.
std::string toValidUtf8(std::string_view bytes);

/// Whether `text` is well-formed UTF-8.
bool isValidUtf8(std::string_view text);

/// The number of user-perceived characters (extended grapheme clusters) of
/// `text`: what every " chars" count in a log line means. A letter with a
/// combining accent, or an emoji of several code points, counts as one.
size_t countCharacters(std::string_view text);

/// Appends the low `digits` hexadecimal digits of `value`, lowercase, most
/// significant first: the one hex writer of JSON escapes, log escapes and
/// CSS colours.
void appendHex(std::string& out, uint32_t value, int digits);

/// `text` from another program made safe for a log line: repaired to valid
/// UTF-8, with the quotation mark and the backslash escaped by a backslash,
/// and every control character (C0, DEL and C1, the line feed and the
/// escape that starts terminal sequences among them) written as \u00xx. The
/// result never starts a new line nor drives the terminal.
std::string escapeForLog(std::string_view text);

/// "true" or "false", the way booleans appear in log lines.
inline const char* boolText(bool value) { return value ? "true" : "false"; }

/// A duration in seconds as log lines write it: three decimals and an "s".
std::string formatSeconds(double seconds);

}  // namespace tovrin

#endif  // TOVRIN_TEXT_TEXT_H_
