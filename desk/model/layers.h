// Fills a run from the dumps in the audit's debug log: the nodes, and what each layer said about
// each object.
#pragma once

#include <string>

#include "desk/model/run.h"

namespace desk {

// Adds objects, nodes, table sizes and complaints of the tools to the run. What is missing or cut
// off becomes a mark; throws `read_error` if the file cannot be read.
void read_layers(run& into, const std::string& debug_log);

}  // namespace desk
