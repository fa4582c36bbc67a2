#include "cli/json.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "cli/output.h"
#include "fake_desktop.h"

namespace tovrin {
namespace {

using nlohmann::json;

TEST(ResponseEncodingTest, WritesOneExactJsonObjectPerAnswer) {
  const std::string controls = "quote\" backslash\\ slash/ tab\t lf\n cr\r bs\b ff\f nul" +
                               std::string(1, '\0') + " us\x1f del\x7f";
  const std::string utf8 = "caf\xC3\xA9 \xE6\xBC\xA2\xE5\xAD\x97 \xF0\x9F\x91\x8D\xF0\x9F\x8F\xBD";
  const struct {
    Response response;
    std::optional<std::string> line;
  } rows[] = {
      {SuccessResponse{.text = "Hello", .method = "accessibility"},
       R"({"success":true,"text":"Hello","method":"accessibility"})"},
      {SuccessResponse{.method = "cgevent", .file_paths = std::vector<std::string>{"/tmp/r.pdf"}},
       R"({"success":true,"method":"cgevent","file_paths":["\/tmp\/r.pdf"]})"},
      // Present empty values are written, absent ones left out.
      {SuccessResponse{
           .text = "", .method = "m", .html = "", .file_paths = std::vector<std::string>{}},
       R"({"success":true,"text":"","method":"m","html":"","file_paths":[]})"},
      {ErrorResponse{"No text selected or could not copy"},
       R"({"success":false,"error":"No text selected or could not copy"})"},
      {PermissionResponse{.granted = true}, R"({"success":true,"granted":true})"},
      // What JSON requires is escaped, and the solidus; the rest of the text
      // is raw UTF-8.
      {SuccessResponse{.text = controls, .method = "accessibility", .html = "<a href=\"x/y\">"},
       "{\"success\":true,\"text\":\"quote\\\" backslash\\\\ slash\\/ tab\\t lf\\n cr\\r bs\\b "
       "ff\\f nul\\u0000 us\\u001f del\x7f\",\"method\":\"accessibility\","
       "\"html\":\"<a href=\\\"x\\/y\\\">\"}"},
      {SuccessResponse{.text = utf8, .method = "m"},
       "{\"success\":true,\"text\":\"" + utf8 + "\",\"method\":\"m\"}"},
      // Text that is not UTF-8 cannot be encoded.
      {SuccessResponse{.text = "\xff", .method = "cgevent"}, std::nullopt},
      {ErrorResponse{"Unknown command: \xC3"}, std::nullopt},
  };
  for (const auto& row : rows) {
    const std::optional<std::string> line = encodeResponse(row.response);
    EXPECT_EQ(line, row.line);
    if (line) { EXPECT_TRUE(json::accept(*line)) << *line; }
  }
  const json parsed = json::parse(*encodeResponse(rows[5].response));
  EXPECT_EQ(parsed["text"], controls);
  EXPECT_EQ(parsed["html"], "<a href=\"x/y\">");
  EXPECT_EQ(json::parse(*encodeResponse(rows[6].response))["text"], utf8);
}

TEST(OutputTest, WritesOneLineOrNothingAtAll) {
  testing::FakeDesktop desktop;
  outputSuccess(desktop, {.text = "a\nb", .method = "cgevent",
                          .file_paths = std::vector<std::string>{"/x", "/y"}});
  EXPECT_EQ(desktop.output,
            "{\"success\":true,\"text\":\"a\\nb\",\"method\":\"cgevent\","
            "\"file_paths\":[\"\\/x\",\"\\/y\"]}\n");
  EXPECT_EQ(json::parse(desktop.output)["file_paths"], json::array({"/x", "/y"}));
  testing::FakeDesktop failing;
  outputError(failing, ErrorResponse{"bad \xff byte"});
  EXPECT_EQ(failing.output, "");
  EXPECT_TRUE(failing.logLines.empty());
}

}  // namespace
}  // namespace tovrin
