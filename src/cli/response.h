#ifndef TOVRIN_CLI_RESPONSE_H_
#define TOVRIN_CLI_RESPONSE_H_

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tovrin {

class Platform;

/// The answer of a get-selection run that captured something.
struct SuccessResponse {
  SuccessResponse(std::optional<std::string> text, std::string method,
                  std::optional<std::string> html,
                  std::optional<std::vector<std::string>> file_paths)
      : text(std::move(text)),
        method(std::move(method)),
        html(std::move(html)),
        file_paths(std::move(file_paths)) {}

  const bool success = true;
  const std::optional<std::string> text;
  /// "accessibility" or "cgevent": the strategy that produced the answer.
  const std::string method;
  const std::optional<std::string> html;
  const std::optional<std::vector<std::string>> file_paths;
};

/// The answer of a run that failed: a missing or unknown command, or a
/// get-selection run that captured nothing.
struct ErrorResponse {
  explicit ErrorResponse(std::string error) : error(std::move(error)) {}

  const bool success = false;
  const std::string error;
};

/// The compact JSON object of a record; absent members are left out, never
/// written as null. Nothing when a text is not valid UTF-8.
std::optional<std::string> encodeResponse(const SuccessResponse& response);
std::optional<std::string> encodeResponse(const ErrorResponse& response);

/// Writes a SuccessResponse as one line of standard output. `filePaths` is
/// written as given: an empty list stays an empty array.
void outputSuccess(Platform& platform, std::optional<std::string> text,
                   std::string method, std::optional<std::string> html,
                   std::optional<std::vector<std::string>> filePaths);

/// Writes an ErrorResponse with `message` as one line of standard output.
void outputError(Platform& platform, std::string_view message);

/// Writes an encoded answer followed by one line feed; nothing at all when
/// it could not be encoded.
void writeAnswerLine(Platform& platform,
                     const std::optional<std::string>& encoded);

}  // namespace tovrin

#endif  // TOVRIN_CLI_RESPONSE_H_
