// The words of command lines.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace lab {

// Splits a command line at blanks; double quotes keep a word together: `-c "show unit" -u all` ->
// {"-c", "show unit", "-u", "all"}.
std::vector<std::string> words_of(std::string_view command_line);

// True if the words for another program contain the option, alone or followed by "=".
bool names_option(const std::vector<std::string>& words, const std::string& option);

}  // namespace lab
