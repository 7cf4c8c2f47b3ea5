// Collection of the switch chips' tables, with one worker per NPU. Jericho2 and the earlier
// families have different commands, so each has its own function.
#pragma once

#include <string>

#include "base/value.h"

namespace tessel {

// Makes `BCM[nodename]` and starts a worker for each unit of `npu_list` (list of texts). It does
// not wait for them; they are in `pid_list`. `nodeid` is a number, `nodeip` a text. Returns
// SUCCESS, or ERROR after logging and counting a failure. Called on the node's worker.
int dump_hw_tables(const value& npu_list, const value& nodeid, const value& nodeip,
                   const std::string& nodename);

// Sends the family's commands to one NPU and stores the results, parsed or raw, as
// `BCM[nodename][npu]`. The entry appears only when it is complete. Returns SUCCESS, or ERROR after
// logging and counting a failure. Called on the NPU's worker.
int dump_tables_per_npu_j2(const value& npu, const value& nodeid, const value& nodeip,
                           const std::string& nodename);
int dump_tables_per_npu_non_j2(const value& npu, const value& nodeid, const value& nodeip,
                               const std::string& nodename);

}  // namespace tessel
