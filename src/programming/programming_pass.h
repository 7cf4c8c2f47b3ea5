// The programming pass: do the chips hold what the layers above imply?
//
// It goes bundle by bundle, with one worker for each node and NPU that has a member of the bundle;
// that worker starts one for each sub-bundle about which it has to ask the chip. `vd` is the
// bundle's VLAN domain without the characters "0" and "x" at both ends ("0x10" is "1"); the chip
// keys are built from it. `err` names the object, NPU and node.
#pragma once

#include <string>
#include <string_view>

#include "base/records.h"
#include "base/value.h"
#include "checks/object_name.h"
#include "programming/chip.h"

namespace tessel {

// Returns SUCCESS, also after findings; ERROR, after logging and counting, for a failure of the
// loop itself, which does not wait for workers already started. Main thread.
int check_bundle_programming();

// Checks one bundle on one NPU: its sub-bundles, and the bundle itself if it has untagged traffic.
// `mem` is the first member on that NPU (a `memberInfo`). Called on the worker of node and NPU.
int check_bdl_prgm_task(const std::string& bundle, const std::string& nodename, const value& mem,
                        const std::string& vd, const std::string& err);
int check_bdl_prgm_task_j2(const std::string& bundle, const std::string& nodename, const value& mem,
                           const std::string& vd, const std::string& err);

// Checks one sub-bundle on one NPU. Called on the worker of node and NPU or, where the chip is
// asked, on the sub-bundle's own.
int check_sub_bdl_prgm_task(record& sub_obj, const chip& where, std::string_view vd,
                            const object_name& err);
int check_sub_bdl_prgm_task_j2(record& sub_obj, const chip& where, std::string_view vd,
                               const value& npu_core, const object_name& err);

}  // namespace tessel
