#include "checks/both_passes.h"

#include <fmt/format.h>

#include "base/logs.h"
#include "run/state.h"

namespace tessel {

record& bundle_record(std::string_view bundle, here where) {
  return st().tesselDb.in(bundle, where).as_record(where);
}

void wait_for_bundle_level(std::string_view bundle) {
  const auto& workers = st().bundle_workers;
  if (const auto found = workers.find(bundle); found != workers.end()) found->second->join();
}

void check_delete_pending(const record& element, const object_name& error_string) {
  if (!(element.get("delPending") == 1)) return;
  logger(fmt::format("INFO: Inconsistent object {} is marked for delay delete", error_string),
         "delete_pending");
  ++st().deletePending;
}

}  // namespace tessel
