// The words and numbers that every phase shares.
#pragma once

#include <string_view>

namespace tessel {

// What a field holds that has no value yet.
inline constexpr std::string_view DEFAULT = "Not set";

// What a function returns when it did its job, and when it failed.
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
