// Which tool and table a finding is about.
#pragma once

#include "desk/model/names.h"
#include "desk/model/run.h"

namespace desk {

// The table that holds, or should hold, what the finding reports.
[[nodiscard]] source source_of(const finding& one);

// The table with which the finding compares that one, of the same layer; none if there is no such.
[[nodiscard]] source other_source_of(const run& of, const finding& one);

}  // namespace desk
