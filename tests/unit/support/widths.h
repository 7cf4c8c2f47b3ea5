// Texts in which one piece after the other occurs not at all, once and twice. A reader must find
// what its pattern finds in each of them.
//
//   expect_widths({"a number", read, "LAG{+: }{+=:7}", "id $1"});
//
// reads "LAG 7", which must give "id 7", then "LAG7" and "LAG " (nothing), "LAG  7" ("id 7") and
// "LAG 77" ("id 77"). The pieces stand in braces, before the colon how often they may occur:
//
//   1  once                 0  once or twice; a text without it gives nothing, twice is not tried
//   +  once or more         2  at most once; twice gives nothing, none is not tried
//   *  any number           m  once or twice; none is not tried
//   ?  at most once
//
// "=" after that makes the piece the next one that "$1", "$2" and so on stand for in the result;
// "$h1" is the first of them, a decimal number, in hexadecimal.
#pragma once

#include <string>
#include <string_view>

namespace tessel {

struct width_row {
  const char* why;
  std::string (*read)(std::string_view text);
  std::string_view text;
  std::string_view expected;
  std::string_view nothing = "";
};

void expect_widths(const width_row& row);

}  // namespace tessel
