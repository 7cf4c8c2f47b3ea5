#include "desk/show/keys.h"

#include <gtest/gtest.h>

namespace desk {
namespace {

TEST(keys, are_those_of_their_enumerators) {
  EXPECT_EQ(key_for(layer::config), "config");
  EXPECT_EQ(key_for(layer::dpa), "dpa");
  EXPECT_EQ(key_for(layer::none), "none");
  EXPECT_EQ(key_for(field::presence), "presence");
  EXPECT_EQ(key_for(field::member_id), "member_id");
  EXPECT_EQ(key_for(field::deletion), "deletion");
  EXPECT_EQ(key_for(field::none), "none");
  EXPECT_EQ(key_for(source::running_config), "running_config");
  EXPECT_EQ(key_for(source::agent), "agent");
  EXPECT_EQ(key_for(source::l2port), "l2port");
  EXPECT_EQ(key_for(source::none), "none");
  EXPECT_EQ(key_for(object_kind::router), "router");
  EXPECT_EQ(key_for(object_kind::bundle), "bundle");
  EXPECT_EQ(key_for(object_kind::sub_bundle), "sub_bundle");
  EXPECT_EQ(key_for(object_kind::entry), "entry");
  EXPECT_EQ(key_for(coverage_state::read), "read");
  EXPECT_EQ(key_for(coverage_state::not_understood), "not_understood");
  EXPECT_EQ(key_for(coverage_state::unknown), "unknown");
  EXPECT_EQ(key_for(finding_kind::inconsistency), "inconsistency");
  EXPECT_EQ(key_for(finding_kind::delay_delete), "delay_delete");
  EXPECT_EQ(key_for(finding_kind::note), "note");
  EXPECT_EQ(key_for(run_end::complete), "complete");
  EXPECT_EQ(key_for(run_end::cut_off), "cut_off");
  EXPECT_EQ(key_for(run_end::unknown), "unknown");
  EXPECT_EQ(key_for(stale_search::done), "done");
  EXPECT_EQ(key_for(stale_search::skipped), "skipped");
  EXPECT_EQ(key_for(verdict::agrees), "agrees");
  EXPECT_EQ(key_for(verdict::not_judged), "not_judged");
  EXPECT_EQ(key_for(sureness::named), "named");
  EXPECT_EQ(key_for(sureness::two_nodes), "two_nodes");
  EXPECT_EQ(key_for(sureness::unknown), "unknown");
  EXPECT_EQ(key_for(witness::state::holds), "holds");
  EXPECT_EQ(key_for(witness::state::not_read), "not_read");
}

}  // namespace
}  // namespace desk
