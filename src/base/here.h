// A place in the source, for tracebacks. As a default argument, `here where = here::current()` is
// the caller's place. std::source_location is not used because Clang 14 cannot provide it.
#pragma once

#include <experimental/source_location>

namespace tessel {

using here = std::experimental::source_location;

}  // namespace tessel
