// The leaf comparisons of the programming pass: one value from the layers above against one entry
// of a chip's tables.
//
// Disagreements are numbered and logged on the channel "programming_error"; failures (a missing
// NPU, a table that holds ERROR, a text that is no number) are logged, counted and returned as
// ERROR. `err` names the object, NPU and node. Called on the workers of the programming pass.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "base/records.h"
#include "base/value.h"

namespace tessel {

// The low ten bits of a MAC, which is what the earlier chips' VSI table keeps of it.
inline constexpr std::int64_t mask = 0x3FF;

// The `llif` that stands for any value in verify_sem_entry.
inline constexpr std::string_view any_llif = R"(\w+)";

// SUCCESS if the two VLAN domains are equal as they stand, in notation too.
int verify_vlan_domain(const value& bundle_vd, const value& member_vd, const value& member,
                       std::string_view err);

// Looks `key` up in the earlier chips' tables SEMA, then SEMB. With `any_llif`: the payload as
// hexadecimal text, or ERROR. With any other `llif`: SUCCESS or, in practice always, ERROR.
value verify_sem_entry(std::string_view llif, std::string_view nodename, std::string_view npu,
                       std::string_view key);

// Jericho2: SUCCESS if the chip maps `glif` to the LIF that its table has for `pp_port`. No pass
// calls it, since none verifies LIFs on this family yet; it is kept as the one reader of the table
// "lif".
int verify_sem_entry_j2(std::string_view llif, std::string_view nodename, std::string_view npu,
                        std::string_view pp_port, std::string_view glif);

// Compares the low ten bits of a bundle's MAC with the earlier chip's VSI table, in the row of the
// bundle's RIF. Sub-bundles (`is_sub` 1) are passed over. SUCCESS whatever was found.
int verify_rif_entry(const record& obj, std::string_view nodename, std::string_view npu,
                     std::string_view err, int is_sub);

// The same on Jericho2, for RIF `rif`. A MAC that differs is counted and ends in this function's
// own failure, without a message of its own.
int verify_rif_entry_j2(const record& obj, std::string_view nodename, std::string_view npu,
                        std::string_view err, int is_sub, const value& rif);

}  // namespace tessel
