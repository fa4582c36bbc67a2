#include "cli/json.h"

#include "text/text.h"

namespace tovrin {

bool appendJsonString(std::string& out, std::string_view value) {
  if (!isValidUtf8(value)) return false;
  out.push_back('"');
  for (const char c : value) {
    switch (c) {
      case '"': out.append("\\\""); break;
      case '\\': out.append("\\\\"); break;
      case '/': out.append("\\/"); break;
      case '\b': out.append("\\b"); break;
      case '\f': out.append("\\f"); break;
      case '\n': out.append("\\n"); break;
      case '\r': out.append("\\r"); break;
      case '\t': out.append("\\t"); break;
      default: {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20) {
          out.append("\\u");
          appendHex(out, byte, 4);
        } else {
          out.push_back(c);
        }
      }
    }
  }
  out.push_back('"');
  return true;
}

JsonObjectWriter::JsonObjectWriter() : text_("{") {}

JsonObjectWriter& JsonObjectWriter::addBool(std::string_view key, bool value) {
  addKey(key);
  text_.append(value ? "true" : "false");
  return *this;
}

JsonObjectWriter& JsonObjectWriter::addString(std::string_view key,
                                              std::string_view value) {
  addKey(key);
  addStringValue(value);
  return *this;
}

JsonObjectWriter& JsonObjectWriter::addStringArray(
    std::string_view key, const std::vector<std::string>& values) {
  addKey(key);
  text_.push_back('[');
  for (size_t i = 0; i < values.size(); ++i) {
    if (i > 0) text_.push_back(',');
    addStringValue(values[i]);
  }
  text_.push_back(']');
  return *this;
}

std::optional<std::string> JsonObjectWriter::finish() && {
  if (!valid_) return std::nullopt;
  text_.push_back('}');
  return std::move(text_);
}

void JsonObjectWriter::addKey(std::string_view key) {
  if (!first_) text_.push_back(',');
  first_ = false;
  addStringValue(key);
  text_.push_back(':');
}

void JsonObjectWriter::addStringValue(std::string_view value) {
  if (!appendJsonString(text_, value)) valid_ = false;
}

}  // namespace tovrin
