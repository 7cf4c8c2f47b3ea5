#include "lab/capture/answer_list.h"

#include <fmt/format.h>

#include <charconv>

#include "lab/base/error.h"

namespace lab {
namespace {

// Reads a number and the blank after it.
bool take_number(std::string_view& text, unsigned& number) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc{}) return false;
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  if (text.starts_with(' ')) text.remove_prefix(1);
  return true;
}

}  // namespace

std::string answer_list_text(const std::vector<listed_answer>& answers) {
  std::string text;
  for (const listed_answer& a : answers)
    text += fmt::format("{} {}{}\n", a.status, a.number, a.complains ? " complains" : "");
  return text;
}

std::vector<listed_answer> parse_answer_list(std::string_view text, const std::string& file) {
  constexpr unsigned highest_status = 255;
  std::vector<listed_answer> answers;
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    std::string_view line = text.substr(0, end);
    listed_answer a;
    unsigned status = 0;
    const bool has_numbers = take_number(line, status) && take_number(line, a.number);
    a.complains = line == "complains";
    if (!has_numbers || status > highest_status || a.number == 0 || (!a.complains && !line.empty()))
      throw lab_error(fmt::format("{}:{}: not a line \"STATUS NUMBER\"", file, answers.size() + 1));
    a.status = static_cast<int>(status);
    answers.push_back(a);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  }
  if (answers.empty()) throw lab_error(fmt::format("{}: lists no answer", file));
  return answers;
}

std::string numbered_file(std::string_view file, unsigned number) {
  return fmt::format("{};{}", file, number);
}

}  // namespace lab
