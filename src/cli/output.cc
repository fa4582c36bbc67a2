#include "cli/output.h"

#include "cli/json.h"
#include "platform/platform.h"

namespace tovrin {
namespace {

void writeAnswerLine(Platform& platform,
                     const std::optional<std::string>& encoded) {
  if (!encoded) return;
  platform.writeOutput(*encoded + "\n");
}

}  // namespace

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

std::optional<std::string> encodeResponse(const PermissionResponse& response) {
  JsonObjectWriter writer;
  writer.addBool("success", response.success);
  writer.addBool("granted", response.granted);
  return std::move(writer).finish();
}

std::optional<std::string> encodeResponse(const Response& response) {
  return std::visit([](const auto& r) { return encodeResponse(r); }, response);
}

void outputSuccess(Platform& platform, const SuccessResponse& response) {
  writeAnswerLine(platform, encodeResponse(response));
}

void outputError(Platform& platform, const ErrorResponse& response) {
  writeAnswerLine(platform, encodeResponse(response));
}

void outputResponse(Platform& platform, const Response& response) {
  writeAnswerLine(platform, encodeResponse(response));
}

}  // namespace tovrin
