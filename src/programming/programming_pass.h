// Do the chips hold what the layers above imply?
//
// Bundle by bundle, with one worker for each node and NPU that has a member of it, and in that
// worker one for each sub-bundle. `vd` is the bundle's VLAN domain without the characters "0" and
// "x" at both ends ("0x10" is "1"), from which the chip keys are built. `err` names the object,
// NPU and node.
#pragma once

#include <string>
#include <string_view>

#include "base/records.h"
#include "base/value.h"

namespace tessel {

// Returns SUCCESS whatever was found; ERROR, after logging and counting, for a failure of the walk
// itself, which does not wait for workers already started. Main thread.
int check_bundle_programming();

// One bundle on one NPU: its sub-bundles, and the bundle itself if it has untagged traffic. `mem`
// is the first member on that NPU (a `memberInfo`). The worker of node and NPU.
int check_bdl_prgm_task(const std::string& bundle, const std::string& nodename, const value& mem,
                        const std::string& vd, const std::string& err);
int check_bdl_prgm_task_j2(const std::string& bundle, const std::string& nodename, const value& mem,
                           const std::string& vd, const std::string& err);

// One sub-bundle on one NPU. The sub-bundle's worker.
int check_sub_bdl_prgm_task(record& sub_obj, std::string_view nodename, std::string_view vd,
                            std::string_view npu, std::string_view err);
int check_sub_bdl_prgm_task_j2(record& sub_obj, std::string_view nodename, std::string_view vd,
                               std::string_view npu, const value& npu_core, std::string_view err);

}  // namespace tessel
