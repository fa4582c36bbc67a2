#include "cli/response.h"

#include "cli/json.h"
#include "platform/platform.h"

namespace tovrin {

std::optional<std::string> encodeResponse(const SuccessResponse& response) {
  JsonObjectWriter writer;
  writer.addBool("success", response.success);
  if (response.text) writer.addString("text", *response.text);
  writer.addString("method", response.method);
  if (response.html) writer.addString("html", *response.html);
  if (response.file_paths) {
    writer.addStringArray("file_paths", *response.file_paths);
  }
  return std::move(writer).finish();
}

std::optional<std::string> encodeResponse(const ErrorResponse& response) {
  JsonObjectWriter writer;
  writer.addBool("success", response.success);
  writer.addString("error", response.error);
  return std::move(writer).finish();
}

void writeAnswerLine(Platform& platform,
                     const std::optional<std::string>& encoded) {
  if (!encoded) return;
  platform.writeOutput(*encoded + "\n");
}

void outputSuccess(Platform& platform, std::optional<std::string> text,
                   std::string method, std::optional<std::string> html,
                   std::optional<std::vector<std::string>> filePaths) {
  const SuccessResponse response(std::move(text), std::move(method),
                                 std::move(html), std::move(filePaths));
  writeAnswerLine(platform, encodeResponse(response));
}

void outputError(Platform& platform, std::string_view message) {
  const ErrorResponse response{std::string(message)};
  writeAnswerLine(platform, encodeResponse(response));
}

}  // namespace tovrin
