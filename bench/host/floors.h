// The least that a run can cost: what the same commands, texts and files cost on their own.
#pragma once

#include "measures.h"

namespace bench {

// Runs every command of the run again, one after the other, each with its output in a file, and
// adds to `run` the size of all outputs and of the snapshot, and the processor time of this process
//   - to search each output once, with a compiled pattern of two groups, and keep nothing;
//   - to read each output;
//   - to start as many shells as the run did, and wait for each;
//   - to write the snapshot.
// Needs the tools and the folders of the run. Throws std::runtime_error.
void add_floors(measures& run);

}  // namespace bench
