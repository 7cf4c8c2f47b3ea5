// How a finding is told: count, number, log.
#pragma once

#include <fmt/format.h>

#include <mutex>

#include "base/constants.h"
#include "base/logs.h"
#include "run/state.h"

namespace tessel {

// Logs `form`, whose first braces take the number of this inconsistency, on the channel
// "inconsistent". Returns ERROR. Any thread.
template <class... Parts>
int inconsistency(fmt::format_string<std::int64_t, const Parts&...> form, const Parts&... parts) {
  const std::lock_guard one_step(st().finding_mutex);
  logger(fmt::format(form, ++st().inconsistent, parts...), "inconsistent");
  return ERROR;
}

}  // namespace tessel
