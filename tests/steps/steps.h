// The steps that a call takes, which are the same in every run: one for each stretch of code
// between two branches, each byte that a function of the C library looks at or copies, and each
// item of a pattern that is tried. Counts what tests/steps/CMakeLists.txt compiles for it. For one
// thread.
#pragma once

#include <cstdint>
#include <functional>

namespace tessel {

std::uint64_t steps_of(const std::function<void()>& call);

}  // namespace tessel
