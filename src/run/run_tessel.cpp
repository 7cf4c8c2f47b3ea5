#include "run/run_tessel.h"

#include <ctime>

#include "base/failure.h"
#include "base/logs.h"
#include "base/memory_limit.h"
#include "base/print.h"
#include "collect/dump_data.h"
#include "consistency/consistency_pass.h"
#include "hygiene/bundle_health.h"
#include "hygiene/stale_entries.h"
#include "parse/parse_data.h"
#include "platform/node_inventory.h"
#include "platform/router_type.h"
#include "programming/programming_pass.h"
#include "report/results.h"
#include "run/exit.h"
#include "run/state.h"

namespace tessel {

namespace {

// Prints "Done" or "Not Done" after a phase's title and returns `result`.
bool done(bool result) {
  print(result ? "Done" : "Not Done");
  return result;
}

}  // namespace

int run_tessel_with(const value& my_node_id) {
  run_state& run = st();
  if (!my_node_id.is_integer()) throw failure("an integer is required");
  run.my_node_id = my_node_id;
  run.start_time = std::time(nullptr);
  run.texts.set_limit(read_memory_limit());

  if (!log_init()) return ERROR;
  run.router = get_router_type();
  nodeinfo_init();
  if (!check_asic_support()) return ERROR;
  if (run.router == invalid) {
    print("ERROR: Not able to get router type");
    return ERROR;
  }
  run.nodeinfo.set(get_list_of_vms());
  if (!run.nodeinfo.get().truthy()) exit_handler();

  if (!done(dump_data() != ERROR)) exit_handler();
  // Any failure counted so far ends the run here, even if parsing itself succeeded.
  if (!done(parse_data() != ERROR && run.exception == 0)) exit_handler();
  if (!done(check_bundle_consistency() != ERROR)) {
    print_results();
    exit_handler();
  }
  done(check_bundle_programming() != ERROR);
  done(check_stale_entries() != ERROR);
  done(check_bundle_health() != ERROR);
  print_results();
  exit_handler();
}

}  // namespace tessel
