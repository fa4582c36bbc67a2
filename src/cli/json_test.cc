#include "cli/json.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "cli/output.h"
#include "fake_desktop.h"

namespace tovrin {
namespace {

using nlohmann::json;

SuccessResponse success(std::optional<std::string> text, std::string method,
                        std::optional<std::string> html,
                        std::optional<std::vector<std::string>> filePaths) {
  return {std::move(text), std::move(method), std::move(html),
          std::move(filePaths)};
}

std::string encoded(const SuccessResponse& response) {
  return encodeResponse(response).value_or("<not encoded>");
}

TEST(ResponseEncodingTest, WritesTheDocumentedExamplesExactly) {
  EXPECT_EQ(encoded(success("Hello", "accessibility", std::nullopt,
                                    std::nullopt)),
            R"({"success":true,"text":"Hello","method":"accessibility"})");
  EXPECT_EQ(encoded(success(std::nullopt, "cgevent", std::nullopt,
                                    std::vector<std::string>{
                                        "/tmp/report.pdf"})),
            R"({"success":true,"method":"cgevent","file_paths":["\/tmp\/report.pdf"]})");
  EXPECT_EQ(encoded(success("Hi", "cgevent", std::nullopt,
                                    std::vector<std::string>{})),
            R"({"success":true,"text":"Hi","method":"cgevent","file_paths":[]})");
  EXPECT_EQ(encodeResponse(ErrorResponse{"No text selected or could not copy"}),
            R"({"success":false,"error":"No text selected or could not copy"})");
}

TEST(ResponseEncodingTest, PresentEmptyValuesAreWrittenAbsentOnesLeftOut) {
  const json all = json::parse(encoded(success(
      "", "cgevent", "", std::vector<std::string>{})));
  EXPECT_EQ(all, json({{"success", true},
                       {"text", ""},
                       {"method", "cgevent"},
                       {"html", ""},
                       {"file_paths", json::array()}}));

  const json bare = json::parse(
      encoded(success(std::nullopt, "cgevent", std::nullopt,
                              std::nullopt)));
  EXPECT_EQ(bare, json({{"success", true}, {"method", "cgevent"}}));
}

TEST(ResponseEncodingTest, EscapesWhatJsonRequiresAndTheSolidus) {
  const std::string text =
      "quote\" backslash\\ slash/ tab\t lf\n cr\r bs\b ff\f nul" +
      std::string(1, '\0') + " us\x1f del\x7f";
  const std::string line = encoded(
      success(text, "accessibility", "<a href=\"x/y\">", std::nullopt));
  EXPECT_EQ(line,
            "{\"success\":true,\"text\":\"quote\\\" backslash\\\\ slash\\/ "
            "tab\\t lf\\n cr\\r bs\\b ff\\f nul\\u0000 us\\u001f del\x7f\","
            "\"method\":\"accessibility\",\"html\":\"<a href=\\\"x\\/y\\\">\"}");
  EXPECT_EQ(line.find('\n'), std::string::npos);
  const json parsed = json::parse(line);
  EXPECT_EQ(parsed["text"], text);
  EXPECT_EQ(parsed["html"], "<a href=\"x/y\">");
}

TEST(ResponseEncodingTest, WritesNonAsciiAsRawUtf8) {
  const std::string text = "caf\xC3\xA9 \xE6\xBC\xA2\xE5\xAD\x97 \xF0\x9F\x91\x8D\xF0\x9F\x8F\xBD";
  const std::string line =
      encoded(success(text, "cgevent", std::nullopt, std::nullopt));
  EXPECT_NE(line.find(text), std::string::npos);
  EXPECT_EQ(line.find("\\u"), std::string::npos);
  EXPECT_EQ(json::parse(line)["text"], text);
}

TEST(ResponseEncodingTest, TextThatIsNotUtf8CannotBeEncoded) {
  EXPECT_FALSE(encodeResponse(success("\xff", "cgevent", std::nullopt,
                                              std::nullopt)));
  EXPECT_FALSE(encodeResponse(ErrorResponse{"Unknown command: \xC3"}));
}

TEST(OutputTest, WritesOneLineOrNothingAtAll) {
  testing::FakeDesktop desktop;
  outputSuccess(desktop, success("a\nb", "cgevent", std::nullopt,
                                 std::vector<std::string>{"/x", "/y"}));
  EXPECT_EQ(desktop.output,
            "{\"success\":true,\"text\":\"a\\nb\",\"method\":\"cgevent\","
            "\"file_paths\":[\"\\/x\",\"\\/y\"]}\n");
  EXPECT_EQ(json::parse(desktop.output)["file_paths"],
            json::array({"/x", "/y"}));

  testing::FakeDesktop failing;
  outputError(failing, ErrorResponse{"bad \xff byte"});
  EXPECT_EQ(failing.output, "");
  EXPECT_TRUE(failing.logLines.empty());
}

}  // namespace
}  // namespace tovrin
