#ifndef TOVRIN_RTF_ASCII_H_
#define TOVRIN_RTF_ASCII_H_

namespace tovrin::rtf {

// Locale-free on purpose: <cctype> would let the user's locale decide what
// counts as a letter in a control word or a CSS identifier.

inline bool isAsciiLetter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

inline bool isDigit(char c) { return c >= '0' && c <= '9'; }

}  // namespace tovrin::rtf

#endif  // TOVRIN_RTF_ASCII_H_
