#ifndef TOVRIN_RTF_RTF_TEST_SUPPORT_H_
#define TOVRIN_RTF_RTF_TEST_SUPPORT_H_

// Helpers shared by the RTF converter's tests: they convert a document and
// cut out the part of the HTML a test is about.

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>

#include "rtf/rtf_to_html.h"

namespace tovrin::rtf {

inline constexpr std::string_view kBodyOpen = "<body>\n";
inline constexpr std::string_view kBodyClose = "</body>\n";
inline constexpr std::string_view kStyleOpen = "<style type=\"text/css\">\n";
inline constexpr std::string_view kStyleClose = "</style>\n";

inline constexpr std::string_view kTab =
    "<span class=\"Apple-tab-span\">\t</span>";
inline constexpr std::string_view kReplacement = "\uFFFD";

inline std::string between(const std::string& html, std::string_view open,
                           std::string_view close) {
  const size_t start = html.find(open);
  const size_t end = html.find(close, start);
  if (start == std::string::npos || end == std::string::npos) {
    ADD_FAILURE() << "missing " << open << " in:\n" << html;
    return {};
  }
  return html.substr(start + open.size(), end - start - open.size());
}

inline std::string convertOrFail(std::string_view rtf) {
  std::optional<std::string> html = convertRtfToHtml(rtf);
  if (!html) {
    ADD_FAILURE() << "no HTML for: " << rtf;
    return {};
  }
  return *html;
}

/// Converts a whole RTF document and returns what is inside <body>.
inline std::string bodyOf(std::string_view rtf) {
  return between(convertOrFail(rtf), kBodyOpen, kBodyClose);
}

/// Converts a whole RTF document and returns the rules of its <style>.
inline std::string styleOf(std::string_view rtf) {
  return between(convertOrFail(rtf), kStyleOpen, kStyleClose);
}

/// Wraps `content` in a minimal document with Helvetica as font 0.
inline std::string doc(std::string_view content) {
  return "{\\rtf1\\ansi\\ansicpg1252{\\fonttbl\\f0\\fswiss\\fcharset0 "
         "Helvetica;}\\f0 " +
         std::string(content) + "}";
}

/// Body of a one-paragraph document, without the surrounding <p> tag.
inline std::string inlineOf(std::string_view content) {
  const std::string body = bodyOf(doc(content));
  constexpr std::string_view kOpen = "<p class=\"p1\">";
  constexpr std::string_view kClose = "</p>\n";
  if (body.substr(0, kOpen.size()) != kOpen ||
      body.size() < kOpen.size() + kClose.size() ||
      body.substr(body.size() - kClose.size()) != kClose ||
      body.find("<p", 1) != std::string::npos) {
    ADD_FAILURE() << "not a single paragraph: " << body;
    return body;
  }
  return body.substr(kOpen.size(), body.size() - kOpen.size() - kClose.size());
}

}  // namespace tovrin::rtf

#endif  // TOVRIN_RTF_RTF_TEST_SUPPORT_H_
