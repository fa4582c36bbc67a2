#ifndef TOVRIN_CLI_OUTPUT_H_
#define TOVRIN_CLI_OUTPUT_H_

// The one answer line of a run: a command's response as compact JSON.

#include <optional>
#include <string>

#include "response/response.h"

namespace tovrin {

class Platform;

/// The compact JSON object of a response. Members come in field order;
/// absent members are left out, never written as null. Nothing when a text
/// is not valid UTF-8.
std::optional<std::string> encodeResponse(const SuccessResponse& response);
std::optional<std::string> encodeResponse(const ErrorResponse& response);
std::optional<std::string> encodeResponse(const PermissionResponse& response);
std::optional<std::string> encodeResponse(const Response& response);

/// Writes `response` as one line of standard output; nothing at all when it
/// cannot be encoded. `file_paths` is written as given: an empty list stays
/// an empty array.
void outputSuccess(Platform& platform, const SuccessResponse& response);
void outputError(Platform& platform, const ErrorResponse& response);
/// Writes whichever response a command returned, the same way.
void outputResponse(Platform& platform, const Response& response);

}  // namespace tovrin

#endif  // TOVRIN_CLI_OUTPUT_H_
