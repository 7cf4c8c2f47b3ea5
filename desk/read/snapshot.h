// The dumps that the audit leaves in its debug log and in the log of stale entries:
//
//     'Start of BM PI entries...'
//     {
//        "BE1":{
//     ...
//     'End of BM PI entries...'
//
// They reach hundreds of megabytes, so they pass by as single values and are never held.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace desk {

// The keys from the outermost map to the value; an element of a list has the empty key. They last
// as long as the call.
using dump_path = std::span<const std::string_view>;

enum class dump_end : std::uint8_t {
  whole,
  unread,  // its end is there, but it cannot be read up to there
  cut_off
};

struct dump_taker {
  // A text, number or other plain value, as text. A number has its own digits.
  std::function<void(std::string_view label, dump_path path, std::string_view value)> value;
  // A map begins, also an empty one. Not called for the outermost one.
  std::function<void(std::string_view label, dump_path path)> map;
  std::function<void(std::string_view label)> begins;
  std::function<void(std::string_view label, dump_end how)> ended;
  // Any other line of the file, outside of the dumps.
  std::function<void(std::string_view line)> line;
  // Whether the values of this dump are wanted at all.
  std::function<bool(std::string_view label)> wants;
};

// What stands between the quotes of a line: a note of the audit itself. The line, if it has none.
[[nodiscard]] std::string_view without_quotes(std::string_view line);

// Reads all dumps of a file. Returns what is missing or not understood, a sentence each: first of
// the dumps that are not whole, in their order. Throws `read_error` if the file cannot be read.
[[nodiscard]] std::vector<std::string> read_dumps(const std::string& path, const dump_taker& taker);

}  // namespace desk
