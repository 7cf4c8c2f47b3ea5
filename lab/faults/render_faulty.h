// Renders a router with its faults planted.
#pragma once

#include <vector>

#include "lab/capture/capture.h"
#include "lab/model/router.h"

namespace lab {

// The whole capture, with the router's faults planted. Throws `lab_error` if one of them does not
// apply to this router. `planted` gets the faults with their places.
capture render(const router& r, std::vector<planted_fault>* planted = nullptr);

}  // namespace lab
