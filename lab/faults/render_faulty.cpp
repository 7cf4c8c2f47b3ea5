#include "lab/faults/render_faulty.h"

#include "lab/faults/faults.h"
#include "lab/render/render.h"

namespace lab {

capture render(const router& r, std::vector<planted_fault>* planted) {
  router faulty = r;
  plant_faults(faulty);
  capture c = render_answers(faulty);
  edit_for_faults(faulty, c);
  if (planted != nullptr) *planted = faulty.faults;
  return c;
}

}  // namespace lab
