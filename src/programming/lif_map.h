// What a chip maps a global LIF to. No dump holds it: the chip is asked there and then.
#pragma once

#include <string_view>

#include "base/here.h"
#include "base/value.h"

namespace tessel {

// The end of a global LIF by which the chip knows it; a shorter one is used whole.
std::string_view glif_tail(std::string_view glif);

// The chip's answer about the global LIF that ends in `digits`, as text, or ERROR as execute_bcmd
// gives it. Throws `failure` for a node that is not known. Any thread.
value ask_lif_map(std::string_view nodename, std::string_view npu, std::string_view digits,
                  here where = here::current());

}  // namespace tessel
