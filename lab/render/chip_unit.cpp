#include "lab/render/chip_unit.h"

#include <utility>

#include "lab/render/render.h"

namespace lab {

std::vector<chip_unit> chips_of(const router& r, chip_family family) {
  std::vector<chip_unit> chips;
  for (const node& n : r.nodes)
    if (family_of(n) == family)
      for (unsigned npu = 0; npu < n.npus; ++npu) chips.push_back({r, n, npu});
  return chips;
}

void answer_chip(capture& c, const chip_unit& u, const char* command, std::string text) {
  answer(c, local_place, chip_command(command, u.npu, u.n), std::move(text));
}

}  // namespace lab
