// The two functions that run commands on the router. Both may be called on the main thread and on
// workers. No lock is held while a command runs. If the host has asked for a journal, each call
// writes its lines there (base/journal.h).
#pragma once

#include <string_view>

#include "base/constants.h"
#include "base/filled_line.h"
#include "base/value.h"

namespace tessel {

// Runs one shell command line and waits for it. Returns its standard output as text, whatever the
// exit status: an unknown command gives an empty text. Standard input is /dev/null; standard error
// goes to the debug log. The output passes through the capture file "/tmp/tessel_SUFFIX.log". Each
// call creates a new file there and replaces an older one. So calls that use one suffix at the same
// time each get their own output, and the file of the last call stays.
//
// Returns ERROR (the integer 0), after counting and logging, in three cases: a value of `cmd` or
// `suffix` is not allowed there, and then nothing is run; the command could not be run; or its
// output could not be read, or may have lost its end because /tmp is full.
value execute(const filled_line& cmd, const filled_line& suffix = "0");

// Passes the chip shell command `bcmd` to unit `npu_id` (or "all") of node `nodeid` (or "A" for all
// nodes). Returns what `execute` returns. `grep_opt`, unless it is DEFAULT, becomes the options of
// a grep on this node; the shell reads it, so it must come from the source code. The capture file's
// suffix is "FNAME_NPU_NODE". By the address `nodeip` the journal names the node; nothing else uses
// it.
value execute_bcmd(const filled_line& bcmd, const value& npu_id, const value& nodeid,
                   const value& nodeip = DEFAULT, const filled_line& fname = "1",
                   std::string_view grep_opt = DEFAULT);

}  // namespace tessel
