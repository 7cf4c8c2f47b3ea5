#include "platform/port_numbers.h"

#include <fmt/format.h>

#include "base/failure.h"
#include "base/numbers.h"
#include "run/state.h"

namespace tessel {

namespace {

constexpr std::int64_t ports_per_core = 256;

}  // namespace

std::int64_t port_on_core(const value& pp_port, const value& npu_core, here where) {
  const std::int64_t port = to_integer(pp_port, where);
  if (st().router != aspen) return port;
  std::int64_t below = 0;
  std::int64_t row = 0;
  if (__builtin_mul_overflow(to_integer(npu_core, where), ports_per_core, &below) ||
      __builtin_sub_overflow(port, below, &row)) {
    throw failure(
        fmt::format("port {} on core {} is too large a number", brief(pp_port), brief(npu_core)),
        where);
  }
  return row;
}

}  // namespace tessel
