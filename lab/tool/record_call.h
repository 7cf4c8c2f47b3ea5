// The tools during a recording: one program under the names of all tools passes its command line to
// the real tool, and keeps a copy of the output that it passes back.
//
// The environment says where:
//     TESSEL_LAB_RECORD         the recording's work folder: capture/, real/
//     TESSEL_LAB_RECORD_PID     a process that sees the real tools in their places; without it
//                               they are found under real/
//     TESSEL_LAB_RECORD_PATH    the path as the real tools have it
//     TESSEL_LAB_RECORD_INNER   set for a real tool found under real/: the calls that it makes are
//                               not kept
#pragma once

#include <string>
#include <vector>

namespace lab {

// True if this process has to record its call.
bool is_recording();

// Returns the real tool's exit status; if a signal ended the tool, ends by the same signal.
int record_call(const std::vector<std::string>& command);

}  // namespace lab
