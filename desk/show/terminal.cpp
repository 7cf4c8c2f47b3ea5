#include "desk/show/terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

#include "command_line/one_line.h"
#include "desk/model/utf8.h"

namespace desk {

namespace {

constexpr std::size_t narrowest = 40;

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
    const utf8_character one = first_character(text);
    // The control characters of the second block can steer a terminal, too.
    const bool is_control = (one.code >= 0x80 && one.code < 0xA0) || turns_text(one.code);
    const std::size_t length = one.is_valid ? one.length : 1;
    clean.append(is_control || !one.is_valid ? replacement_character : text.substr(0, length));
    text.remove_prefix(length);
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

std::string reflowed(std::string_view text, std::size_t width) {
  std::string lines;
  std::string paragraph;
  bool is_wide = false;
  const auto end_paragraph = [&] {
    if (is_wide) {
      paragraph.pop_back();
      std::replace(paragraph.begin(), paragraph.end(), '\n', ' ');
      paragraph = wrapped(paragraph, width, 0) + "\n";
    }
    lines += paragraph;
    paragraph.clear();
    is_wide = false;
  };
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    const bool is_prose = !line.empty() && line.front() != ' ' && line.front() != '-';
    if (!is_prose) end_paragraph();
    paragraph.append(line).append("\n");
    is_wide = is_wide || (columns_of(line) > width && line.front() != ' ');
    if (!is_prose) end_paragraph();
  }
  end_paragraph();
  return lines;
}

std::size_t columns_of(std::string_view text) {
  std::size_t columns = 0;
  for (const char c : text)
    if (!continues_character(c)) ++columns;
  return columns;
}

std::string padded(std::string_view text, std::size_t columns) {
  std::string cell(text);
  const std::size_t has = columns_of(text);
  if (has < columns) cell.append(columns - has, ' ');
  return cell;
}

}  // namespace desk
