// The tools of a router that is being recorded: one program under the names of all tools passes its
// command line through to the real tool, and keeps what that one prints on its way.
//
// The environment tells where:
//     TESSEL_LAB_RECORD         the recording's work folder: capture/, real/
//     TESSEL_LAB_RECORD_PID     a process that sees the real tools in their own places; without it
//                               they are found under real/
//     TESSEL_LAB_RECORD_PATH    the path as the real tools have it
//     TESSEL_LAB_RECORD_INNER   set for a real tool that is found there: what it calls in turn is
//                               not kept
#pragma once

#include <string>
#include <vector>

namespace lab {

// True if this process is to record.
bool is_recording();

// Returns the status to exit with, that of the real tool; ends by the signal that ended the tool.
int record_call(const std::vector<std::string>& command);

}  // namespace lab
