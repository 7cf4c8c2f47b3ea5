// Reporting of findings and of failures. Any thread.
#pragma once

#include <fmt/format.h>

#include <string_view>

#include "base/constants.h"
#include "base/here.h"
#include "base/logs.h"
#include "base/memory_reserve.h"
#include "base/worker.h"
#include "run/state.h"

namespace tessel {

// Reports a finding: counts it, numbers it and logs it in one step. The first braces of `form` take
// the number that `counted` gave, the others take `parts`. Returns ERROR.
template <class... Parts>
int report_finding(counter& counted, std::string_view channel,
                   fmt::format_string<std::int64_t, const Parts&...> form, const Parts&... parts) {
  const patient_lock one_step(st().finding_mutex);
  const words_first the_number_needs_its_line;
  logger(fmt::format(form, ++counted, parts...), channel);
  return ERROR;
}

// Reports that two layers disagree.
template <class... Parts>
int inconsistency(fmt::format_string<std::int64_t, const Parts&...> form, const Parts&... parts) {
  return report_finding(st().inconsistent, "inconsistent", form, parts...);
}

// Reports that a chip does not hold what the layers imply.
template <class... Parts>
int report_programming_error(fmt::format_string<std::int64_t, const Parts&...> form,
                             const Parts&... parts) {
  return report_finding(st().programming_error, "programming_error", form, parts...);
}

// For a handler that absorbs a failure: writes `message` and the traceback to the channel
// "exception", and counts the failure. Returns ERROR.
//
// The two differ in the order of logging and counting, and each handler needs its own: after
// `log_and_count`, a thread that sees the count finds the line in the log; after `count_and_log`, a
// thread that finds the line sees the count.
int log_and_count(std::string_view message, here where = here::current());
int count_and_log(std::string_view message, here where = here::current());

}  // namespace tessel
