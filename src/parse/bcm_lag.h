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

// The LAG id in a block of `diag lag`: the first text that the definition finds; empty if there is
// none.
inline constexpr std::string_view diag_lag_id_definition = R"((?<=ID:\s)\d+)";
std::string_view diag_lag_id(std::string_view lag);

// Defines a row of `tm lag`. The groups are the LAG id, the global port and the last word, each
// empty for a blank cell.
inline constexpr std::string_view tm_lag_row_definition =
    "\\d*\\s+\\|\\s+(\\d*)\\s+\\|\\s+\\w*\\s+\\|\\s+(\\w*)\\s+\\|\\s+(\\w*)\\s+\\|\n";

// Parses `tm lag` of Jericho2. Keys are the id in hexadecimal; "members" lists the global ports as
// printed, in row order.
value parse_tm_lag(const value& tm_lag, std::string_view nodename, std::string_view npu);

}  // namespace tessel
