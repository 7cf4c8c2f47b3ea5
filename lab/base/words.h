// The words of command lines.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace lab {

// Of one as it stands in a document, words and double-quoted words:
// `-c "show unit" -u all` -> {"-c", "show unit", "-u", "all"}.
// {"-c", "show unit", "-u", "all"}.
std::vector<std::string> words_of(std::string_view command_line);

// True if words for another program hold the option, as a word of its own or with "=" behind it.
bool names_option(const std::vector<std::string>& words, const std::string& option);

}  // namespace lab
