// How a run tells what it found and what it could not do. Any thread.
#pragma once

#include <fmt/format.h>

#include <mutex>
#include <string_view>

#include "base/constants.h"
#include "base/here.h"
#include "base/logs.h"
#include "run/state.h"

namespace tessel {

// A finding: counts, numbers and logs it in one step. The first braces of `form` take the number
// that `counted` gave it, the others take `parts`. Returns ERROR.
template <class... Parts>
int report_finding(counter& counted, std::string_view channel,
                   fmt::format_string<std::int64_t, const Parts&...> form, const Parts&... parts) {
  const std::lock_guard one_step(st().finding_mutex);
  logger(fmt::format(form, ++counted, parts...), channel);
  return ERROR;
}

// Two layers disagree.
template <class... Parts>
int inconsistency(fmt::format_string<std::int64_t, const Parts&...> form, const Parts&... parts) {
  return report_finding(st().inconsistent, "inconsistent", form, parts...);
}

// A chip does not hold what the layers imply.
template <class... Parts>
int report_programming_error(fmt::format_string<std::int64_t, const Parts&...> form,
                             const Parts&... parts) {
  return report_finding(st().programming_error, "programming_error", form, parts...);
}

// What a handler does with the failure that it absorbs: `message`, with the traceback behind it, on
// the channel "exception", and a count. Returns ERROR.
//
// Which of the two comes first is each handler's own: a thread that sees the count finds the line
// in the log, or the other way round.
int log_and_count(std::string_view message, here where = here::current());
int count_and_log(std::string_view message, here where = here::current());

}  // namespace tessel
