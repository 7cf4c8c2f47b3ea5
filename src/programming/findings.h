// How a programming error is told: count, number, log.
#pragma once

#include <fmt/format.h>

#include <mutex>

#include "base/constants.h"
#include "base/logs.h"
#include "run/state.h"

namespace tessel {

// Logs `form`, whose first braces take the number of this error, on the channel
// "programming_error". Returns ERROR. Any thread.
template <class... Parts>
int report_programming_error(fmt::format_string<std::int64_t, const Parts&...> form,
                             const Parts&... parts) {
  const std::lock_guard one_step(st().finding_mutex);
  logger(fmt::format(form, ++st().programming_error, parts...), "programming_error");
  return ERROR;
}

}  // namespace tessel
