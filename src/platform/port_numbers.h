// How a chassis numbers the ports of a chip.
#pragma once

#include "base/value.h"

namespace tessel {

// The row of a port in its core's tables: `pp_port` as it is or, on the chassis type that numbers
// ports through all cores of a chip, less 256 for each core below. Both are texts, read with
// automatic base. Throws `failure` if one is no number or the result does not fit 64 bits. Any
// thread.
std::int64_t port_on_core(const value& pp_port, const value& npu_core,
                          here where = here::current());

}  // namespace tessel
