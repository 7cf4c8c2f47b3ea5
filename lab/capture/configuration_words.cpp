#include "lab/capture/configuration_words.h"

namespace lab {
namespace {

// True if the word begins a quoted text that it does not end.
bool opens_quotes(std::string_view word) {
  const char quote = word.front();
  return (quote == '"' || quote == '\'') && (word.size() == 1 || word.back() != quote);
}

}  // namespace

std::vector<word_place> words_in(std::string_view line) {
  std::vector<word_place> words;
  std::size_t at = 0;
  while ((at = line.find_first_not_of(" \t\r", at)) != std::string_view::npos) {
    const std::size_t end = std::min(line.find_first_of(" \t\r", at), line.size());
    words.push_back({at, end - at});
    at = end;
  }
  return words;
}

std::size_t last_word_of_text(std::string_view line, const std::vector<word_place>& words,
                              std::size_t first) {
  const char quote = line[words[first].begin];
  if (!opens_quotes(line.substr(words[first].begin, words[first].size))) return first;
  for (std::size_t i = first + 1; i < words.size(); ++i)
    if (line[words[i].begin + words[i].size - 1] == quote) return i;
  return words.size() - 1;
}

std::vector<std::string_view> texts_in(std::string_view line) {
  const std::vector<word_place> words = words_in(line);
  std::vector<std::string_view> texts;
  for (std::size_t i = 0; i < words.size(); ++i) {
    const std::size_t begin = words[i].begin;
    i = last_word_of_text(line, words, i);
    texts.push_back(line.substr(begin, words[i].begin + words[i].size - begin));
  }
  return texts;
}

}  // namespace lab
