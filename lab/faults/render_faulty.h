// What a router's tools print when its faults are planted.
#pragma once

#include <vector>

#include "lab/capture/capture.h"
#include "lab/model/router.h"

namespace lab {

// The whole capture, with the router's planted faults. Throws `lab_error` if one of them does not
// apply to this router. `planted` takes the faults with the places that they went to.
capture render(const router& r, std::vector<planted_fault>* planted = nullptr);

}  // namespace lab
