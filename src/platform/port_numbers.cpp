#include "platform/port_numbers.h"

#include <fmt/format.h>

#include "base/numbers.h"
#include "run/state.h"

namespace tessel {

namespace {

constexpr wide_int ports_per_core = 256;

}  // namespace

std::string port_on_core(const value& pp_port, const value& npu_core, here where) {
  const wide_int port = to_wide(pp_port, where);
  if (st().router != aspen) return fmt::format("{}", port);
  return fmt::format("{}", port - to_wide(npu_core, where) * ports_per_core);
}

}  // namespace tessel
