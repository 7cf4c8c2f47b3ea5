// How a text view may look: its width, and whether it may use colour.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace desk {

struct terminal {
  std::size_t width = 100;
  bool has_colour = false;
};

// What standard output is: a terminal's own width and, unless NO_COLOR is set, colour; otherwise
// the usual width without colour.
[[nodiscard]] terminal standard_output();

enum class tone { plain, good, bad, doubt, faint, strong };

// The text in a colour if the terminal has any. It must hold no control characters.
[[nodiscard]] std::string toned(const terminal& on, tone in, std::string_view text);

// A text of the router on one line: control characters as \x1b, broken UTF-8 as U+FFFD.
[[nodiscard]] std::string printable(std::string_view text);

// Wraps at blanks; each line but the first begins with this many blanks.
[[nodiscard]] std::string wrapped(std::string_view text, std::size_t width, std::size_t indent);

// The lines of a text as they are where they fit, otherwise the paragraph wrapped anew. Lines that
// begin with a blank stay: they are lists and code.
[[nodiscard]] std::string reflowed(std::string_view text, std::size_t width);

// Columns of a terminal that the text takes, counting characters and not bytes.
[[nodiscard]] std::size_t columns_of(std::string_view text);
[[nodiscard]] std::string padded(std::string_view text, std::size_t columns);

}  // namespace desk
