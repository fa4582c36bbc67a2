// Measures the RTF to HTML converter on a ~1 MB document built in memory
// that mixes what clipboard RTF usually holds: font and colour tables, a
// skipped stylesheet, formatted runs, \'hh and \u escapes, links, tabs and
// line breaks. Prints the median throughput of several runs.

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "rtf/rtf_to_html.h"

namespace {

constexpr size_t kTargetBytes = 1 << 20;
constexpr int kRuns = 15;

std::string buildSample() {
  std::string rtf =
      "{\\rtf1\\ansi\\ansicpg1252\\deff0\\uc1"
      "{\\fonttbl{\\f0\\fswiss\\fcharset0 Helvetica;}"
      "{\\f1\\froman\\fcharset0 Times New Roman;}"
      "{\\f2\\froman\\fcharset204 Times New Roman Cyr;}"
      "{\\f3\\fmodern\\fcharset0 Courier New;}}\n"
      "{\\colortbl;\\red0\\green0\\blue0;\\red255\\green0\\blue0;"
      "\\red5\\green99\\blue193;}\n"
      "{\\stylesheet{\\ql\\f0\\fs24 \\snext0 Normal;}"
      "{\\s1\\qc\\b\\fs32 \\sbasedon0 \\snext0 heading 1;}}\n"
      "{\\*\\generator Bench;}\\viewkind4\\pard\\plain\\f0\\fs24 ";
  const char* const kParagraphs[] = {
      "\\pard\\qc{\\b\\fs32 Section %d: r\\'e9sum\\'e9 of the week}\\par\n",
      "\\pard\\ql The caf\\'e9 on the corner serves cr\\'e8me br\\'fbl\\'e9e, "
      "{\\b bold claims}, {\\i quiet asides} and {\\ul underlined offers}; "
      "\\cf2 prices\\cf0  rose %d%% since \\ldblquote last time\\rdblquote "
      "\\endash  nobody is na\\'efve about it.\\par\n",
      "{\\f1 \\u8220?Quoted\\u8221? text with an em dash\\u8212?and a link to "
      "{\\field{\\*\\fldinst{HYPERLINK \"https://example.com/item/%d\"}}"
      "{\\fldrslt{\\cf3\\ul the item page}}} in it.}\\tab Tabbed\\line "
      "next line after a break.\\par\n",
      "{\\f2 \\'cf\\'f0\\'e8\\'e2\\'e5\\'f2, \\'ec\\'e8\\'f0} mixed with "
      "Latin text and \\u-10179?\\u-8704? emoji number %d; "
      "{\\f3\\fs20 code(a < b && c > d);}\\par\n",
      "Plain running text keeps going for a while so that the paragraph has "
      "the length of ordinary prose, with punctuation, numbers like %d, and "
      "{\\b\\i nested {\\ul formatting}} here and there.\\par\n",
  };
  char buffer[1024];
  for (int i = 0; rtf.size() < kTargetBytes; ++i) {
    const char* format = kParagraphs[i % std::size(kParagraphs)];
    const int n = std::snprintf(buffer, sizeof buffer, format, i);
    rtf.append(buffer, static_cast<size_t>(n));
  }
  rtf.append("}");
  return rtf;
}

}  // namespace

int main() {
  const std::string rtf = buildSample();
  size_t output_bytes = 0;
  std::vector<double> seconds;
  for (int run = 0; run <= kRuns; ++run) {
    const auto start = std::chrono::steady_clock::now();
    const std::optional<std::string> html = tovrin::convertRtfToHtml(rtf);
    const auto stop = std::chrono::steady_clock::now();
    if (!html) {
      std::fprintf(stderr, "conversion failed\n");
      return 1;
    }
    output_bytes = html->size();
    // The first run warms caches and the allocator.
    if (run > 0) {
      seconds.push_back(std::chrono::duration<double>(stop - start).count());
    }
  }
  std::sort(seconds.begin(), seconds.end());
  const double median = seconds[seconds.size() / 2];
  std::printf("rtf_to_html: input %zu bytes, output %zu bytes, %d runs\n",
              rtf.size(), output_bytes, kRuns);
  std::printf("rtf_to_html: median %.2f ms, fastest %.2f ms\n", median * 1e3,
              seconds.front() * 1e3);
  std::printf("rtf_to_html: %.1f MB/s (median, 1 MB = 10^6 bytes)\n",
              static_cast<double>(rtf.size()) / median / 1e6);
  return 0;
}
