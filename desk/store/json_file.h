// Reads a JSON file whose outermost value is an object, a piece at a time: the values of its keys,
// and of a list each element by itself. The whole document never exists in memory.
//
// This header compiles slowly: only the sources that read JSON files include it.
#pragma once

#include <cstddef>
#include <functional>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <string_view>

namespace desk {

// A larger file is refused, and so is a longer text, a longer number and deeper nesting: no report
// comes near, and a hostile file must not use up the memory.
inline constexpr std::size_t largest_json_file = std::size_t{1} << 30U;
inline constexpr std::size_t longest_json_text = std::size_t{1} << 26U;
inline constexpr std::size_t longest_json_number = 400;
inline constexpr std::size_t deepest_json = 32;

// A value that is not what it should be: where it is in the document ("bundles/3/verdict"), and
// what was expected.
class misfit : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
  [[nodiscard]] const std::string& place() const { return place_; }
  // Names one step more of the way to the value.
  void set_below(std::string_view step) {
    place_ = place_.empty() ? std::string(step) : std::string(step).append("/").append(place_);
  }

 private:
  std::string place_;
};

struct json_taker {
  // Whether a key of the document is wanted; of another one nothing is held. Each is asked once,
  // when the key is met.
  std::function<bool(const std::string& key)> wants;
  // Its value, unless that is a list.
  std::function<void(const std::string& key, const nlohmann::json& value)> value;
  // Its value is a list, also an empty one, of which the elements follow.
  std::function<void(const std::string& key)> list;
  std::function<void(const std::string& key, const nlohmann::json& value)> element;
  // The document was read to its end.
  std::function<void()> end;
};

// Reads the whole file. Throws `read_error` (desk/read/line_reader.h), in one line, if it cannot be
// read, is no JSON or no object, is cut off, has a key twice in one object, or is beyond the bounds
// above, and if the taker throws `misfit`. Any thread.
void read_json_file(const std::string& path, const json_taker& taker,
                    std::size_t largest = largest_json_file);

}  // namespace desk
