// The leaf comparisons of the programming pass: each compares one value of the layers above with
// one entry of a chip's tables.
//
// Disagreements are numbered and logged on the channel "programming_error". Failures (a missing
// NPU, a table that holds ERROR, a text that is not a number) are logged, counted and returned as
// ERROR. `err` names the object, NPU and node, `where` is the chip. Called on the workers of the
// programming pass.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "base/records.h"
#include "base/value.h"
#include "checks/object_name.h"
#include "programming/chip.h"

namespace tessel {

// The low ten bits of a MAC address, which are what the earlier chips' VSI table keeps of it.
inline constexpr std::int64_t mask = 0x3FF;

// The `llif` that matches any value in verify_sem_entry.
inline constexpr std::string_view any_llif = R"(\w+)";

// SUCCESS if the two VLAN domains are equal as texts: the notation counts too.
int verify_vlan_domain(const value& bundle_vd, const value& member_vd, const value& member,
                       const object_name& err);

// Looks up `key` in the earlier chips' tables SEMA and then SEMB. With `any_llif`, returns the
// payload as hexadecimal text, or ERROR. With any other `llif`, returns SUCCESS or, in practice
// always, ERROR.
value verify_sem_entry(std::string_view llif, const chip& where, std::string_view key);

// Jericho2: SUCCESS if the chip maps `glif` to the LIF that its table has for `pp_port`. No pass
// calls it, because none verifies LIFs on this family yet. It is kept as the only reader of the
// table "lif".
int verify_sem_entry_j2(std::string_view llif, const chip& where, std::string_view pp_port,
                        std::string_view glif);

// Compares the low ten bits of a bundle's MAC with the earlier chip's VSI table, in the row of the
// bundle's RIF. Skips sub-bundles (`is_sub` 1). Returns SUCCESS, also after a finding.
int verify_rif_entry(const record& obj, const chip& where, const object_name& err, int is_sub);

// The same on Jericho2, for RIF `rif`. A MAC that differs is counted and becomes this function's
// own failure; it has no message of its own.
int verify_rif_entry_j2(const record& obj, const chip& where, const object_name& err, int is_sub,
                        const value& rif);

}  // namespace tessel
