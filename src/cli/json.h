#ifndef TOVRIN_CLI_JSON_H_
#define TOVRIN_CLI_JSON_H_

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tovrin {

/// Builds one compact JSON object, members in the order they are added.
///
/// Strings are written the way Foundation's JSON encoder writes them: the
/// short escapes \" \\ \/ \b \f \n \r \t, every other character below U+0020
/// as \u00xx in lowercase hex, and everything else (U+007F and all non-ASCII
/// included) as raw UTF-8. Text that is not valid UTF-8 cannot be encoded.
class JsonObjectWriter {
 public:
  JsonObjectWriter();

  JsonObjectWriter& addBool(std::string_view key, bool value);
  JsonObjectWriter& addString(std::string_view key, std::string_view value);
  JsonObjectWriter& addStringArray(std::string_view key,
                                   const std::vector<std::string>& values);

  /// The finished object, or nothing when a key or value was not valid UTF-8.
  std::optional<std::string> finish() &&;

 private:
  void addKey(std::string_view key);
  void addStringValue(std::string_view value);

  std::string text_;
  bool first_ = true;
  bool valid_ = true;
};

/// Appends `value` to `out` as a JSON string literal; false (and `out`
/// unspecified) when `value` is not valid UTF-8.
bool appendJsonString(std::string& out, std::string_view value);

}  // namespace tovrin

#endif  // TOVRIN_CLI_JSON_H_
