// The routers whose audits are measured.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "lab/model/generate.h"

namespace bench {

// Smallest first: S, M, L, XL. L is XL with half of the bundles and sub-bundles and the same cards,
// so each text of L is half as long.
const std::vector<std::string>& size_names();

// "older", "jericho2", "mixed".
const std::vector<std::string>& family_names();

// Throws `lab_error` for an unknown name.
lab::generate_request sized_request(std::string_view size, std::string_view family, bool hqos);

}  // namespace bench
