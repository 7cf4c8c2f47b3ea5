// Judged runs made by hand, which the tests of all views share.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "desk/judge/judged_run.h"
#include "desk/show/merge.h"

namespace desk {

// Texts that break a format which does not escape them.
[[nodiscard]] const std::vector<std::string>& hostile_texts();

// Two nodes, three bundles, a note that is normal; everything was read.
[[nodiscard]] judged_run healthy_run();

// Of all kinds of findings: a global LIF that is wrong on one of four nodes, a member that a chip
// lacks, a stale entry, a delayed delete, a report of bundle health, a failure without a cause.
[[nodiscard]] judged_run run_with_faults();

// A note of too many bundles is the only cause.
[[nodiscard]] judged_run run_over_its_limit();

// One inconsistency, of which both values are the same RIF.
[[nodiscard]] judged_run run_with_two_notations();

// One node did not answer; nothing was found.
[[nodiscard]] judged_run run_not_judged();

// It stopped before its end, and is empty otherwise.
[[nodiscard]] judged_run run_that_stopped();

// Every text of the run is hostile; each hostile text occurs in each place.
[[nodiscard]] judged_run hostile_run();

// Every third bundle differs on one node, with one finding and the witnesses of all nodes.
[[nodiscard]] judged_run large_run(std::size_t bundles, std::size_t nodes);

// One router of each standing, sorted; the one that differs has an earlier report, and two of its
// findings are new.
[[nodiscard]] std::vector<merged_router> routers_of_a_network();

// Every text is hostile, also the names.
[[nodiscard]] std::vector<merged_router> hostile_routers();

// Every tenth has the faults of `run_with_faults`, and every 50th was not read.
[[nodiscard]] std::vector<merged_router> many_routers(std::size_t number);

}  // namespace desk
