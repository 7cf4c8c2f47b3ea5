// Words and numbers that all phases share.
#pragma once

#include <string_view>

namespace tessel {

// The content of a field that has no value yet.
inline constexpr std::string_view DEFAULT = "Not set";

// The return values of a function that did its job, and of one that failed.
inline constexpr int SUCCESS = 1;
inline constexpr int ERROR = 0;

enum router_type : int {
  notset = 0,
  invalid = 1,
  aspen = 2,
  birch = 3,
  cedar = 4,
  cedarl = 5,
  dogwood = 6,
  elm = 7,
  fir = 8,
  gorse = 9,
};

}  // namespace tessel
