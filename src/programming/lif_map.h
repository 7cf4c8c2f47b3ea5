// The chip's mapping of a global LIF. No dump contains it, so the chip is asked during the check.
#pragma once

#include <string_view>

#include "base/here.h"
#include "base/text.h"
#include "base/value.h"

namespace tessel {

// The end of a global LIF, by which the chip knows it; a shorter one is used whole.
std::string_view glif_tail(std::string_view glif);

// The chip's answer for the global LIF that ends in `digits`, as text, or ERROR if execute_bcmd
// returns that. Throws `failure` for an unknown node. Any thread.
value ask_lif_map(std::string_view nodename, std::string_view npu, std::string_view digits,
                  here where = here::current());

// Defines a mapping as the chip prints it: the LIF, and two lines below it the VSI. The braces take
// the global LIF.
inline constexpr std::string_view lif_mapping_definition =
    "{} -> \\w+ In_LIF:(0x\\w+).*\n.*\n.*vsid:\\s(\\d+)";

// The mappings of a global LIF in the chip's answer: the LIF and VSI of each. Any thread.
matches lif_mappings_of(std::string_view lif_map, std::string_view glif);

}  // namespace tessel
