// Where a tool runs: on the route processor of the audit, or on the node of an address.
#pragma once

#include <string_view>

namespace lab {

inline constexpr std::string_view local_place = "local";

}  // namespace lab
