// Why an audit has stopped before it collected anything, from what it has left.
#pragma once

#include <ctime>
#include <string>

namespace tessel_host {

// A part of a sentence, in one line. `began` is the time when the audit began: files that were not
// changed since are those of earlier runs.
[[nodiscard]] std::string cause_of_early_stop(std::time_t began);

}  // namespace tessel_host
