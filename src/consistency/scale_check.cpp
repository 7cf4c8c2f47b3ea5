#include "consistency/scale_check.h"

#include <fmt/format.h>

#include <string_view>

#include "base/failure.h"
#include "base/findings.h"
#include "base/logs.h"
#include "base/numbers.h"
#include "run/state.h"

namespace tessel {

namespace {

struct scale_limits {
  router_type router;
  std::array<std::int64_t, 3> limits;  // main bundles, L2 sub-bundles, L3 sub-bundles
};

constexpr std::array<scale_limits, 8> max_bundle_sub_bundle_dict = {{
    {birch, {256, 8192, 1024}},
    {aspen, {256, 8192, 1024}},
    {cedar, {256, 4092, 1024}},
    {dogwood, {256, 8192, 1024}},
    {cedarl, {1024, 4092, 1024}},
    {gorse, {32, 4092, 512}},
    {elm, {1024, 4092, 512}},
    {fir, {256, 8192, 1024}},
}};

void note_if_more(std::string_view what, std::int64_t tested, std::int64_t allowed,
                  std::int64_t configured) {
  if (tested <= allowed) return;
  ++st().exception;
  logger(fmt::format("INFO: Allowed {}: {}, configured more: {}", what, allowed, configured),
         "exception");
}

}  // namespace

std::array<std::int64_t, 3> get_max_bundle_sub_bundle() {
  const int router = st().router;
  if (router == invalid) return {ERROR, ERROR, ERROR};
  for (const scale_limits& row : max_bundle_sub_bundle_dict) {
    if (row.router == router) return row.limits;
  }
  throw failure(fmt::format("no limits for router type {}", router));
}

int check_bundle_scale() {
  run_state& run = st();
  try {
    auto [MAX_BUNDLES, MAX_SUB_BUNDLES_L2, MAX_SUB_BUNDLES_L3] = get_max_bundle_sub_bundle();
    if (!(run.BUNDLE_SCALE == DEFAULT)) MAX_BUNDLES = to_decimal(run.BUNDLE_SCALE);
    if (run.tesselDb.at("hqos") == 1) {
      // All interfaces share one limit, but the note shows only the number of main bundles.
      const std::int64_t all = run.num_bundles + run.num_sub_bundles_l2 + run.num_sub_bundles_l3;
      note_if_more("bundles", all, MAX_BUNDLES, run.num_bundles);
      return SUCCESS;
    }
    note_if_more("main bundles", run.num_bundles, MAX_BUNDLES, run.num_bundles);
    note_if_more("l2 sub-bundles", run.num_sub_bundles_l2, MAX_SUB_BUNDLES_L2,
                 run.num_sub_bundles_l2);
    note_if_more("l3 sub-bundles", run.num_sub_bundles_l3, MAX_SUB_BUNDLES_L3,
                 run.num_sub_bundles_l3);
    return SUCCESS;
  } catch (const std::exception& error) {
    return log_and_count(fmt::format("{}: Bundle scale check failed ", error.what()));
  }
}

}  // namespace tessel
