#ifndef TOVRIN_RESPONSE_RESPONSE_H_
#define TOVRIN_RESPONSE_RESPONSE_H_

// The answers that commands return. Commands build one of these and hand it
// back; the command line encodes it as the run's single JSON line.

#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace tovrin {

/// The answer of a get-selection run that captured something.
struct SuccessResponse {
  static constexpr bool success = true;
  std::optional<std::string> text = {};
  /// "accessibility" or "cgevent": the strategy that produced the answer.
  std::string method;
  std::optional<std::string> html = {};
  std::optional<std::vector<std::string>> file_paths = {};

  friend bool operator==(const SuccessResponse&,
                         const SuccessResponse&) = default;
};

/// The answer of a run that failed: a missing or unknown command, no
/// permission, or a get-selection run that captured nothing.
struct ErrorResponse {
  static constexpr bool success = false;
  std::string error;

  friend bool operator==(const ErrorResponse&, const ErrorResponse&) = default;
};

/// The answer of the permission commands. A missing permission is not a
/// failure: `success` is always true.
struct PermissionResponse {
  static constexpr bool success = true;
  bool granted = false;

  friend bool operator==(const PermissionResponse&,
                         const PermissionResponse&) = default;
};

using Response = std::variant<SuccessResponse, ErrorResponse, PermissionResponse>;

}  // namespace tovrin

#endif  // TOVRIN_RESPONSE_RESPONSE_H_
