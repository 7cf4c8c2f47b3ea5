// How a chassis numbers the ports of a chip.
#pragma once

#include <string>

#include "base/value.h"

namespace tessel {

// The row of a port in its core's tables, as decimal text: `pp_port` as it is or, on the chassis
// type that numbers ports through all cores of a chip, less 256 for each core below. Both are
// texts, read with automatic base, `npu_core` on that chassis only. Throws `failure` if one that is
// read is no number or does not fit 96 bits. Any thread.
std::string port_on_core(const value& pp_port, const value& npu_core, here where = here::current());

}  // namespace tessel
