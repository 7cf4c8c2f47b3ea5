// Follow a bundle's or sub-bundle's global LIF, or its chip key, to the local LIF, the RIF and the
// MAC.
//
// `obj` is the record of a bundle (`is_sub` 0) or sub-bundle (`is_sub` 1). Its field `llif` is
// written here only for the snapshot: each NPU has its own local LIF, and the NPUs' workers all
// write this one field. So a check that needs the LIF gets it as a separate value. Findings go to
// "programming_error"; failures are logged and counted. `err` names the object, NPU and node,
// `where` is the chip. Called on the workers of the programming pass.
#pragma once

#include <string_view>

#include "base/records.h"
#include "base/value.h"
#include "checks/object_name.h"
#include "programming/chip.h"

namespace tessel {

// Asks the chip for the local LIF and VSI of the record's `glif`, stores the LIF in the field
// `llif` and in `*llif`, and compares the VSI with the RIF of a layer 3 object. Returns SUCCESS, or
// ERROR if the chip does not know `glif`.
int get_glif_to_llif_vsi_mapping(std::string_view nodename, std::string_view npu, record& obj,
                                 const object_name& err, value* llif = nullptr);

// For an object without an exact key. In practice, if the chip knows the LIF, it ends in a failure,
// which is logged and counted.
int verify_lif_rif_mac_mapping_key_llif(record& obj, const chip& where, std::string_view key,
                                        const object_name& err, int is_sub);

// For an object with an exact SEM key: checks that the SEM entry exists and that the RIF has the
// MAC.
int verify_lif_rif_mac_mapping_key_vd(record& obj, const chip& where, std::string_view key,
                                      const object_name& err, int is_sub);

// Jericho2: checks that the RIF has the MAC. Sub-bundles are not verified. `npu_core` is not used.
int verify_lif_rif_mac_mapping_key_vd_j2(record& obj, const chip& where, const value& npu_core,
                                         const object_name& err, int is_sub);

}  // namespace tessel
