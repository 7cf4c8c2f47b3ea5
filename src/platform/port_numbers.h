// The port numbering of a chassis.
#pragma once

#include <string>

#include "base/value.h"

namespace tessel {

// The row of a port in its core's tables, as decimal text. That is `pp_port` itself, except on the
// chassis type that numbers ports across all cores of a chip: there it is `pp_port` less 256 for
// each lower core. Both parameters are texts, read with automatic base; `npu_core` is read on that
// chassis only. Throws `failure` if a text that is read is not a number or does not fit 96 bits.
// Any thread.
std::string port_on_core(const value& pp_port, const value& npu_core, here where = here::current());

}  // namespace tessel
