// Which tool and table a finding is about.
#pragma once

#include "desk/model/names.h"
#include "desk/model/run.h"

namespace desk {

// The table that holds, or should hold, what the finding reports.
[[nodiscard]] source source_of(const finding& one);

// The table with which the finding compares that one, of the same layer; none if there is no such.
[[nodiscard]] source other_source_of(const run& of, const finding& one);

// The node on which that table stands; empty: none is known. A message names the node whose members
// the audit went through, and a live standby has those of the active one, whose ports it is not
// asked for.
[[nodiscard]] std::string_view node_of_value(const run& of, const finding& one);

}  // namespace desk
