// The two functions through which the audit reaches the router. Both run on the main thread and on
// workers alike; no lock is held while a command runs.
#pragma once

#include <string_view>

#include "base/constants.h"
#include "base/filled_line.h"
#include "base/value.h"

namespace tessel {

// Runs one shell command line and waits for it. Returns what it wrote on standard output, as text,
// whatever its exit status: an unknown command gives an empty text. Standard input is /dev/null,
// standard error goes to the debug log. The output passes through the capture file
// "/tmp/tessel_SUFFIX.log", which stays. It is a new file each time, in the place of an older one,
// so calls with one suffix that run side by side get their own outputs; the last one's stays.
//
// Returns ERROR (the integer 0), after counting and logging, if a value of `cmd` or `suffix` is not
// to be filled in, and nothing is run then; if the command could not be run; or if its output could
// not be read, or might have lost its end as /tmp is full.
value execute(const filled_line& cmd, const filled_line& suffix = "0");

// Hands the chip shell command `bcmd` to unit `npu_id` (or "all") of node `nodeid` (or "A" for all
// of them) and returns what `execute` does. `grep_opt`, unless DEFAULT, is placed behind a grep on
// this node: it is the shell's, and must come from the source. The capture file's suffix is
// "FNAME_NPU_NODE".
value execute_bcmd(const filled_line& bcmd, const value& npu_id, const value& nodeid,
                   const value& nodeip = DEFAULT, const filled_line& fname = "1",
                   std::string_view grep_opt = DEFAULT);

}  // namespace tessel
