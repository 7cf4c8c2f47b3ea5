#include "lab/base/words.h"

#include <algorithm>

namespace lab {

std::vector<std::string> words_of(std::string_view command_line) {
  std::vector<std::string> words;
  bool in_word = false;
  bool in_quotes = false;
  for (const char c : command_line) {
    if (c == '"') {
      in_quotes = !in_quotes;
      if (!in_word) words.emplace_back();
      in_word = true;
    } else if (c == ' ' && !in_quotes) {
      in_word = false;
    } else {
      if (!in_word) words.emplace_back();
      in_word = true;
      words.back() += c;
    }
  }
  return words;
}

bool names_option(const std::vector<std::string>& words, const std::string& option) {
  return std::any_of(words.begin(), words.end(), [&](const std::string& word) {
    return word == option || word.starts_with(option + "=");
  });
}

}  // namespace lab
