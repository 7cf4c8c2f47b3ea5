// A place in the source, for tracebacks: `here where = here::current()` as a default argument is
// the caller's place. Not the standard's own type, which Clang 14 cannot provide.
#pragma once

#include <experimental/source_location>

namespace tessel {

using here = std::experimental::source_location;

}  // namespace tessel
