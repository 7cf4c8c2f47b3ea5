// Faults that can be planted into a router: each has a name, a description and the finding that
// the audit must raise. Most are overrides of the model, chosen so that one layer on one node is
// wrong and the finding is the same whatever the order of the audit's threads; the others edit
// the rendered outputs.
//
//     router r = load_router("birch-small");
//     r.faults.push_back(parse_fault("sem-missing"));
//     capture c = render(r);
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "capture.h"
#include "router.h"

namespace lab {

struct fault {
  std::string_view name;
  std::string_view description;
  std::string_view finding;
  // Changes the model; returns false if the router has nothing to plant it into. May be null.
  bool (*plant)(router& r, const std::string& argument);
  // Changes the rendered outputs; returns false likewise. May be null.
  bool (*edit)(capture& c, const router& r, const std::string& argument);
};

const std::vector<fault>& fault_catalogue();

// "tool-empty=lagmgr_health" -> its name and argument. Throws `lab_error` for an unknown name.
planted_fault parse_fault(const std::string& text);

// Plants the model's faults. Throws `lab_error` that names the fault that does not apply.
void plant_faults(router& r);
// Does the same for those that edit rendered outputs.
void edit_for_faults(const router& r, capture& c);

// True if the fault can be planted into the router.
bool applies(const router& r, std::string_view name);

}  // namespace lab
