// The LAGs that a chip really holds, as each family prints them.
//
//   LAG ID: 1                                {"LAG 0x1": {"0x0": {"gport": "0xc000021",
//    0  |  0xc000021  |  Y                      "is_active": "Y", ...}, "Visited": 0, ...}}
//
//   | 0 | 1 |   | 1 | yes | 0xc000021 | 0 |   {"0x1": {"members": ["0xc000021", "0xc000022"],
//   |   |   |   |   | yes | 0xc000022 | 0 |      "Visited": 0, ...}}
//
// A chip without a LAG is a note (added to `info`), and its node's chip data count as unusable
// (`asic_supported` 0). Each parser counts and logs its failure and returns ERROR. Called on the
// NPU's worker.
#pragma once

#include <string_view>

#include "base/value.h"

namespace tessel {

// Parses `diag lag` of the earlier chips. Keys are "LAG " and the id in hexadecimal. Values map the
// member id (hexadecimal text) to "gport" and "is_active" ("Y" or "N") as printed.
value parse_diag_lag_BCM(const value& diag_lag, std::string_view nodename, std::string_view npu);

// Parses `tm lag` of Jericho2. Keys are the id in hexadecimal; "members" lists the global ports as
// printed, in row order.
value parse_tm_lag(const value& tm_lag_text, std::string_view nodename, std::string_view npu);

}  // namespace tessel
