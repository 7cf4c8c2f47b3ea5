#include "desk/show/terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>

#include "command_line/one_line.h"

namespace desk {

namespace {

constexpr std::size_t narrowest = 40;

bool continues(char c) {
  return (static_cast<unsigned char>(c) & 0xC0U) == 0x80;
}

std::size_t length_of_character(std::string_view text) {
  const auto lead = static_cast<unsigned char>(text.front());
  const std::size_t wanted = lead < 0x80    ? 1
                             : lead >= 0xF0 ? 4
                             : lead >= 0xE0 ? 3
                             : lead >= 0xC2 ? 2
                                            : 0;
  if (wanted == 0 || wanted > text.size() || lead > 0xF4) return 0;
  for (std::size_t i = 1; i < wanted; ++i)
    if (!continues(text[i])) return 0;
  return wanted;
}

std::string_view code_of(tone in) {
  switch (in) {
    case tone::good:
      return "\033[32m";
    case tone::bad:
      return "\033[31m";
    case tone::doubt:
      return "\033[33m";
    case tone::faint:
      return "\033[2m";
    case tone::strong:
      return "\033[1m";
    case tone::plain:
      break;
  }
  return "";
}

}  // namespace

terminal standard_output() {
  terminal on;
  if (::isatty(STDOUT_FILENO) == 0) return on;
  winsize size{};
  if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col >= narrowest)
    on.width = size.ws_col;
  const char* no_colour = std::getenv("NO_COLOR");
  on.has_colour = no_colour == nullptr || *no_colour == '\0';
  return on;
}

std::string toned(const terminal& on, tone in, std::string_view text) {
  if (!on.has_colour || in == tone::plain) return std::string(text);
  return std::string(code_of(in)).append(text).append("\033[0m");
}

std::string printable(std::string_view text) {
  std::string clean;
  while (!text.empty()) {
    const std::size_t length = length_of_character(text);
    // The control characters of the second block can steer a terminal, too.
    const bool is_control =
        length == 2 && text[0] == '\xC2' && static_cast<unsigned char>(text[1]) < 0xA0;
    clean.append(length == 0 || is_control ? "\xEF\xBF\xBD" : text.substr(0, length));
    text.remove_prefix(length == 0 ? 1 : length);
  }
  return command_line::one_line(clean);
}

std::string wrapped(std::string_view text, std::size_t width, std::size_t indent) {
  std::string lines;
  std::size_t column = indent;
  while (!text.empty()) {
    const std::size_t end = text.find(' ');
    const std::string_view word = text.substr(0, end);
    const std::size_t length = columns_of(word);
    if (column > indent && column + 1 + length > width) {
      lines.append("\n").append(indent, ' ');
      column = indent;
    } else if (column > indent) {
      lines += ' ';
      ++column;
    }
    lines.append(word);
    column += length;
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  }
  return lines;
}

std::size_t columns_of(std::string_view text) {
  std::size_t columns = 0;
  for (const char c : text)
    if (!continues(c)) ++columns;
  return columns;
}

std::string padded(std::string_view text, std::size_t columns) {
  std::string cell(text);
  const std::size_t has = columns_of(text);
  if (has < columns) cell.append(columns - has, ' ');
  return cell;
}

}  // namespace desk
