// The place where a tool runs: the audit's route processor, or the node that an address names.
#pragma once

#include <string_view>

namespace lab {

inline constexpr std::string_view local_place = "local";

}  // namespace lab
