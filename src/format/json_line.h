// One JSON object on one line, built field by field: the result lines a CI job reads. Texts are
// escaped; bytes that are not UTF-8 are taken as Latin-1, so every line stays valid JSON.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace portwren {

class JsonLine {
 public:
  JsonLine() : text_("{") {}

  JsonLine& Text(std::string_view key, std::string_view value);
  JsonLine& Int(std::string_view key, int64_t value);
  JsonLine& Uint(std::string_view key, uint64_t value);
  // Three decimals; a value that is no number (NaN, infinity) is null.
  JsonLine& Real(std::string_view key, double value);
  JsonLine& Bool(std::string_view key, bool value);
  JsonLine& Null(std::string_view key);
  JsonLine& BeginObject(std::string_view key);
  JsonLine& EndObject();
  JsonLine& BeginArray(std::string_view key);
  JsonLine& EndArray();
  // Array elements.
  JsonLine& Item(uint64_t value);
  JsonLine& BeginItemObject();

  // The finished object, without a line end.
  std::string Finish() const;

 private:
  void Key(std::string_view key);
  void Separate();

  std::string text_;
  bool first_ = true;  // nothing yet in the innermost object or array
};

// The text as a JSON string, quotes included.
std::string JsonQuoted(std::string_view text);

}  // namespace portwren
