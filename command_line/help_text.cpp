#include "command_line/help_text.h"

#include <sstream>

namespace command_line {
namespace {

constexpr std::size_t width = 80;
constexpr std::size_t names_width = 26;

}  // namespace

std::string wrapped(const std::string& text, std::size_t margin) {
  std::string lines;
  std::istringstream paragraphs(text);
  for (std::string paragraph; std::getline(paragraphs, paragraph);) {
    if (!lines.empty()) lines += '\n' + std::string(margin, ' ');
    std::size_t column = margin;
    std::istringstream words(paragraph);
    for (std::string word; words >> word;) {
      if (column > margin && column + 1 + word.size() > width) {
        lines += '\n' + std::string(margin, ' ');
        column = margin;
      }
      if (column > margin) lines += ' ';
      column += word.size() + (column > margin ? 1 : 0);
      lines += word;
    }
  }
  return lines;
}

// A name that is too long for its column gets a line of its own.
std::string entry(const std::string& name, const std::string& text) {
  std::string head = "  " + name;
  if (head.size() + 2 <= names_width)
    head.resize(names_width, ' ');
  else
    head += '\n' + std::string(names_width, ' ');
  return head + wrapped(text, names_width) + '\n';
}

std::string with_single_blank_lines(std::string text) {
  for (std::size_t at = 0; (at = text.find("\n\n\n", at)) != std::string::npos;) text.erase(at, 1);
  while (text.ends_with("\n\n")) text.pop_back();
  return text;
}

}  // namespace command_line
