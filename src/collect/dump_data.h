// Collection: all raw data of a run, gathered in parallel before any check runs.
#pragma once

#include <string>

#include "base/value.h"

namespace tessel {

// Fills `mbrInfoPI`, `bdlSubPI` and `run_cfg`, and through its workers `DPA`, `BCM`, `voq_usage`,
// `bdlInfoPI` and `bdlInfoPD`. Returns SUCCESS once all workers have ended, whatever they met;
// ERROR, without waiting for them, after logging and counting a failure of its own. Main thread.
int dump_data();

// One node's share: its forwarding objects, then, if its chip is supported, workers for its NPUs,
// which it does not wait for. Always SUCCESS. A worker of `dump_data`.
int dump_task(const std::string& nodename, const value& node);

// The running configuration from its banner to its "end" line, into `run_cfg`. Returns ERROR if
// either is not found (printed) and after a failure (logged and counted). Main thread.
int dump_running_config();

}  // namespace tessel
