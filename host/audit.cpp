#include "audit.h"

#include <unistd.h>

namespace tessel_host {

std::int32_t run_audit(const audit_plan& plan) {
  plan.library.init();
  if (plan.journal >= 0) ::close(plan.journal);
  const std::int32_t result = plan.library.run(static_cast<std::int32_t>(plan.node_id));
  plan.library.finalize();
  return result;
}

}  // namespace tessel_host
