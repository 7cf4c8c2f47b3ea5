// What was asked of each layer, node and chip, and what came of it.
#pragma once

#include <string>

#include "desk/model/run.h"

namespace desk {

// Fills run::covered from what the dumps, the findings and, where there is one, the journal say.
// What nobody can know without a journal is "unknown". Call it when all of them are read.
void fill_coverage(run& of);

// The entry of a layer on a node or chip, or nothing.
[[nodiscard]] const coverage* coverage_of(const run& of, layer of_layer, std::string_view node,
                                          std::string_view npu);

// Whether something is missing there: not for a standby route processor or a slot that is not used.
[[nodiscard]] bool is_hole(const coverage& entry);

// The read-only command that shows the table of a source, as a person types it on the router.
[[nodiscard]] std::string command_for(const run& of, source from, std::string_view node,
                                      std::string_view npu);

// The same for a message about the platform: its list of nodes, a node's id, or what the route
// processor denied to the audit. Empty for any other.
[[nodiscard]] std::string command_for_platform(const run& of, const finding& message);

}  // namespace desk
