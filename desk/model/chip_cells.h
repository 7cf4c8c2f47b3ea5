// What the chips' tables in a capture hold of the bundles, beside what the snapshot has.
#pragma once

#include <string>

#include "desk/model/run.h"

namespace desk {

// Fills run::chip_cells and run::chip_troubles. It asks for what the audit asks for: the MTU and
// the VLAN domain of each member on its chip; on each chip with a member of a bundle the entries of
// its sub-bundles, and those of the bundle itself if it has untagged traffic. Needs a run that was
// read with `keeps_questions`. What cannot be read becomes a trouble of its chip.
void read_chips(run& into, const std::string& capture);

}  // namespace desk
