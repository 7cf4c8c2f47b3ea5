#include "consistency/scale_check.h"

#include <array>
#include <string>
#include <utility>
#include <vector>

#include "support/bundle_world.h"
#include "support/hostile.h"

namespace tessel {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class scale_check_test : public logged_test {
 protected:
  void SetUp() override {
    logged_test::SetUp();
    st().router = birch;
    set_hqos(0);
  }

  static void set_hqos(int hqos) { st().tesselDb = ordered_map_of({{"hqos", hqos}}); }
  static void configure(std::int64_t bundles, std::int64_t l2, std::int64_t l3) {
    st().num_bundles = bundles;
    st().num_sub_bundles_l2 = l2;
    st().num_sub_bundles_l3 = l3;
  }
};

using limits = std::array<std::int64_t, 3>;

TEST_F(scale_check_test, each_router_type_has_its_limits) {
  const std::vector<std::pair<int, limits>> rows = {
      {birch, {256, 8192, 1024}},   {aspen, {256, 8192, 1024}},   {cedar, {256, 4092, 1024}},
      {dogwood, {256, 8192, 1024}}, {cedarl, {1024, 4092, 1024}}, {gorse, {32, 4092, 512}},
      {elm, {1024, 4092, 512}},     {fir, {256, 8192, 1024}},     {invalid, {0, 0, 0}},
  };
  for (const auto& [type, expected] : rows) {
    st().router = type;
    EXPECT_EQ(get_max_bundle_sub_bundle(), expected) << type;
  }
}

TEST_F(scale_check_test, a_type_without_limits_is_a_failure) {
  for (const int type : {int{notset}, 10, -1}) {
    st().router = type;
    EXPECT_THAT(failure_of([] { get_max_bundle_sub_bundle(); }),
                testing::HasSubstr(std::to_string(type)));
  }
}

TEST_F(scale_check_test, with_router_type_invalid_any_configured_bundle_logs_the_limit_0) {
  st().router = invalid;
  configure(1, 1, 1);
  EXPECT_EQ(check_bundle_scale(), SUCCESS);
  EXPECT_THAT(exceptions(), ElementsAre("INFO: Allowed main bundles: 0, configured more: 1",
                                        "INFO: Allowed l2 sub-bundles: 0, configured more: 1",
                                        "INFO: Allowed l3 sub-bundles: 0, configured more: 1"));
  EXPECT_EQ(counted(), (outcome{.exception = 3}));
}

TEST_F(scale_check_test, num_bundles_equal_to_MAX_BUNDLES_logs_nothing) {
  configure(256, 8192, 1024);
  EXPECT_EQ(check_bundle_scale(), SUCCESS);
  EXPECT_EQ(counted(), outcome());
  EXPECT_THAT(exceptions(), IsEmpty());
}

TEST_F(scale_check_test, one_more_than_each_limit_is_reported_separately) {
  configure(257, 8193, 1025);
  EXPECT_EQ(check_bundle_scale(), SUCCESS);
  EXPECT_THAT(exceptions(),
              ElementsAre("INFO: Allowed main bundles: 256, configured more: 257",
                          "INFO: Allowed l2 sub-bundles: 8192, configured more: 8193",
                          "INFO: Allowed l3 sub-bundles: 1024, configured more: 1025"));
  EXPECT_EQ(counted(), (outcome{.exception = 3}));
  EXPECT_THAT(findings(), IsEmpty()) << "a breach is not an inconsistency";
}

TEST_F(scale_check_test,
       with_hqos_on_200_bundles_50_L2_and_7_L3_sub_bundles_on_birch_read_allowed_256_more_200) {
  set_hqos(1);
  configure(200, 50, 7);
  EXPECT_EQ(check_bundle_scale(), SUCCESS);
  EXPECT_THAT(exceptions(), ElementsAre("INFO: Allowed bundles: 256, configured more: 200"));
  EXPECT_EQ(counted(), (outcome{.exception = 1}));
}

TEST_F(scale_check_test, with_hqos_on_the_sum_at_the_limit_passes) {
  set_hqos(1);
  configure(200, 50, 6);
  EXPECT_EQ(check_bundle_scale(), SUCCESS);
  EXPECT_EQ(counted(), outcome());
}

TEST_F(scale_check_test, with_hqos_on_the_limits_of_sub_bundles_are_not_tested) {
  set_hqos(1);
  st().router = cedarl;
  configure(1, 0, 1023);
  EXPECT_EQ(check_bundle_scale(), SUCCESS);
  st().router = elm;  // 512 layer 3 sub-bundles
  EXPECT_EQ(check_bundle_scale(), SUCCESS);
  EXPECT_EQ(counted(), outcome());
}

TEST_F(scale_check_test,
       with_hqos_off_300_bundles_and_9000_L2_sub_bundles_on_birch_give_two_lines_and_count_2) {
  configure(300, 9000, 7);
  EXPECT_EQ(check_bundle_scale(), SUCCESS);
  EXPECT_THAT(exceptions(),
              ElementsAre("INFO: Allowed main bundles: 256, configured more: 300",
                          "INFO: Allowed l2 sub-bundles: 8192, configured more: 9000"));
  EXPECT_EQ(counted(), (outcome{.exception = 2}));
}

TEST_F(scale_check_test, a_BUNDLE_SCALE_that_is_set_replaces_the_limit_of_bundles_alone) {
  st().BUNDLE_SCALE = "300";
  configure(300, 8193, 0);
  EXPECT_EQ(check_bundle_scale(), SUCCESS);
  set_hqos(1);
  configure(300, 1, 0);
  EXPECT_EQ(check_bundle_scale(), SUCCESS);
  EXPECT_THAT(exceptions(), ElementsAre("INFO: Allowed l2 sub-bundles: 8192, configured more: 8193",
                                        "INFO: Allowed bundles: 300, configured more: 300"));
}

TEST_F(scale_check_test, the_runs_own_limits_stay_untouched) {
  configure(300, 0, 0);
  EXPECT_EQ(check_bundle_scale(), SUCCESS);
  EXPECT_EQ(st().MAX_BUNDLES, DEFAULT);
  EXPECT_EQ(st().MAX_SUB_BUNDLES, DEFAULT);
  EXPECT_EQ(st().BUNDLE_SCALE, DEFAULT);
}

TEST_F(scale_check_test, an_unset_router_logs_the_failure_with_its_trace) {
  st().router = notset;
  EXPECT_EQ(check_bundle_scale(), ERROR);
  EXPECT_THAT(exceptions(), ElementsAre(failed_on("", "Bundle scale check failed ")))
      << "with the blank at its end";
  EXPECT_TRUE(all_have_tracebacks());
  EXPECT_EQ(counted(), (outcome{.exception = 1}));
}

TEST_F(scale_check_test, a_store_without_hqos_is_a_failure) {
  st().tesselDb = make_ordered_map();
  EXPECT_EQ(check_bundle_scale(), ERROR);
  EXPECT_THAT(exceptions(), ElementsAre(failed_on("'hqos'", "Bundle scale check failed ")));
  EXPECT_EQ(counted(), (outcome{.exception = 1}));
}

TEST_F(scale_check_test, only_the_integer_1_is_hqos) {
  st().tesselDb = ordered_map_of({{"hqos", "1"}});
  configure(200, 50, 7);
  EXPECT_EQ(check_bundle_scale(), SUCCESS);
  EXPECT_EQ(counted(), outcome());
}

TEST_F(scale_check_test, a_breach_is_counted_and_then_logged) {
  configure(300, 0, 0);
  EXPECT_TRUE(counts_before_logging([] { check_bundle_scale(); }));
}

TEST_F(scale_check_test, a_failure_is_logged_and_then_counted) {
  st().router = notset;
  EXPECT_TRUE(logs_before_counting([] { check_bundle_scale(); }));
}

}  // namespace
}  // namespace tessel
