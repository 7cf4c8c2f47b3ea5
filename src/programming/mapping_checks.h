// The chain from a bundle's or sub-bundle's global LIF, or its chip key, to the local LIF, the RIF
// and the MAC.
//
// `obj` is the record of a bundle (`is_sub` 0) or sub-bundle (`is_sub` 1). Its `llif` is written
// here, for the snapshot alone: several NPUs have each their own for it, and their workers write
// the one field, so what a check needs of it is handed on beside the record. Findings go to
// "programming_error", failures are logged and counted. `err` names the object, NPU and node.
// Called on the workers of the programming pass.
#pragma once

#include <string_view>

#include "base/records.h"
#include "base/value.h"

namespace tessel {

// Asks the chip which local LIF and VSI it has for the record's `glif`, enters the LIF in `llif`
// and in `*llif`, and compares the VSI with the RIF of a layer 3 object. Returns SUCCESS, or ERROR
// if the chip does not know it.
int get_glif_to_llif_vsi_mapping(std::string_view nodename, std::string_view npu, record& obj,
                                 std::string_view err, value* llif = nullptr);

// For an object without an exact key. In practice ends in a logged and counted failure once the
// chip knows the LIF.
int verify_lif_rif_mac_mapping_key_llif(record& obj, std::string_view nodename,
                                        std::string_view npu, std::string_view key,
                                        std::string_view err, int is_sub);

// For an object with an exact SEM key: the SEM entry must exist, and the RIF carry the MAC.
int verify_lif_rif_mac_mapping_key_vd(record& obj, std::string_view nodename, std::string_view npu,
                                      std::string_view key, std::string_view err, int is_sub);

// Jericho2: the RIF must carry the MAC; sub-bundles are not verified. `npu_core` is not used.
int verify_lif_rif_mac_mapping_key_vd_j2(record& obj, std::string_view nodename,
                                         std::string_view npu, const value& npu_core,
                                         std::string_view err, int is_sub);

}  // namespace tessel
