// Writes a JSON object in lines: a line for each key, and a line for each element of an array. The
// whole document never exists in memory, and line tools can work with it. ASCII only, so that no
// terminal takes part of it for a command.
//
// This header compiles slowly: only the sources of views in JSON include it. One thread per object.
#pragma once

#include <nlohmann/json.hpp>
#include <ostream>
#include <string>
#include <string_view>

#include "desk/show/escape.h"

namespace desk {

using json = nlohmann::ordered_json;

// A name or a text of a run.
[[nodiscard]] inline json json_text(std::string_view raw) {
  return utf8(raw);
}
// The same, or null if it is empty, which means that there is none.
[[nodiscard]] inline json json_text_or_null(std::string_view raw) {
  return raw.empty() ? json() : json_text(raw);
}
[[nodiscard]] inline json json_texts(const auto& raw) {
  json texts = json::array();
  for (const auto& text : raw) texts.push_back(json_text(text));
  return texts;
}
[[nodiscard]] inline std::string dump(const json& value) {
  return value.dump(-1, ' ', true);
}

class json_lines {
 public:
  // Opens the object. A failure to write is left to the stream's state.
  explicit json_lines(std::ostream& out) : out_(out) { out_ << '{'; }

  void value(std::string_view key, const json& value) {
    start(key);
    out_ << dump(value);
  }

  // `elements` is called with a function that writes one element.
  void array(std::string_view key, const auto& elements) {
    start(key);
    out_ << '[';
    bool is_first = true;
    elements([&](const json& element) {
      out_ << (is_first ? "\n" : ",\n") << dump(element);
      is_first = false;
    });
    out_ << (is_first ? "]" : "\n]");
  }

  // Opens an object, or an array of one object, whose keys follow; `close` ends it.
  void open(std::string_view key, std::string_view brackets) {
    start(key);
    out_ << brackets;
    is_first_ = true;
  }
  void close(std::string_view brackets) {
    out_ << '\n' << brackets;
    is_first_ = false;
  }

 private:
  void start(std::string_view key) {
    out_ << (is_first_ ? "\n" : ",\n") << dump(json(key)) << ": ";
    is_first_ = false;
  }

  std::ostream& out_;
  bool is_first_ = true;
};

}  // namespace desk
