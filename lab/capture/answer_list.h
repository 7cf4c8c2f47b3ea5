// A command line with one answer, status 0 and no error output is one file of a capture. Every
// other command line has a list beside its numbered answers:
//
//     local/lagmgr_health;answers      one line per call: status, number of the answer
//     local/lagmgr_health;1            what it printed
//     local/lagmgr_health;1;complaint  what it wrote to standard error, if anything
//     local/lagmgr_health;2
//
// The calls are answered in this order; the last answer serves all further calls.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace lab {

inline constexpr std::string_view list_suffix = ";answers";
inline constexpr std::string_view complaint_suffix = ";complaint";

struct listed_answer {
  int status = 0;
  unsigned number = 0;
  bool complains = false;
};

std::string answer_list_text(const std::vector<listed_answer>& answers);
// Throws `lab_error` that begins with the name `file`.
std::vector<listed_answer> parse_answer_list(std::string_view text, const std::string& file);

std::string numbered_file(std::string_view file, unsigned number);

}  // namespace lab
