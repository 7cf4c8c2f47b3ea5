// The run that is measured: loads the library and calls it as a host does.
#pragma once

#include <cstdint>
#include <string>

namespace bench {

struct host_request {
  std::string library = "libtessel.so";
  std::int32_t node_id = 4096;
};

// Runs the audit, whose end ends the process. At that end writes what it cost to `measures_file` in
// /var/log. Returns an exit status if the audit did not run to its end. `started` is the moment at
// which the process was started, by the clock of `now`.
int run_measured(const host_request& request, double started);

}  // namespace bench
