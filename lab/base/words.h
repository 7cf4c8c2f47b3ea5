// A command line as it stands in a document.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace lab {

// Words and double-quoted words: `-c "show unit" -u all` -> {"-c", "show unit", "-u", "all"}.
std::vector<std::string> words_of(std::string_view command_line);

}  // namespace lab
