// Compares what the layers hold of each object, whatever the audit said about it.
#pragma once

#include <vector>

#include "desk/judge/judged_run.h"

namespace desk {

// The fields on which the witnesses of an object disagree, and the places that lack it while others
// hold it. Objects that are not configured are left out.
[[nodiscard]] std::vector<difference> find_differences(const run& of);

// All witnesses of one field of an object with the odd ones marked; also if they agree.
[[nodiscard]] difference compare_field(const run& of, const object& one, field what);

// "3 nodes": how many places, as a person would count them.
[[nodiscard]] std::string places_of(const std::vector<witness>& witnesses, bool odd);

}  // namespace desk
