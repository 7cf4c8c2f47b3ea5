// Collection: all raw data of a run, gathered in parallel before any check runs.
#pragma once

#include <string>

#include "base/value.h"

namespace tessel {

// Fills `mbrInfoPI`, `bdlSubPI` and `run_cfg`, and through its workers `DPA`, `BCM`, `voq_usage`,
// `bdlInfoPI` and `bdlInfoPD`. Returns SUCCESS once all workers have ended, even if they met
// failures; ERROR, without waiting for them, after logging and counting a failure of its own. Main
// thread.
int dump_data();

// Collects one node: its forwarding objects and then, if its chip is supported, its NPUs' tables.
// It starts a worker for each NPU and does not wait for them. Always returns SUCCESS. Runs on a
// worker of `dump_data`.
int dump_task(const std::string& nodename, const value& node);

// Stores the running configuration, from its banner to its "end" line, in `run_cfg`. Returns ERROR
// if the banner or the end is not found (printed) or after a failure (logged and counted). Main
// thread.
int dump_running_config();

}  // namespace tessel
