// One audit in the calling process.
#pragma once

#include "library.h"

#include <cstdint>

namespace tessel_host {

struct audit_plan {
  entry_points library;
  std::uint32_t node_id = 0;
  // For the library, which uses a duplicate; -1 if the environment alone decides.
  int journal = -1;
};

// Calls the entry points in order. A complete audit ends the process with status 0; else returns
// what tessel_run returned. The journal must have been offered.
[[nodiscard]] std::int32_t run_audit(const audit_plan& plan);

}  // namespace tessel_host
