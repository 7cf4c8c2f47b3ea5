#include "desk/judge/judge.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "desk/model/coverage.h"

namespace desk {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

// A router of some nodes on which every layer was read and holds one bundle.
class run_of_a_test : public testing::Test {
 protected:
  void SetUp() override {
    of.has_snapshot = true;
    of.has_chip_tables = true;
    of.end = run_end::complete;
    of.tables[{source::running_config, no_place, no_place}] = 1;
    of.tables[{source::bundle_manager, no_place, no_place}] = 1;
    of.tables[{source::agent, no_place, no_place}] = 1;
    bundle = of.object_at(object_kind::bundle, "BE1", "BE1");
    of.objects[bundle].is_configured = true;
    set(field::handle, source::bundle_manager, no_place, "0x3000004");
  }

  void add_nodes(std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
      const auto index = static_cast<std::int16_t>(of.nodes.size());
      node& made = of.nodes.emplace_back();
      made.name = "0/" + std::to_string(i) + "/CPU0";
      made.id = std::to_string(i);
      made.address = "192.0.0." + std::to_string(i);
      made.type = "LC";
      made.band = "FINAL";
      made.asic = "BCM8868";
      made.takes_part = true;
      made.has_supported_asic = true;
      made.npus = {"0"};
      for (const source table : {source::agent, source::lagport, source::l1port, source::l2port,
                                 source::l2intf, source::l3intf})
        of.tables[{table, index, no_place}] = 1;
      of.tables[{source::chip_lag, index, 0}] = 1;
      set(field::lag_id, source::agent, index, "0x1");
      set(field::lag_id, source::lagport, index, "0x1");
      set(field::lif, source::l2port, index, "0x00014000");
    }
  }
  void set(field what, source from, std::int16_t node, const std::string& value) {
    auto& cells = of.objects[bundle].cells;
    for (cell& c : cells)
      if (c.what == what && c.from == from && c.node == node) {
        c.value = of.texts.keep(value);
        return;
      }
    cells.push_back({what, from, node, no_place, of.texts.keep(value)});
  }
  // A bundle that all layers hold as they hold the first one.
  void add_bundle(const char* name) {
    const auto made = of.object_at(object_kind::bundle, name, name);
    of.objects[made].is_configured = true;
    of.objects[made].cells = std::vector<cell>(of.objects[bundle].cells);
  }
  void find(const std::string& code, field what, const std::string& on, layer in,
            finding_kind kind = finding_kind::inconsistency) {
    finding& one = of.findings.emplace_back();
    one.code = code;
    one.kind = kind;
    one.object = {object_kind::bundle, "BE1", "BE1"};
    one.node = on;
    one.of = in;
    one.what = what;
    one.text = "a message";
  }
  // From the interface database.
  void add_missing_sub_bundle(const char* name) {
    const auto made = of.object_at(object_kind::sub_bundle, "BE1", name);
    of.objects[made].is_configured = true;
    find("TC-103", field::presence, "", layer::pi);
    of.findings.back().object = {object_kind::sub_bundle, "BE1", name};
  }
  judged_run judged() {
    fill_coverage(of);
    return judge(std::move(of));
  }

  run of;
  std::size_t bundle = 0;
};

TEST_F(run_of_a_test, in_health_every_bundle_agrees) {
  add_nodes(3);
  const judged_run is = judged();
  ASSERT_EQ(is.bundles.size(), 1U);
  EXPECT_EQ(is.bundles[0].is, verdict::agrees);
  EXPECT_THAT(is.causes, IsEmpty());
  EXPECT_TRUE(is.is_wholly_judged);
  EXPECT_EQ(exit_status(is), 0);
}

TEST_F(run_of_a_test, the_odd_one_is_the_minority_whichever_node_a_message_blames) {
  add_nodes(4);
  set(field::lif, source::l2port, 0, "0x00014500");
  for (const char* blamed : {"0/1/CPU0", "0/2/CPU0", "0/3/CPU0"})
    find("TC-108", field::lif, blamed, layer::dpa);
  const judged_run is = judged();
  ASSERT_EQ(is.causes.size(), 1U);
  EXPECT_EQ(is.causes[0].node, "0/0/CPU0");
  EXPECT_EQ(is.causes[0].first, layer::dpa);
  EXPECT_EQ(is.causes[0].how_sure, sureness::majority);
  EXPECT_EQ(is.causes[0].findings.size(), 3U);
  EXPECT_EQ(is.causes[0].why, "3 of 4 hold 0x00014000");
  EXPECT_EQ(is.bundles[0].is, verdict::differs);
  EXPECT_EQ(exit_status(is), 1);
}

// The MAC of one node's forwarding object is wrong, and so is the one in the chip of another node.
TEST_F(run_of_a_test, a_chip_that_is_wrong_elsewhere_is_a_cause_of_its_own) {
  add_nodes(3);
  set(field::mac, source::bundle_manager, no_place, "0026.5e00.0a02");
  for (const std::int16_t node : {std::int16_t{0}, std::int16_t{1}, std::int16_t{2}})
    set(field::mac, source::l2port, node, node == 0 ? "00:26:5e:00:0b:77" : "00:26:5e:00:0a:02");
  find("TC-110", field::mac, "0/0/CPU0", layer::dpa);
  find("TC-206", field::mac, "0/2/CPU0", layer::bcm, finding_kind::programming);
  of.findings.back().known = "0026.5e00.0a02";
  of.findings.back().reported = "155";
  const judged_run is = judged();
  ASSERT_EQ(is.causes.size(), 2U);
  EXPECT_THAT(is.causes[0].findings, ElementsAre(0));
  EXPECT_EQ(is.causes[1].node, "0/2/CPU0");
  EXPECT_EQ(is.causes[1].first, layer::bcm);
  EXPECT_THAT(is.causes[1].findings, ElementsAre(1));
}

TEST_F(run_of_a_test, a_chip_that_is_compared_with_the_odd_value_is_right) {
  add_nodes(3);
  set(field::mac, source::bundle_manager, no_place, "0026.5e00.0b77");
  for (const std::int16_t node : {std::int16_t{0}, std::int16_t{1}, std::int16_t{2}})
    set(field::mac, source::l2port, node, "00:26:5e:00:0a:02");
  find("TC-206", field::mac, "0/2/CPU0", layer::bcm, finding_kind::programming);
  of.findings.back().known = "0026.5e00.0b77";
  of.findings.back().reported = "155";
  const judged_run is = judged();
  ASSERT_EQ(is.causes.size(), 1U);
  EXPECT_THAT(is.causes[0].findings, ElementsAre(0));
}

// The first node sets the LAG id for which the audit asks the chips of all nodes.
TEST_F(run_of_a_test, a_chip_that_lacks_the_odd_lag_id_is_right) {
  add_nodes(3);
  set(field::lag_id, source::lagport, 0, "0x401");
  const auto ask = [&](const char* code, const char* on, const char* name, finding_kind kind) {
    find(code, field::presence, on, layer::bcm, kind);
    const bool is_bundle = std::string_view(name) == "BE1";
    of.findings.back().object = {is_bundle ? object_kind::bundle : object_kind::member, "BE1",
                                 name};
  };
  ask("TC-115", "0/2/CPU0", "BE1", finding_kind::inconsistency);
  of.findings.back().known = "0x401";
  ask("TC-751", "0/1/CPU0", "0/1/0/0", finding_kind::failure);
  of.findings.back().text = "no key 'LAG 0x401': BCM member verification failed for 0/1/0/0";
  ask("TC-751", "0/2/CPU0", "0/2/0/0", finding_kind::failure);
  of.findings.back().text = "no key '0x401': BCM member verification failed for 0/2/0/0";
  ask("TC-115", "0/1/CPU0", "BE1", finding_kind::inconsistency);
  of.findings.back().known = "0x1";
  ask("TC-117", "0/2/CPU0", "0/2/0/0", finding_kind::inconsistency);
  const judged_run is = judged();
  ASSERT_EQ(is.causes.size(), 3U);
  EXPECT_THAT(is.causes[0].findings, ElementsAre(0, 1, 2));
  EXPECT_THAT(is.causes[1].findings, ElementsAre(3));
  EXPECT_THAT(is.causes[2].findings, ElementsAre(4));
}

// The audit asks every chip for 0x401, and hears of none which of them have the right LAG.
TEST_F(run_of_a_test, a_chip_without_the_lag_is_found_behind_a_lag_id_that_differs) {
  add_nodes(4);
  for (std::size_t i = 0; i < of.nodes.size(); ++i) of.nodes[i].id = std::to_string(4 + i);
  set(field::lag_id, source::lagport, 0, "0x401");
  const auto has = [&](std::int16_t node, std::vector<const char*> lags) {
    for (const char* lag : lags) of.chip_lags[{node, 0}].push_back(of.texts.keep(lag));
  };
  has(0, {"0x9"});
  has(1, {"0x1", "0x9"});
  has(2, {"0x9", "0x401"});
  has(3, {"0x01"});
  find("TC-115", field::presence, "0/0/CPU0", layer::bcm);
  of.findings.back().known = "0x401";
  const judged_run is = judged();
  ASSERT_EQ(is.causes.size(), 2U);
  EXPECT_THAT(is.causes[0].title, HasSubstr("BE1: LAG id is 0x401 on 0/0/CPU0 (DPA)"));
  EXPECT_THAT(is.causes[0].findings, ElementsAre(0));
  EXPECT_EQ(is.causes[1].title,
            "BE1: missing on 0/0/CPU0 NPU 0, 0/2/CPU0 NPU 0 (BCM, asic_shell_show)");
  EXPECT_EQ(is.causes[1].why, "2 of 4 chips have its LAG, by the id of their node or of most");
  const std::string lags = "/opt/nos/bin/asic_shell_show -c \"diag lag\" -u 0 -n ";
  EXPECT_EQ(is.causes[1].next, lags + "4; " + lags + "6");
}

// Jericho2 is asked for the LAGs of sub-bundles as the older chips are.
TEST_F(run_of_a_test, a_chip_of_each_family_without_the_lag_of_a_sub_bundle_is_found) {
  add_nodes(4);
  of.has_hqos = true;
  for (node& one : of.nodes) one.asic = jericho2;
  const auto lag_cells = of.objects[bundle].cells;
  bundle = of.object_at(object_kind::sub_bundle, "BE1", "BE1.1");
  of.objects[bundle].is_configured = true;
  of.objects[bundle].cells = lag_cells;
  set(field::lag_id, source::lagport, 0, "0x401");
  for (const std::int16_t node : {std::int16_t{0}, std::int16_t{1}, std::int16_t{2}})
    of.chip_lags[{node, 0}].push_back(of.texts.keep("0x1"));
  of.chip_lags[{3, 0}].push_back(of.texts.keep("0x9"));
  const judged_run is = judged();
  ASSERT_EQ(is.causes.size(), 2U);
  EXPECT_EQ(is.causes[1].title, "BE1.1: missing on 0/3/CPU0 NPU 0 (BCM, asic_shell_show)");
}

// It was programmed from the odd id, or the odd id is only in the layer above.
TEST_F(run_of_a_test, a_chip_with_the_lag_under_an_id_of_its_node_lacks_nothing) {
  add_nodes(4);
  set(field::lag_id, source::lagport, 0, "0x401");
  of.chip_lags[{0, 0}].push_back(of.texts.keep("0x401"));
  for (const std::int16_t node : {std::int16_t{1}, std::int16_t{2}})
    of.chip_lags[{node, 0}].push_back(of.texts.keep("0x1"));
  const judged_run is = judged();
  ASSERT_EQ(is.causes.size(), 1U) << "the LAGs of the last chip are not in the logs";
  EXPECT_EQ(is.causes[0].differences.size(), 1U);
}

TEST_F(run_of_a_test, a_chip_may_have_the_lag_under_any_of_the_ids_of_a_tie) {
  add_nodes(2);
  set(field::lag_id, source::agent, 0, "0x401");
  set(field::lag_id, source::lagport, 0, "0x401");
  for (const std::int16_t node : {std::int16_t{0}, std::int16_t{1}})
    of.chip_lags[{node, 0}].push_back(of.texts.keep("0x1"));
  const judged_run is = judged();
  ASSERT_EQ(is.causes.size(), 1U);
  EXPECT_EQ(is.causes[0].differences.size(), 1U);
  EXPECT_EQ(is.causes[0].differences[0].what, field::lag_id);
}

TEST_F(run_of_a_test, a_lag_of_another_bundle_is_none_of_this_one) {
  add_nodes(4);
  const std::size_t other = of.object_at(object_kind::bundle, "BE2", "BE2");
  of.lag_ids[of.texts.keep("0x2")].push_back(other);
  set(field::lag_id, source::lagport, 0, "0x2");
  of.chip_lags[{0, 0}].push_back(of.texts.keep("0x02"));
  for (const std::int16_t node : {std::int16_t{1}, std::int16_t{2}, std::int16_t{3}})
    of.chip_lags[{node, 0}].push_back(of.texts.keep("0x1"));
  const judged_run is = judged();
  ASSERT_EQ(is.causes.size(), 2U);
  EXPECT_EQ(is.causes[1].title, "BE1: missing on 0/0/CPU0 NPU 0 (BCM, asic_shell_show)");
}

TEST_F(run_of_a_test, as_many_chips_without_the_lag_are_listed_as_a_router_can_have) {
  constexpr std::int16_t chips = 1000;
  add_nodes(2);
  set(field::lag_id, source::lagport, 0, "0x401");
  for (std::int16_t npu = 0; npu < chips; ++npu) {
    of.chip_lags[{1, npu}].push_back(of.texts.keep(npu < 2 ? "0x1" : "0x9"));
    coverage& read = of.covered.emplace_back();
    read.of = layer::bcm;
    read.node = of.nodes[1].name;
    read.npu = std::to_string(npu);
    read.state = coverage_state::read;
  }
  const judged_run is = judged();
  ASSERT_EQ(is.causes.size(), 2U);
  ASSERT_EQ(is.causes[1].differences.size(), 1U);
  EXPECT_EQ(is.causes[1].differences[0].witnesses.size(), 300U);
  EXPECT_THAT(is.causes[1].why, HasSubstr("2 of 1000 chips have its LAG"));
}

TEST_F(run_of_a_test, a_chip_that_lacks_the_odd_global_lif_is_right) {
  add_nodes(4);
  set(field::lif, source::l2port, 0, "0x00014500");
  find("TC-204", field::lif, "0/2/CPU0", layer::bcm, finding_kind::programming);
  of.findings.back().known = "0x14500";
  find("TC-204", field::lif, "0/3/CPU0", layer::bcm, finding_kind::programming);
  of.findings.back().known = "0x14000";
  const judged_run is = judged();
  ASSERT_EQ(is.causes.size(), 2U);
  EXPECT_THAT(is.causes[0].findings, ElementsAre(0));
  EXPECT_THAT(is.causes[1].findings, ElementsAre(1));
}

// The audit looks a LAG and its members up by their ids, never by what is programmed with them.
TEST_F(run_of_a_test, a_lag_that_a_chip_lost_is_no_part_of_another_lif_or_rif) {
  for (const field what : {field::lif, field::rif}) {
    of = run();
    SetUp();
    add_nodes(4);
    if (what == field::rif)
      for (const std::int16_t node : {std::int16_t{0}, std::int16_t{1}, std::int16_t{2}})
        set(what, source::l2port, node, "0x11");
    set(what, source::l2port, 3, "0x00014500");
    find("TC-115", field::presence, "0/3/CPU0", layer::bcm);
    find("TC-203", field::presence, "0/3/CPU0", layer::bcm, finding_kind::programming);
    find("TC-750", field::none, "0/3/CPU0", layer::bcm, finding_kind::failure);
    const judged_run is = judged();
    ASSERT_EQ(is.causes.size(), 2U);
    EXPECT_THAT(is.causes[0].findings, ElementsAre(1));
    EXPECT_EQ(is.causes[1].title, "BE1: missing on 0/3/CPU0 (BCM)");
    EXPECT_THAT(is.causes[1].findings, ElementsAre(0, 2));
    EXPECT_THAT(is.causes[1].next, HasSubstr("diag lag"));
  }
}

TEST_F(run_of_a_test, a_note_about_an_object_that_differs_is_normal_all_the_same) {
  add_nodes(3);
  set(field::lif, source::l2port, 0, "0x00014500");
  find("TC-616", field::none, "", layer::config, finding_kind::note);
  const judged_run is = judged();
  ASSERT_EQ(is.causes.size(), 1U);
  EXPECT_THAT(is.causes[0].findings, IsEmpty());
  EXPECT_THAT(is.unexplained, ElementsAre(0));
}

TEST_F(run_of_a_test, a_sub_bundle_whose_lif_was_not_verified_leaves_its_bundle_unjudged) {
  add_nodes(2);
  find("TC-760", field::lif, "0/0/CPU0", layer::bcm, finding_kind::failure);
  of.findings.back().object = {object_kind::sub_bundle, "BE1", "BE1.1"};
  const judged_run is = judged();
  EXPECT_EQ(is.bundles.at(0).is, verdict::not_judged);
  ASSERT_EQ(is.causes.size(), 1U);
  EXPECT_EQ(is.causes[0].how_sure, sureness::unknown);
  EXPECT_EQ(exit_status(is), 3);
}

TEST_F(run_of_a_test, a_sub_bundle_without_any_lif_to_verify_is_normal) {
  add_nodes(2);
  find("TC-207", field::lif, "0/0/CPU0", layer::bcm, finding_kind::note);
  of.findings.back().object = {object_kind::sub_bundle, "BE1", "BE1.1"};
  const judged_run is = judged();
  EXPECT_EQ(is.bundles.at(0).is, verdict::agrees);
  EXPECT_TRUE(is.causes.empty());
  EXPECT_THAT(is.unexplained, ElementsAre(0));
  EXPECT_EQ(exit_status(is), 0);
}

TEST_F(run_of_a_test, what_is_missing_on_one_node_does_not_explain_another) {
  add_nodes(3);
  auto& cells = of.objects[bundle].cells;
  std::erase_if(cells, [](const cell& c) { return c.from == source::lagport && c.node == 0; });
  find("TC-102", field::presence, "0/0/CPU0", layer::dpa);
  find("TC-115", field::presence, "0/2/CPU0", layer::bcm);
  find("TC-748", field::none, "0/1/CPU0", layer::dpa, finding_kind::failure);
  const judged_run is = judged();
  ASSERT_EQ(is.causes.size(), 3U);
  EXPECT_THAT(is.causes[0].findings, ElementsAre(0));
  EXPECT_THAT(is.causes[1].findings, ElementsAre(1));
  EXPECT_THAT(is.causes[2].findings, ElementsAre(2));
}

TEST_F(run_of_a_test, several_odd_values_stand_with_their_own_nodes) {
  add_nodes(5);
  set(field::lag_id, source::lagport, 0, "0x501");
  set(field::lag_id, source::lagport, 1, "0x777");
  const judged_run is = judged();
  ASSERT_EQ(is.causes.size(), 1U);
  EXPECT_THAT(is.causes[0].title, HasSubstr("0x501 on 0/0/CPU0 (DPA), 0x777 on 0/1/CPU0 (DPA)"));
  EXPECT_EQ(is.causes[0].node, "");
}

TEST_F(run_of_a_test, a_failure_that_names_no_bundle_leaves_none_judged) {
  add_nodes(3);
  find("TC-727", field::none, "", layer::none, finding_kind::failure);
  of.findings.back().object = {};
  const judged_run is = judged();
  EXPECT_EQ(is.bundles[0].is, verdict::not_judged);
  EXPECT_EQ(exit_status(is), 3);
}

TEST_F(run_of_a_test, a_log_that_is_lost_may_have_held_findings) {
  add_nodes(3);
  of.lost_logs = {"tessel_programming_error.log"};
  const judged_run is = judged();
  EXPECT_EQ(is.bundles[0].is, verdict::not_judged);
  EXPECT_EQ(exit_status(is), 3);
}

TEST_F(run_of_a_test, two_nodes_cannot_outvote_each_other) {
  add_nodes(2);
  set(field::lif, source::l2port, 0, "0x00014500");
  const judged_run is = judged();
  ASSERT_EQ(is.causes.size(), 1U);
  EXPECT_EQ(is.causes[0].node, "");
  EXPECT_EQ(is.causes[0].how_sure, sureness::two_nodes);
}

TEST_F(run_of_a_test, four_nodes_can_tie) {
  add_nodes(4);
  set(field::lif, source::l2port, 0, "0x00014500");
  set(field::lif, source::l2port, 1, "0x00014500");
  EXPECT_EQ(judged().causes.at(0).how_sure, sureness::tie);
}

TEST_F(run_of_a_test, values_are_compared_as_the_layers_mean_them) {
  add_nodes(3);
  set(field::lag_id, source::lagport, 1, "0x0001");
  set(field::lif, source::l2port, 2, "0x4000");  // the last four digits count
  EXPECT_THAT(judged().causes, IsEmpty());
}

// The last four characters count, so one of three digits and a longer one differ.
TEST_F(run_of_a_test, a_short_global_lif_is_no_end_of_a_long_one) {
  add_nodes(2);
  set(field::lif, source::l2port, 0, "0x00010123");
  set(field::lif, source::l2port, 1, "0x00000123");
  find("TC-108", field::lif, "0/1/CPU0", layer::dpa);
  of.findings.back().reported = "0x123";
  of.findings.back().known = "0x10123";
  const judged_run is = judged();
  ASSERT_EQ(is.causes.size(), 1U);
  EXPECT_EQ(is.causes[0].title,
            "BE1: global LIF is 0x00010123 on 0/0/CPU0 (DPA), 0x00000123 on 0/1/CPU0 (DPA)");
  EXPECT_EQ(is.causes[0].how_sure, sureness::two_nodes);
  EXPECT_EQ(is.bundles.at(0).is, verdict::differs);
  EXPECT_EQ(exit_status(is), 1);
}

TEST_F(run_of_a_test, what_is_not_there_is_missing_only_where_the_table_was_read) {
  add_nodes(3);
  auto& cells = of.objects[bundle].cells;
  std::erase_if(cells, [](const cell& c) { return c.from == source::lagport && c.node == 2; });
  const judged_run is = judged();
  ASSERT_EQ(is.causes.size(), 1U);
  EXPECT_EQ(is.causes[0].node, "0/2/CPU0");
  EXPECT_THAT(is.causes[0].title, HasSubstr("missing on 0/2/CPU0"));
}

TEST_F(run_of_a_test, a_node_that_was_not_read_is_one_cause_and_never_agreement) {
  add_nodes(3);
  auto& cells = of.objects[bundle].cells;
  std::erase_if(cells, [](const cell& c) { return layer_of(c.from) == layer::dpa && c.node == 2; });
  for (const source table :
       {source::lagport, source::l1port, source::l2port, source::l2intf, source::l3intf})
    of.tables.erase({table, 2, no_place});
  of.complaints.emplace_back("ssh: connect to host 192.0.0.2 port 22: No route to host");
  find("TC-747", field::none, "0/2/CPU0", layer::dpa, finding_kind::failure);
  find("TC-102", field::presence, "0/2/CPU0", layer::dpa);
  const judged_run is = judged();
  ASSERT_EQ(is.causes.size(), 1U);
  EXPECT_EQ(is.causes[0].node, "0/2/CPU0");
  EXPECT_THAT(is.causes[0].title, HasSubstr("No route to host"));
  EXPECT_THAT(is.causes[0].findings, ElementsAre(0, 1));
  EXPECT_THAT(is.bundles[0].not_judged, testing::Not(IsEmpty()));
  EXPECT_FALSE(is.is_wholly_judged);
}

// The agents' table was read. That it has no row of a node is one reason for all bundles there.
TEST_F(run_of_a_test, what_an_agent_shows_of_no_bundle_is_missing_there) {
  for (const bool has_complained : {false, true}) {
    of = run();
    SetUp();
    add_nodes(3);
    add_bundle("BE2");
    add_bundle("BE3");
    for (const char* name : {"BE1", "BE2"})
      of.places[of.object_at(object_kind::member, name, "0/2/0/0")].node = 2;
    of.places[of.object_at(object_kind::member, "BE3", "0/0/0/0")].node = 0;
    for (object& one : of.objects)
      std::erase_if(one.cells,
                    [](const cell& c) { return c.from == source::agent && c.node == 2; });
    of.tables.erase({source::agent, 2, no_place});
    if (has_complained) of.complaints.emplace_back("lagmgr_agent_show: no answer from an agent");
    for (int i = 0; i < 2; ++i) {
      find("TC-101", field::presence, "0/2/CPU0", layer::pd);
      of.findings.back().object = {object_kind::node, "", "0/2/CPU0"};
    }
    const judged_run is = judged();
    ASSERT_EQ(is.causes.size(), 1U);
    EXPECT_THAT(is.causes[0].findings, ElementsAre(0, 1));
    const auto expected = has_complained ? verdict::not_judged : verdict::differs;
    for (const std::size_t i : {std::size_t{0}, std::size_t{1}})
      EXPECT_EQ(is.bundles.at(i).is, expected);
    EXPECT_EQ(is.bundles.at(2).is, verdict::not_judged);
    if (has_complained) continue;
    EXPECT_THAT(is.causes[0].title,
                HasSubstr("0/2/CPU0: the agents (PD) empty: the agents' table"));
    EXPECT_EQ(is.causes[0].differences.size(), 2U);
    EXPECT_EQ(is.bundles[0].findings, 1U);
    EXPECT_EQ(is.bundles[1].findings, 1U);
    EXPECT_EQ(is.bundles[0].first, layer::pd);
  }
}

// The audit reaches the chips of a node only where the layers above hold the object.
TEST_F(run_of_a_test, what_a_chip_lacks_is_not_explained_by_a_layer_above_that_was_not_read) {
  add_nodes(3);
  of.places[of.object_at(object_kind::member, "BE1", "0/0/0/0")].node = 0;
  of.places[of.object_at(object_kind::member, "BE2", "0/2/0/0")].node = 2;
  auto& cells = of.objects[bundle].cells;
  std::erase_if(cells, [](const cell& c) { return c.from == source::agent && c.node == 2; });
  of.tables.erase({source::agent, 2, no_place});
  find("TC-115", field::presence, "0/2/CPU0", layer::bcm);
  of.findings.back().npu = "0";
  const judged_run is = judged();
  ASSERT_EQ(is.causes.size(), 2U);
  EXPECT_EQ(is.causes[0].title, "BE1: missing on 0/2/CPU0 NPU 0 (BCM)");
  EXPECT_EQ(is.bundles.at(0).first, layer::bcm);
  EXPECT_THAT(is.causes[1].findings, IsEmpty());
}

TEST_F(run_of_a_test, a_layer_that_was_not_read_shows_beside_one_that_was) {
  add_nodes(4);
  set(field::lag_id, source::agent, 0, "0x401");
  auto& cells = of.objects[bundle].cells;
  std::erase_if(cells, [](const cell& c) { return layer_of(c.from) == layer::dpa && c.node == 2; });
  for (const source table :
       {source::lagport, source::l1port, source::l2port, source::l2intf, source::l3intf})
    of.tables.erase({table, 2, no_place});
  const judged_run is = judged();
  const auto lag = std::find_if(is.causes.begin(), is.causes.end(), [](const cause& one) {
    return !one.differences.empty() && one.differences[0].what == field::lag_id;
  });
  ASSERT_NE(lag, is.causes.end());
  const auto& witnesses = lag->differences[0].witnesses;
  EXPECT_TRUE(std::any_of(witnesses.begin(), witnesses.end(), [](const witness& w) {
    return w.is == witness::state::not_read && w.node == "0/2/CPU0" &&
           layer_of(w.from) == layer::dpa;
  })) << "the agent of that node was read, its forwarding objects were not";
}

TEST_F(run_of_a_test, a_layer_read_in_part_does_not_explain_the_layers_below) {
  add_nodes(3);
  find("TC-723", field::none, "", layer::config, finding_kind::failure);
  find("TC-752", field::none, "0/2/CPU0", layer::bcm, finding_kind::failure);
  const judged_run is = judged();
  EXPECT_EQ(is.causes.size(), 2U);
}

TEST_F(run_of_a_test, a_failure_alone_is_not_judged) {
  add_nodes(3);
  find("TC-747", field::none, "0/2/CPU0", layer::dpa, finding_kind::failure);
  const judged_run is = judged();
  EXPECT_EQ(is.bundles[0].is, verdict::not_judged);
  EXPECT_EQ(exit_status(is), 3);
}

TEST_F(run_of_a_test, a_message_about_all_bundles_has_one_cause) {
  add_nodes(3);
  for (const char* name : {"BE2", "BE3", "BE4"}) {
    const auto other = of.object_at(object_kind::bundle, name, name);
    of.objects[other].is_configured = true;
    of.objects[other].cells = of.objects[bundle].cells;
  }
  for (const char* name : {"BE1", "BE2", "BE3", "BE4"}) {
    find("TC-743", field::none, "0/1/CPU0", layer::pi, finding_kind::failure);
    of.findings.back().object = {object_kind::bundle, name, name};
  }
  const judged_run is = judged();
  ASSERT_EQ(is.causes.size(), 1U);
  EXPECT_THAT(is.causes[0].title, HasSubstr("4 of 4 bundles"));
}

// Every bundle has a wrong MTU in the chips of one node, and one of them in that of another.
TEST_F(run_of_a_test, a_message_about_all_bundles_of_a_node_names_the_node) {
  for (const bool is_elsewhere : {false, true}) {
    of = run();
    SetUp();
    add_nodes(3);
    for (const char* name : {"BE1", "BE2", "BE3", "BE4"}) {
      add_bundle(name);
      find("TC-118", field::mtu, "0/0/CPU0", layer::bcm);
      of.findings.back().object = {object_kind::member, name, "0/0/0/1"};
    }
    if (is_elsewhere) {
      find("TC-118", field::mtu, "0/1/CPU0", layer::bcm);
      of.findings.back().object = {object_kind::member, "BE4", "0/1/0/1"};
    }
    const judged_run is = judge(std::move(of));
    const auto common = std::find_if(is.causes.begin(), is.causes.end(),
                                     [](const cause& one) { return one.findings.size() == 4; });
    ASSERT_NE(common, is.causes.end());
    EXPECT_EQ(common->node, "0/0/CPU0");
    EXPECT_EQ(common->title, "4 of 4 bundles on 0/0/CPU0: the same message of each: a message");
    const auto other = std::find_if(is.causes.begin(), is.causes.end(),
                                    [](const cause& one) { return one.node == "0/1/CPU0"; });
    ASSERT_EQ(other != is.causes.end(), is_elsewhere);
    if (is_elsewhere) {
      EXPECT_THAT(other->findings, ElementsAre(4));
    }
  }
}

TEST_F(run_of_a_test, a_message_about_all_bundles_names_the_nodes_that_share_it) {
  add_nodes(3);
  for (const char* name : {"BE1", "BE2", "BE3", "BE4"}) {
    add_bundle(name);
    const bool is_first = std::string_view(name) < "BE3";
    find("TC-118", field::mtu, is_first ? "0/0/CPU0" : "0/2/CPU0", layer::bcm);
    of.findings.back().object = {object_kind::member, name, is_first ? "0/0/0/1" : "0/2/0/1"};
  }
  const judged_run is = judge(std::move(of));
  const auto common = std::find_if(is.causes.begin(), is.causes.end(),
                                   [](const cause& one) { return one.findings.size() == 4; });
  ASSERT_NE(common, is.causes.end());
  EXPECT_EQ(common->node, "");
  EXPECT_THAT(common->title, testing::StartsWith("4 of 4 bundles on 0/0/CPU0, 0/2/CPU0: "));
}

// The same message of two chips of a card, and of one chip of another card.
TEST_F(run_of_a_test, what_is_next_after_a_message_about_all_bundles_asks_each_of_its_chips) {
  add_nodes(2);
  of.nodes[0].id = "4";
  of.nodes[1].id = "5";
  for (const char* name : {"BE2", "BE3", "BE4"}) add_bundle(name);
  for (const auto& [node, npu] : std::vector<std::pair<const char*, const char*>>{
           {"0/0/CPU0", "0"}, {"0/0/CPU0", "1"}, {"0/1/CPU0", "1"}})
    for (const char* name : {"BE1", "BE2", "BE3", "BE4"}) {
      find("TC-118", field::mtu, node, layer::bcm);
      of.findings.back().object = {object_kind::bundle, name, name};
      of.findings.back().npu = npu;
    }
  const judged_run is = judged();
  ASSERT_EQ(is.causes.size(), 1U);
  const std::string table =
      "/opt/nos/bin/asic_shell_show -c \"dump EPNI_PACKETPROCESSING_PORT_CONFIGURATION_TABLE\" ";
  EXPECT_EQ(is.causes[0].next, table + "-u all -n 4; " + table + "-u 1 -n 5");
}

TEST_F(run_of_a_test, what_is_next_after_chips_that_were_not_read_asks_all_of_them) {
  add_nodes(2);
  of.nodes[0].id = "4";
  of.nodes[0].npus = {"0", "1"};
  of.nodes[1].id = "5";
  for (node& each : of.nodes) each.has_supported_asic = false;
  const judged_run is = judged();
  ASSERT_EQ(is.causes.size(), 1U);
  const std::string table = "/opt/nos/bin/asic_shell_show -c \"diag lag\" ";
  EXPECT_EQ(is.causes[0].next, table + "-u all -n 4; " + table + "-u 0 -n 5");
}

TEST_F(run_of_a_test, what_is_next_after_dozens_of_nodes_names_the_first_and_how_many_are_left) {
  add_nodes(12);
  for (std::size_t i = 0; i < of.nodes.size(); ++i) {
    of.nodes[i].id = std::to_string(i);
    of.nodes[i].has_supported_asic = false;
  }
  const judged_run is = judged();
  ASSERT_EQ(is.causes.size(), 1U);
  EXPECT_THAT(is.causes[0].next, testing::EndsWith(" -n 2; /opt/nos/bin/asic_shell_show -c \"diag "
                                                   "lag\" -u 0 -n 3  # and so on: 8 more"));
}

TEST_F(run_of_a_test, a_run_that_left_nothing_says_where_to_look) {
  of = run();
  of.marks = {"cannot read tessel_debug.log: No such file or directory"};
  const judged_run is = judged();
  ASSERT_EQ(is.causes.size(), 1U);
  EXPECT_THAT(is.causes[0].title, HasSubstr("ended at its start"));
  EXPECT_EQ(exit_status(is), 3);
}

// A route processor with ports: one on each of two chips, of which the agents list the bundle only.
class run_with_ports : public run_of_a_test {
 protected:
  void add_members(std::int16_t node, std::vector<std::int16_t> npus) {
    for (const std::int16_t npu : npus)
      of.places[of.object_at(object_kind::member, "BE1", "0/0/0/" + std::to_string(npu))] = {
          node, npu, "0", "1"};
  }
  void make_route_processor(std::size_t index, const std::string& role) {
    of.nodes[index].type = "RP";
    of.nodes[index].role = role;
  }
  // As the audit leaves a node out whose table prints no object.
  void leave_out(std::int16_t index) {
    node& out = of.nodes[static_cast<std::size_t>(index)];
    out.takes_part = false;
    of.tables.erase({source::lagport, index, no_place});
    std::erase_if(of.objects[bundle].cells,
                  [&](const cell& c) { return c.node == index && layer_of(c.from) == layer::dpa; });
    find("TC-611", field::none, out.name, layer::dpa, finding_kind::note);
    of.findings.back().object = {object_kind::node, "", out.name};
  }
  const coverage& covered(layer in, const std::string& on, const std::string& npu = {}) {
    fill_coverage(of);
    const coverage* found = coverage_of(of, in, on, npu);
    return found == nullptr ? of.covered.emplace_back() : *found;
  }
};

TEST_F(run_with_ports, that_was_left_out_is_not_judged) {
  add_nodes(2);
  make_route_processor(0, "Active");
  add_members(0, {0});
  leave_out(0);
  const judged_run is = judged();
  ASSERT_EQ(is.causes.size(), 1U);
  EXPECT_EQ(is.causes[0].node, "0/0/CPU0");
  EXPECT_EQ(is.bundles.at(0).is, verdict::not_judged);
  EXPECT_EQ(exit_status(is), 3);
}

// It has the members of the active one, though its agent lists none of them.
TEST_F(run_with_ports, whose_live_standby_was_left_out_is_not_judged) {
  add_nodes(3);
  make_route_processor(0, "Active");
  make_route_processor(1, "Standby");
  add_members(0, {0});
  leave_out(1);
  of.tables.erase({source::agent, 1, no_place});
  const judged_run is = judged();
  ASSERT_EQ(is.causes.size(), 1U);
  EXPECT_EQ(is.causes[0].node, "0/1/CPU0");
  EXPECT_EQ(exit_status(is), 3);
}

TEST_F(run_with_ports, whose_live_standby_shows_no_lag_is_not_judged) {
  add_nodes(2);
  make_route_processor(0, "Active");
  make_route_processor(1, "Standby");
  add_members(0, {0});
  of.tables.erase({source::agent, 1, no_place});
  EXPECT_EQ(covered(layer::bcm, "0/1/CPU0", "0").state, coverage_state::read);
  of.covered.clear();
  find("TC-615", field::none, "0/1/CPU0", layer::bcm, finding_kind::note);
  EXPECT_TRUE(is_hole(covered(layer::bcm, "0/1/CPU0", "0")));
  EXPECT_FALSE(is_hole(*coverage_of(of, layer::pd, "0/1/CPU0", "")));
}

// Of a route processor without ports the other tables say whether it has the bundles.
TEST_F(run_with_ports, may_be_none_only_where_no_other_table_has_a_bundle) {
  add_nodes(2);
  make_route_processor(1, "Active");
  of.tables.erase({source::agent, 1, no_place});
  find("TC-615", field::none, "0/1/CPU0", layer::bcm, finding_kind::note);
  EXPECT_TRUE(is_hole(covered(layer::bcm, "0/1/CPU0", "0")));
  of.covered.clear();
  for (const source table :
       {source::lagport, source::l1port, source::l2port, source::l2intf, source::l3intf})
    of.tables.erase({table, 1, no_place});
  EXPECT_FALSE(is_hole(covered(layer::bcm, "0/1/CPU0", "0")));
}

// The audit then leaves the whole node out, so nobody compares what its other tables hold.
TEST_F(run_with_ports, left_out_beside_bundles_of_its_own_is_not_judged) {
  struct left_out {
    const char* description;
    std::vector<std::string> notes;
    bool is_card;
    bool has_members;
    bool has_bundles;
    bool is_open;
  };
  for (const left_out& one : std::vector<left_out>{
           {"no ports", {"TC-612"}, false, false, true, true},
           {"nothing routed", {"TC-614"}, false, false, true, true},
           {"neither", {"TC-612", "TC-614"}, false, false, true, true},
           {"no bundles", {"TC-611"}, false, false, true, true},
           {"no LAG", {"TC-615"}, false, false, true, true},
           {"nothing at all", {"TC-611", "TC-612", "TC-614"}, false, false, false, false},
           {"the members of the active one", {"TC-612"}, false, true, false, true},
           {"a line card with nothing at all", {"TC-611", "TC-614"}, true, false, false, true}}) {
    of = run();
    SetUp();
    add_nodes(2);
    make_route_processor(0, "Active");
    if (one.has_members) add_members(0, {0});
    if (!one.is_card) make_route_processor(1, "Standby");
    for (object& each : of.objects)
      std::erase_if(each.cells, [&](const cell& c) {
        return c.node == 1 && (c.from == source::agent || !one.has_bundles);
      });
    if (!one.has_bundles)
      std::erase_if(of.tables, [](const auto& table) { return std::get<1>(table.first) == 1; });
    of.nodes[1].takes_part = false;
    for (const std::string& code : one.notes) {
      find(code, field::none, "0/1/CPU0", code == "TC-615" ? layer::bcm : layer::dpa,
           finding_kind::note);
      of.findings.back().object = {object_kind::node, "", "0/1/CPU0"};
      of.findings.back().text = code;
    }
    const judged_run is = judged();
    const coverage* entry =
        coverage_of(is.of, one.notes[0] == "TC-615" ? layer::bcm : layer::dpa, "0/1/CPU0", "");
    ASSERT_NE(entry, nullptr) << one.description;
    EXPECT_EQ(is_hole(*entry), one.is_open) << one.description;
    EXPECT_EQ(is.bundles.at(0).is, one.is_open ? verdict::not_judged : verdict::agrees)
        << one.description;
    EXPECT_EQ(exit_status(is), one.is_open ? 3 : 0) << one.description;
  }
}

// Also where the log that would say so is lost.
TEST_F(run_with_ports, are_no_reason_for_a_chip_to_have_no_lag) {
  add_nodes(2);
  add_members(0, {0});
  for (object& one : of.objects)
    std::erase_if(one.cells, [](const cell& c) { return c.from == source::agent && c.node == 1; });
  of.tables[{source::chip_lag, 1, 0}] = 0;
  EXPECT_TRUE(is_hole(covered(layer::bcm, "0/1/CPU0", "0"))) << "a line card";
  of.covered.clear();
  make_route_processor(1, "Active");
  EXPECT_TRUE(is_hole(covered(layer::bcm, "0/1/CPU0", "0"))) << "its tables have the bundle";
  of.covered.clear();
  for (const source table :
       {source::lagport, source::l1port, source::l2port, source::l2intf, source::l3intf})
    of.tables.erase({table, 1, no_place});
  EXPECT_FALSE(is_hole(covered(layer::bcm, "0/1/CPU0", "0")));
}

TEST_F(run_with_ports, whose_node_has_no_address_asks_no_chip) {
  add_nodes(2);
  of.nodes[1].address.clear();
  EXPECT_EQ(covered(layer::bcm, "0/1/CPU0", "0").state, coverage_state::read) << "it has the table";
  of.covered.clear();
  of.tables.erase({source::chip_lag, 1, 0});
  for (const bool has_chip_tables : {true, false}) {
    of.has_chip_tables = has_chip_tables;
    of.covered.clear();
    const coverage& none = covered(layer::bcm, "0/1/CPU0", "0");
    EXPECT_EQ(none.state, coverage_state::never_asked);
    EXPECT_EQ(none.reason, "the list of nodes has no address for it");
    EXPECT_TRUE(is_hole(none));
  }
}

TEST_F(run_with_ports, on_a_chip_that_the_audit_does_not_ask_is_not_judged) {
  add_nodes(2);
  add_members(1, {0, 1});
  EXPECT_FALSE(is_hole(covered(layer::bcm, "0/1/CPU0", "0")));
  const coverage* second = coverage_of(of, layer::bcm, "0/1/CPU0", "1");
  ASSERT_NE(second, nullptr);
  EXPECT_EQ(second->state, coverage_state::never_asked);
  EXPECT_EQ(second->reason, "members sit on it, and of this node the audit asks NPU 0 only");
  EXPECT_EQ(second->command, "/opt/nos/bin/asic_shell_show -c \"diag lag\" -u 1 -n 1");
  EXPECT_EQ(coverage_of(of, layer::bcm, "0/0/CPU0", "1"), nullptr);
  of.covered.clear();
  EXPECT_EQ(judged().bundles.at(0).is, verdict::not_judged);
}

TEST_F(run_with_ports, on_chips_without_a_place_in_the_list_of_units_is_not_judged) {
  add_nodes(2);
  add_members(1, {0, 1});
  of.nodes[1].npus.clear();
  const coverage& none = covered(layer::bcm, "0/1/CPU0");
  EXPECT_EQ(none.state, coverage_state::never_asked);
  EXPECT_THAT(none.reason, HasSubstr("gives no chip of it a place"));
  EXPECT_THAT(none.command, HasSubstr("show unit"));
}

// The audit takes it for a node of the older chips and asks NPU 0.
TEST_F(run_with_ports, that_the_list_of_units_lacks_is_judged_by_what_was_asked) {
  add_nodes(2);
  for (node& each : of.nodes) each.asic.clear();
  make_route_processor(0, "Active");
  add_members(0, {0});
  EXPECT_EQ(covered(layer::bcm, "0/0/CPU0", "0").state, coverage_state::read);
  EXPECT_EQ(coverage_of(of, layer::bcm, "0/0/CPU0", ""), nullptr);
  const coverage* card = coverage_of(of, layer::bcm, "0/1/CPU0", "");
  ASSERT_NE(card, nullptr) << "how many chips the card has, nobody knows";
  EXPECT_EQ(card->state, coverage_state::never_asked);
  EXPECT_THAT(card->reason, HasSubstr("does not have it, so NPU 0 was asked, and which others it"));
  of.covered.clear();
  const judged_run is = judged();
  ASSERT_EQ(is.causes.size(), 1U);
  EXPECT_THAT(is.causes[0].title,
              testing::StartsWith("0/1/CPU0: other chips (BCM) never asked: the platform's list"));
}

TEST_F(run_with_ports, needs_no_agent_where_it_has_none) {
  add_nodes(3);
  add_members(0, {0});
  std::erase_if(of.objects[bundle].cells,
                [](const cell& c) { return c.from == source::agent && c.node == 2; });
  of.tables.erase({source::agent, 2, no_place});
  EXPECT_FALSE(is_hole(covered(layer::pd, "0/2/CPU0")));
  of.tables.erase({source::agent, 0, no_place});
  of.covered.clear();
  EXPECT_TRUE(is_hole(covered(layer::pd, "0/0/CPU0")));
}

TEST_F(run_of_a_test, the_journal_names_the_chip_that_printed_nothing) {
  add_nodes(1);
  of.nodes[0].npus = {"0", "1"};
  of.nodes[0].id = "4";
  finding& note = of.findings.emplace_back();
  note.code = "TC-615";
  note.kind = finding_kind::note;
  note.node = "0/0/CPU0";
  note.of = layer::bcm;
  note.text = "INFO: BCM hardware dont have any bundle data";
  of.log_of_commands.emplace();
  for (const char* npu : {"0", "1"}) {
    journal_command one;
    one.node = "0/0/CPU0";
    one.npu = npu;
    one.command = "asic_shell_show -c \"diag lag\" -u 0 -n 4 | grep x";
    one.has_ended = true;
    one.status = 0;
    one.bytes = std::string_view(npu) == "0" ? 0 : 100;
    of.log_of_commands->commands.push_back(one);
  }
  of.objects[bundle].cells.push_back(
      {field::lag_id, source::agent, 0, no_place, of.texts.keep("0x1")});
  const judged_run is = judged();
  const coverage* empty = coverage_of(is.of, layer::bcm, "0/0/CPU0", "0");
  ASSERT_NE(empty, nullptr);
  EXPECT_EQ(empty->state, coverage_state::empty);
  EXPECT_THAT(empty->reason, HasSubstr("printed nothing"));
  EXPECT_EQ(coverage_of(is.of, layer::bcm, "0/0/CPU0", "1")->state, coverage_state::unknown);
}

TEST_F(run_of_a_test, what_could_not_be_verified_on_each_of_several_nodes_is_no_cause_of_its_own) {
  add_nodes(3);
  std::erase_if(of.objects[bundle].cells,
                [](const cell& c) { return c.from == source::agent && c.node != 2; });
  for (const char* node : {"0/0/CPU0", "0/1/CPU0"}) {
    find("TC-102", field::presence, node, layer::pd);
    find("TC-746", field::none, node, layer::pd, finding_kind::failure);
    of.findings.back().object = {object_kind::member, "BE1", "0/0/0/1"};
  }
  const judged_run is = judged();
  ASSERT_EQ(is.causes.size(), 1U);
  EXPECT_THAT(is.causes[0].title, HasSubstr("missing on 0/0/CPU0, 0/1/CPU0 (PD"));
  EXPECT_EQ(is.causes[0].findings.size(), 4U);
}

// Without members a chip may have nothing to show in some tables.
TEST_F(run_of_a_test, the_journal_names_the_table_that_a_chip_with_members_did_not_print) {
  add_nodes(2);
  of.places[of.object_at(object_kind::member, "BE1", "0/0/0/1")] = {0, 0, "0", "1"};
  of.log_of_commands.emplace();
  for (const char* node : {"0/0/CPU0", "0/1/CPU0"}) {
    journal_command one;
    one.node = node;
    one.npu = "0";
    one.command = "asic_shell_show -c \"d IHP_VTT_IN_PP_PORT_CONFIG\" -u 0 -n 4 | grep x";
    one.has_ended = true;
    one.status = 1;
    one.bytes = 0;
    of.log_of_commands->commands.push_back(one);
  }
  const judged_run is = judged();
  const coverage* silent = coverage_of(is.of, layer::bcm, "0/0/CPU0", "0");
  ASSERT_NE(silent, nullptr);
  EXPECT_EQ(silent->state, coverage_state::partly);
  EXPECT_THAT(silent->reason, HasSubstr("IHP_VTT_IN_PP_PORT_CONFIG\" -u 0 -n 4`: printed nothing"));
  EXPECT_EQ(coverage_of(is.of, layer::bcm, "0/1/CPU0", "0")->state, coverage_state::read);
}

// Nobody knows how a command ended whose line is among those that the journal has lost.
TEST_F(run_of_a_test, a_journal_that_lacks_lines_does_not_say_what_had_not_ended) {
  for (const bool lacks_lines : {false, true}) {
    of = run();
    SetUp();
    add_nodes(1);
    journal_command open;
    open.node = "0/0/CPU0";
    open.command = "ssh 192.0.0.0 /opt/nos/bin/fwd_object_show -t l2port -D";
    of.log_of_commands.emplace().commands.push_back(open);
    of.log_of_commands->lacks_lines = lacks_lines;
    fill_coverage(of);
    EXPECT_EQ(coverage_of(of, layer::dpa, "0/0/CPU0", {})->state,
              lacks_lines ? coverage_state::read : coverage_state::partly);
  }
}

// The tools of the bundle manager, also those without a table of their own in the snapshot.
TEST_F(run_of_a_test, a_tool_of_the_router_that_was_ended_leaves_every_bundle_open) {
  for (const char* tool : {"iface_show", "ifmgr_show database", "lagmgr_health", "cfg_render"}) {
    of = run();
    SetUp();
    add_nodes(2);
    journal_command ended;
    ended.command = tool;
    ended.has_ended = true;
    ended.is_timed_out = true;
    ended.bytes = 10;
    of.log_of_commands.emplace().commands.push_back(ended);
    const judged_run is = judged();
    const std::string next = coverage_of(is.of, layer::pi, {}, {})->command;
    const bool is_of_pi = std::string_view(tool) != "cfg_render";
    EXPECT_EQ(testing::Value(next, testing::StartsWith(tool)), is_of_pi) << next;
    EXPECT_EQ(is.bundles.at(0).is, verdict::not_judged) << tool;
    EXPECT_EQ(exit_status(is), 3) << tool;
  }
}

// Tools that are silent, or not there, as the journal or the debug log says.
struct silence {
  const char* description;
  std::string tool;
  std::string complaint;
  std::string refusal;
  std::optional<int> status;
  bool is_in_journal;
  bool is_open;
};

class run_with_a_silent_tool : public run_of_a_test {
 protected:
  void prepare(const silence& one) {
    of = run();
    SetUp();
    add_nodes(3);
    of.object_at(object_kind::sub_bundle, "BE1", "BE1.1");
    of.nodes[0].type = of.nodes[1].type = "RP";
    of.nodes[0].role = "Active";
    of.nodes[1].role = "Standby";
    if (!one.complaint.empty()) of.complaints.push_back(one.complaint);
    if (!one.refusal.empty()) {
      find("TC-701", field::none, "", layer::none, finding_kind::failure);
      of.findings.back().object = {};
      of.findings.back().text = one.refusal;
    }
    if (one.is_in_journal) {
      journal_command ended;
      ended.command = one.tool + " | grep x";
      ended.has_ended = true;
      ended.status = one.status;
      ended.bytes = 0;
      of.log_of_commands.emplace().commands.push_back(ended);
    }
  }
};

TEST_F(run_with_a_silent_tool, leaves_every_bundle_open) {
  const silence silences[] = {
      {"silent", "iface_show -i", "", "", 1, true, true},
      {"silent", "ifmgr_show database", "", "", 0, true, true},
      {"silent", "lagmgr_health", "", "", 1, true, true},
      {"not asked for more", "sw_version_show", "", "", 0, true, false},
      {"not there", "iface_show -i", "sh: 1: iface_show: not found", "", {}, false, true},
      {"not there", "ifmgr_show database", "sh: 1: ifmgr_show: not found", "", {}, false, true},
      {"not there", "lagmgr_health", "sh: 1: lagmgr_health: not found", "", {}, false, true},
      {"refused",
       "iface_show -i",
       "",
       "cannot start /bin/sh: execution failed for iface_show -i",
       {},
       false,
       true}};
  for (const silence& one : silences) {
    prepare(one);
    const judged_run is = judged();
    const std::string what = one.description + (" " + one.tool);
    const coverage* entry = coverage_of(is.of, layer::pi, {}, {});
    EXPECT_EQ(entry->state, one.is_open ? coverage_state::partly : coverage_state::read) << what;
    if (one.is_open) {
      EXPECT_THAT(one.tool, testing::StartsWith(entry->command.substr(0, 10))) << what;
    }
    EXPECT_EQ(is.bundles.at(0).is, one.is_open ? verdict::not_judged : verdict::agrees) << what;
  }
}

// Without a second route processor health has nothing to report, and without sub-bundles none has
// an interface.
TEST_F(run_of_a_test, a_tool_of_the_router_may_have_nothing_to_say) {
  for (const char* tool : {"ifmgr_show database", "lagmgr_health"})
    for (const int status : {1, 127}) {
      of = run();
      SetUp();
      add_nodes(2);
      of.nodes[0].type = "RP";
      of.nodes[0].role = "Active";
      journal_command ended;
      ended.command = tool;
      ended.has_ended = true;
      ended.status = status;
      ended.bytes = 0;
      of.log_of_commands.emplace().commands.push_back(ended);
      fill_coverage(of);
      EXPECT_EQ(coverage_of(of, layer::pi, {}, {})->state,
                status == 1 ? coverage_state::read : coverage_state::partly)
          << tool;
    }
}

TEST_F(run_of_a_test, sub_bundles_that_a_missing_tool_does_not_list_are_one_cause) {
  add_nodes(2);
  for (const char* name : {"BE1.1", "BE1.2"}) add_missing_sub_bundle(name);
  of.counts[finding_kind::inconsistency] = 2;
  of.complaints.emplace_back("sh: 1: ifmgr_show: not found");
  const judged_run is = judged();
  ASSERT_EQ(is.causes.size(), 1U);
  EXPECT_EQ(is.causes[0].title,
            "the router: the bundle manager (PI) partly read: sh: 1: ifmgr_show: not found");
  EXPECT_EQ(is.causes[0].next, "ifmgr_show database -l 0x1 -a");
  EXPECT_THAT(is.causes[0].findings, ElementsAre(0, 1));
  EXPECT_EQ(is.bundles.at(0).is, verdict::not_judged);
  EXPECT_EQ(is.of.counts.at(finding_kind::inconsistency), 0U);
  EXPECT_EQ(is.of.counts.at(finding_kind::failure), 2U);
  EXPECT_EQ(exit_status(is), 3);
}

// The tool complained, and listed another sub-bundle, with a handle that may be readable or not.
TEST_F(run_of_a_test, a_sub_bundle_that_a_complaining_tool_does_not_list_is_missing) {
  for (const bool is_readable : {true, false}) {
    of = run();
    SetUp();
    add_nodes(2);
    add_missing_sub_bundle("BE1.1");
    const auto listed = of.object_at(object_kind::sub_bundle, "BE1", "BE1.2");
    if (is_readable)
      of.objects[listed].cells.push_back(
          {field::handle, source::interface_db, no_place, no_place, of.texts.keep("0x3000a60")});
    else
      find("TC-744", field::none, "", layer::pi, finding_kind::failure);
    of.complaints.emplace_back("ifmgr_show: the database is being rebuilt");
    const judged_run is = judged();
    ASSERT_EQ(is.causes.size(), 2U);
    EXPECT_EQ(is.causes[0].object.name, "BE1.1");
    EXPECT_THAT(is.causes[0].findings, ElementsAre(0));
    EXPECT_THAT(is.causes[1].title, HasSubstr("the database is being rebuilt"));
    EXPECT_EQ(is.bundles.at(0).is, verdict::differs);
    EXPECT_EQ(exit_status(is), 1);
  }
}

// Of the other sub-bundle it printed the handle before something ended it.
TEST_F(run_of_a_test, nothing_is_missing_from_a_list_of_sub_bundles_that_was_cut) {
  struct ending {
    const char* description;
    bool has_ended;
    bool is_timed_out;
    std::optional<int> signal;
    std::optional<int> status;
    const char* failed;
  };
  for (const ending& by : std::vector<ending>{{"open", false, false, {}, {}, ""},
                                              {"time", true, true, {}, {}, ""},
                                              {"signal", true, false, 9, {}, ""},
                                              {"status", true, false, {}, 2, ""},
                                              {"failed", true, false, {}, 0, "no memory"}}) {
    of = run();
    SetUp();
    add_nodes(2);
    add_missing_sub_bundle("BE1.1");
    const auto listed = of.object_at(object_kind::sub_bundle, "BE1", "BE1.2");
    of.objects[listed].cells.push_back(
        {field::handle, source::interface_db, no_place, no_place, of.texts.keep("0x3000a60")});
    journal_command& cut = of.log_of_commands.emplace().commands.emplace_back();
    cut.command = "ifmgr_show database -l 0x1 -a | grep -E BE";
    cut.has_ended = by.has_ended;
    cut.is_timed_out = by.is_timed_out;
    cut.signal = by.signal;
    cut.status = by.status;
    cut.failed = by.failed;
    cut.bytes = 60;
    const judged_run is = judged();
    ASSERT_EQ(is.causes.size(), 1U) << by.description;
    EXPECT_EQ(is.causes[0].next, "ifmgr_show database -l 0x1 -a") << by.description;
    EXPECT_EQ(is.bundles.at(0).is, verdict::not_judged) << by.description;
    EXPECT_EQ(exit_status(is), 3) << by.description;
  }
}

TEST_F(run_of_a_test, each_tool_of_the_router_that_is_missing_is_told) {
  for (const bool is_refused : {false, true}) {
    of = run();
    SetUp();
    add_nodes(2);
    add_missing_sub_bundle("BE1.1");
    for (const std::string tool : {"iface_show", "ifmgr_show"}) {
      if (!is_refused) of.complaints.push_back("sh: 1: " + tool + ": not found");
      if (!is_refused) continue;
      find("TC-701", field::none, "", layer::none, finding_kind::failure);
      of.findings.back().object = {};
      of.findings.back().text = "cannot start /bin/sh: execution failed for " + tool;
    }
    const judged_run is = judged();
    const auto hole = std::find_if(is.causes.begin(), is.causes.end(), [](const cause& one) {
      return one.title.find("(PI) partly read") != std::string::npos;
    });
    ASSERT_NE(hole, is.causes.end());
    EXPECT_THAT(hole->title, HasSubstr("iface_show"));
    EXPECT_THAT(hole->title, HasSubstr("ifmgr_show"));
    EXPECT_EQ(hole->next, "iface_show -i '.*'; ifmgr_show database -l 0x1 -a");
    EXPECT_THAT(hole->findings, testing::Contains(0U));
    EXPECT_EQ(exit_status(is), 3);
  }
}

// By the journal, one after the other.
TEST_F(run_of_a_test, a_second_silent_tool_of_the_router_explains_its_messages_too) {
  add_nodes(2);
  add_missing_sub_bundle("BE1.1");
  of.log_of_commands.emplace();
  for (const char* tool : {"iface_show -i '.*'", "ifmgr_show database -l 0x1 -a"}) {
    journal_command& silent = of.log_of_commands->commands.emplace_back();
    silent.command = tool;
    silent.has_ended = true;
    silent.status = 0;
    silent.bytes = 0;
  }
  const judged_run is = judged();
  ASSERT_EQ(is.causes.size(), 1U);
  EXPECT_EQ(is.causes[0].next, "iface_show -i '.*'; ifmgr_show database -l 0x1 -a");
  EXPECT_THAT(is.causes[0].findings, ElementsAre(0));
  EXPECT_EQ(exit_status(is), 3);
}

TEST_F(run_of_a_test, nothing_is_missing_from_a_table_that_was_cut) {
  add_nodes(3);
  auto& cells = of.objects[bundle].cells;
  std::erase_if(cells, [](const cell& c) { return c.from == source::l2port && c.node == 2; });
  of.tables.erase({source::lagport, 2, no_place});
  cells.push_back({field::system_port, source::agent, 2, no_place, of.texts.keep("0x1")});
  of.complaints.emplace_back("Connection to 192.0.0.2 closed by remote host.");
  find("TC-713", field::none, "0/2/CPU0", layer::dpa, finding_kind::failure);
  const judged_run is = judged();
  ASSERT_EQ(is.causes.size(), 1U);
  EXPECT_THAT(is.causes[0].title, HasSubstr("closed by remote host"));
  EXPECT_EQ(exit_status(is), 3);
}

TEST_F(run_of_a_test, nothing_is_missing_from_a_dump_that_is_cut_off) {
  add_nodes(3);
  const auto other = of.object_at(object_kind::bundle, "BE2", "BE2");
  of.objects[other].is_configured = true;
  of.stores = {{"BM PI", std::string(store_cut_off)}, {"BM PD", std::string(store_cut_off)}};
  const judged_run is = judged();
  ASSERT_EQ(is.causes.size(), 2U);
  EXPECT_THAT(is.causes[0].title, HasSubstr("(PI) partly read: the dump of BM PI"));
  EXPECT_THAT(is.causes[1].title, HasSubstr("(PD) partly read: the dump of BM PD"));
  EXPECT_EQ(exit_status(is), 3);
}

TEST_F(run_of_a_test, what_the_logs_end_before_is_unknown_and_not_empty) {
  of = run();
  of.has_snapshot = true;
  of.end = run_end::cut_off;
  const judged_run is = judged();
  EXPECT_EQ(coverage_of(is.of, layer::pi, {}, {})->state, coverage_state::unknown);
  EXPECT_THAT(is.causes, IsEmpty());
  EXPECT_EQ(exit_status(is), 3);
}

TEST_F(run_of_a_test, a_global_lif_that_no_node_has_is_of_none_in_particular) {
  add_nodes(3);
  for (const std::int16_t node : {std::int16_t{0}, std::int16_t{1}, std::int16_t{2}})
    set(field::lif, source::l2port, node, "0x00000000");
  // The audit asks only the nodes that have members.
  find("TC-109", field::lif, "0/1/CPU0", layer::dpa);
  const judged_run is = judged();
  ASSERT_EQ(is.causes.size(), 1U);
  EXPECT_EQ(is.causes[0].title, "BE1: no global LIF on 0/0/CPU0, 0/1/CPU0, 0/2/CPU0 (DPA)");
  EXPECT_EQ(is.causes[0].node, "");
}

TEST_F(run_of_a_test, a_global_lif_that_is_too_short_is_not_called_zero) {
  add_nodes(3);
  for (const std::int16_t node : {std::int16_t{0}, std::int16_t{1}, std::int16_t{2}})
    set(field::lif, source::l2port, node, node == 1 ? "0x14" : "0x00014000");
  find("TC-109", field::lif, "0/1/CPU0", layer::dpa);
  of.findings.back().reported = "0x14";
  const judged_run is = judged();
  ASSERT_EQ(is.causes.size(), 1U);
  EXPECT_THAT(is.causes[0].title, Not(HasSubstr("no global LIF")));
  EXPECT_THAT(is.causes[0].why, Not(HasSubstr("zero")));
  EXPECT_EQ(is.causes[0].node, "0/1/CPU0");
}

TEST_F(run_of_a_test, a_global_lif_that_is_too_short_on_all_nodes_is_of_none_in_particular) {
  add_nodes(2);
  for (const std::int16_t node : {std::int16_t{0}, std::int16_t{1}}) {
    set(field::lif, source::l2port, node, "0x00000012");
    find("TC-109", field::lif, node == 0 ? "0/0/CPU0" : "0/1/CPU0", layer::dpa);
    of.findings.back().reported = "0x12";
  }
  const judged_run is = judged();
  ASSERT_EQ(is.causes.size(), 1U);
  EXPECT_EQ(is.causes[0].title, "BE1: no global LIF on 0/0/CPU0, 0/1/CPU0 (DPA)");
  EXPECT_EQ(is.causes[0].why, "0x12 is too short for one");
  EXPECT_THAT(is.causes[0].findings, ElementsAre(0, 1));
}

TEST_F(run_of_a_test, the_type_is_that_of_the_forwarding_interface) {
  add_nodes(3);
  set(field::type, source::running_config, no_place, "layer 3");
  for (const std::int16_t node : {std::int16_t{0}, std::int16_t{1}, std::int16_t{2}})
    set(field::lif, source::l2intf, node, "0x00014000");
  const judged_run is = judged();
  ASSERT_EQ(is.causes.size(), 1U);
  EXPECT_EQ(is.causes[0].first, layer::config);
  EXPECT_THAT(is.causes[0].title, HasSubstr("layer 3 on the router (config)"));
}

TEST_F(run_of_a_test, a_lag_id_explains_what_the_chip_lacks_and_no_mtu) {
  add_nodes(3);
  set(field::lag_id, source::lagport, 0, "0x401");
  find("TC-104", field::lag_id, "0/0/CPU0", layer::dpa);
  find("TC-115", field::presence, "0/0/CPU0", layer::bcm);
  find("TC-118", field::mtu, "0/0/CPU0", layer::bcm);
  const judged_run is = judged();
  ASSERT_EQ(is.causes.size(), 2U);
  EXPECT_THAT(is.causes[0].findings, ElementsAre(0, 1));
  EXPECT_THAT(is.causes[1].findings, ElementsAre(2));
}

// A LIF that could not be looked up has nothing to do with a MAC.
TEST_F(run_of_a_test, what_could_not_be_verified_follows_only_from_what_it_is_looked_up_by) {
  for (const auto& [what, causes] :
       std::map<field, std::size_t>{{field::mac, 2}, {field::lag_id, 2}, {field::lif, 1}}) {
    of = run();
    SetUp();
    add_nodes(3);
    const bool is_lag = what == field::lag_id;
    const source from = is_lag ? source::lagport : source::l2port;
    for (const std::int16_t node : {std::int16_t{0}, std::int16_t{1}, std::int16_t{2}})
      set(what, from, node, node == 2 ? "0x00014500" : is_lag ? "0x1" : "0x00014000");
    find("TC-760", field::lif, "0/2/CPU0", layer::bcm, finding_kind::failure);
    of.findings.back().object = {object_kind::sub_bundle, "BE1", "BE1.1"};
    const judged_run is = judged();
    ASSERT_EQ(is.causes.size(), causes) << word_for(what);
    EXPECT_THAT(is.causes.back().findings, ElementsAre(0));
  }
}

TEST_F(run_of_a_test, what_could_not_be_verified_is_no_part_of_another_message_of_its_place) {
  add_nodes(2);
  find("TC-206", field::mac, "0/1/CPU0", layer::bcm, finding_kind::programming);
  for (const field what : {field::lif, field::none}) {
    find("TC-760", what, "0/1/CPU0", layer::bcm, finding_kind::failure);
    of.findings.back().object = {object_kind::sub_bundle, "BE1", "BE1.1"};
  }
  const judged_run is = judged();
  ASSERT_EQ(is.causes.size(), 2U);
  EXPECT_THAT(is.causes[0].findings, ElementsAre(0));
  EXPECT_THAT(is.causes[1].findings, ElementsAre(1, 2));
  EXPECT_EQ(is.bundles[0].is, verdict::differs);
  EXPECT_THAT(is.bundles[0].not_judged, testing::Contains(is.causes[1].title));
}

TEST_F(run_of_a_test, a_delayed_delete_belongs_to_its_object_whichever_node_is_the_odd_one) {
  add_nodes(1);
  set(field::lag_id, source::lagport, 0, "0x401");
  find("TC-104", field::lag_id, "0/0/CPU0", layer::dpa);
  find("TC-301", field::deletion, "0/0/CPU0", layer::dpa, finding_kind::delay_delete);
  const judged_run is = judged();
  ASSERT_EQ(is.causes.size(), 1U);
  EXPECT_EQ(is.causes[0].how_sure, sureness::two_nodes);
  EXPECT_THAT(is.causes[0].findings, ElementsAre(0, 1));
}

TEST_F(run_of_a_test, a_line_of_another_form_matters_only_where_something_is_missing) {
  add_nodes(2);
  for (const char* node : {"0/0/CPU0", "0/1/CPU0"}) {
    find("TC-905", field::none, node, layer::bcm, finding_kind::note);
    of.findings.back().object = {};
    of.findings.back().npu = "0";
  }
  find("TC-115", field::presence, "0/1/CPU0", layer::bcm);
  of.findings.back().npu = "0";
  const judged_run is = judged();
  ASSERT_EQ(is.causes.size(), 1U);
  EXPECT_THAT(is.causes[0].findings, ElementsAre(2, 1));
  EXPECT_THAT(is.unexplained, ElementsAre(0));
}

TEST_F(run_of_a_test, more_than_the_router_allows_is_sure) {
  add_nodes(1);
  find("TC-621", field::none, "", layer::config, finding_kind::note);
  of.findings.back().object = {};
  const judged_run is = judged();
  ASSERT_EQ(is.causes.size(), 1U);
  EXPECT_EQ(is.causes[0].how_sure, sureness::named);
  EXPECT_THAT(is.causes[0].title, HasSubstr("over its limit (config)"));
  EXPECT_EQ(exit_status(is), 1);
}

TEST_F(run_of_a_test, a_router_without_bundles_has_one_cause) {
  of = run();
  of.has_snapshot = true;
  of.nodes.emplace_back().name = "0/0/CPU0";
  of.nodes.back().type = "LC";
  find("TC-618", field::none, "", layer::config, finding_kind::note);
  of.findings.back().object = {};
  const judged_run is = judged();
  ASSERT_EQ(is.causes.size(), 1U);
  EXPECT_THAT(is.causes[0].title, HasSubstr("no bundle with members is configured"));
  EXPECT_THAT(is.causes[0].findings, ElementsAre(0));
  EXPECT_EQ(exit_status(is), 3);
}

TEST_F(run_of_a_test, a_log_without_a_start_is_why_the_run_ended) {
  of = run();
  of.unwritten = {"tessel_inconsistencies.log"};
  const judged_run is = judged();
  ASSERT_EQ(is.causes.size(), 1U);
  EXPECT_THAT(is.causes[0].title, HasSubstr("/var/log/tessel_inconsistencies.log"));
  EXPECT_EQ(is.causes[0].how_sure, sureness::named);
}

TEST_F(run_of_a_test, what_is_next_is_the_tool_that_the_message_is_about) {
  const auto next = [&](const char* code, layer in, const char* text = "a message") {
    of = run();
    SetUp();
    add_nodes(1);
    of.nodes[0].id.clear();
    find(code, field::none, "0/0/CPU0", in, finding_kind::failure);
    of.findings.back().text = text;
    return judged().causes.at(0).next;
  };
  EXPECT_EQ(next("TC-701", layer::none, "no room is left for it in /tmp: execution failed for x"),
            "");
  EXPECT_THAT(next("TC-701", layer::none, "cannot open /tmp/tessel_0.log: execution failed for x"),
              HasSubstr("df /tmp"));
  EXPECT_THAT(next("TC-765", layer::none,
                   "json print_object failed: cannot write /var/log/tessel_debug.log: No space"),
              HasSubstr("df /var/log"));
  EXPECT_THAT(next("TC-743", layer::pi), HasSubstr("iface_show"));
  EXPECT_THAT(next("TC-744", layer::pi), HasSubstr("ifmgr_show"));
  EXPECT_THAT(next("TC-703", layer::none), HasSubstr("plat_nodes_show"));
  EXPECT_EQ(next("TC-704", layer::none), "node_id_convert -I 0/0/CPU0");
  EXPECT_EQ(next("TC-704", layer::none, "no second node id for 0/0/CPU0 among 1: dump data failed"),
            "ssh 192.0.0.0 /opt/nos/bin/board_api_probe");
}

// What a shell, or ssh, would take for more than a name.
TEST_F(run_of_a_test, what_is_next_takes_no_value_that_the_audit_refuses) {
  const std::string list = "/opt/nos/bin/plat_nodes_show -v";
  const auto commands = [&](const auto& change) {
    of = run();
    SetUp();
    add_nodes(1);
    change(of.nodes[0]);
    const std::string name = of.nodes[0].name;
    finding about;
    about.code = "TC-605";
    about.node = name;
    finding no_id;
    no_id.code = "TC-704";
    return std::vector<std::string>{command_for(of, source::l2port, name, {}),
                                    command_for(of, source::chip_lag, name, of.nodes[0].npus[0]),
                                    command_for_platform(of, about),
                                    command_for_platform(of, no_id)};
  };
  const std::string l2port = "ssh 192.0.0.0 /opt/nos/bin/fwd_object_show -t l2port -D";
  const std::string lag = "/opt/nos/bin/asic_shell_show -c \"diag lag\" -u 0 -n 0";
  const std::string probe = "ssh 192.0.0.0 /opt/nos/bin/board_api_probe";
  EXPECT_THAT(commands([](const node&) {}),
              ElementsAre(l2port, lag, probe, "node_id_convert -I NODE"));
  for (const char* bad : {"$(reboot)", "N/A", "-oProxyCommand=x", "192.0.0.6;reboot", "a b", "`x`",
                          "192.0.0.6\nreboot"})
    EXPECT_THAT(commands([&](node& at) { at.address = bad; }),
                ElementsAre(list, lag, list, "node_id_convert -I NODE"))
        << bad;
  for (const char* bad : {"$(reboot)", "4;reboot", "0x4", "-1", ""})
    EXPECT_EQ(commands([&](node& at) { at.id = bad; })[1], list) << bad;
  for (const char* bad : {"$(reboot)", "0;reboot", "0 -c x"})
    EXPECT_EQ(commands([&](node& at) { at.npus[0] = bad; })[1], list) << bad;
  for (const char* bad : {"$(reboot)", "0/0/CPU0;reboot", "-h"})
    EXPECT_EQ(commands([&](node& at) {
                at.name = bad;
                at.id.clear();
              })[3],
              list)
        << bad;
}

TEST_F(run_of_a_test, what_is_next_is_said_once_of_several_values_that_the_audit_refuses) {
  add_nodes(3);
  of.nodes[0].id = of.nodes[1].id = "$(reboot)";
  for (node& each : of.nodes) each.has_supported_asic = false;
  EXPECT_EQ(judged().causes.at(0).next,
            "/opt/nos/bin/plat_nodes_show -v; "
            "/opt/nos/bin/asic_shell_show -c \"diag lag\" -u 0 -n 2");
}

TEST_F(run_of_a_test, what_is_next_is_the_table_of_the_object_that_a_message_compares) {
  std::string type;
  const auto next = [&](const char* code, field what, const char* name, layer in,
                        const char* text = "a message") {
    of = run();
    SetUp();
    add_nodes(1);
    of.nodes[0].id = "4";
    const bool is_sub = std::string_view(name) == "BE1.7";
    const auto object =
        of.object_at(is_sub ? object_kind::sub_bundle : object_kind::bundle, "BE1", name);
    if (is_sub)
      of.objects[object].cells.push_back(
          {field::lif, source::l2intf, 0, no_place, of.texts.keep("0x00014501")});
    if (!type.empty()) set(field::type, source::running_config, no_place, type);
    find(code, what, "0/0/CPU0", in,
         code[3] == '7' ? finding_kind::failure : finding_kind::inconsistency);
    of.findings.back().object = {is_sub ? object_kind::sub_bundle : object_kind::bundle, "BE1",
                                 name};
    of.findings.back().text = text;
    return judged().causes.at(0).next;
  };
  const auto ask = [](const std::string& table) {
    return "ssh 192.0.0.0 /opt/nos/bin/fwd_object_show -t " + table + " -D";
  };
  constexpr layer dpa = layer::dpa;
  for (const char* code : {"TC-108", "TC-109"}) {
    EXPECT_EQ(next(code, field::lif, "BE1", dpa, "... in DPA_Bundles_l2port:0x1"),
              ask("l2port") + "; " + ask("l2intf"));
    type = "layer 3";
    EXPECT_EQ(next(code, field::lif, "BE1", dpa, "... in DPA_Bundles_l2port:0x1"), ask("l2port"));
    type = "layer 2";
    EXPECT_EQ(next(code, field::lif, "BE1", dpa, "... in DPA_Bundles_l2port:0x1"),
              ask("l2port") + "; " + ask("l2intf"));
    EXPECT_EQ(next("TC-106", field::rif, "BE1", dpa, "... in DPA_Bundles_l2port:0x1"),
              ask("l2port"));
    type = "";
  }
  EXPECT_EQ(next("TC-108", field::lif, "BE1.7", dpa, "... in DPA_Sub_Bundles_l2intf:0x1"),
            ask("l2intf"));
  EXPECT_EQ(next("TC-106", field::rif, "BE1", dpa, "... in DPA_Bundles_l2port:0x1"),
            ask("l2port") + "; " + ask("l3intf"));
  EXPECT_EQ(next("TC-106", field::rif, "BE1.7", dpa, "... in DPA_Bundles_l2port:0x1"),
            ask("l3intf"));
  EXPECT_EQ(next("TC-112", field::vlan_domain, "BE1", dpa), ask("l2intf") + "; " + ask("lagport"));
  EXPECT_EQ(next("TC-714", field::none, "BE1", dpa), ask("l1port"));
  EXPECT_EQ(next("TC-715", field::none, "BE1", dpa), ask("l2port"));
  EXPECT_EQ(next("TC-716", field::none, "BE1", dpa), ask("l2intf"));
  EXPECT_EQ(next("TC-717", field::none, "BE1", dpa), ask("l3intf"));
  EXPECT_EQ(next("TC-747", field::none, "BE1", dpa), ask("l2port"));
  EXPECT_EQ(next("TC-748", field::none, "BE1", dpa), ask("lagport"));
  EXPECT_EQ(next("TC-749", field::none, "BE1.7", dpa), ask("l2intf"));
  const std::string mapping =
      "/opt/nos/bin/asic_shell_show -c \"diag pp lif id=0x4501 gl=1 type=in\" -u all -n 4";
  EXPECT_EQ(next("TC-106", field::rif, "BE1.7", layer::bcm, "... in BCM_LIF_TO_VSI_MAPPING:0x1"),
            mapping);
  EXPECT_EQ(next("TC-759", field::lif, "BE1.7", layer::bcm), mapping);
  EXPECT_EQ(next("TC-760", field::lif, "BE1.7", layer::bcm), mapping);
  EXPECT_THAT(next("TC-757", field::none, "BE1", layer::bcm), HasSubstr("diag dbal dbd 3"));
}

TEST_F(run_of_a_test, a_weight_stands_beside_its_limit) {
  add_nodes(1);
  find("TC-114", field::weight, "0/0/CPU0", layer::dpa);
  of.findings.back().reported = "20";
  of.findings.back().known = "16";
  const judged_run is = judged();
  EXPECT_EQ(is.causes.at(0).title, "BE1: weight on 0/0/CPU0 (DPA): 20, the limit is 16");
  EXPECT_EQ(is.causes.at(0).how_sure, sureness::named);
}

TEST_F(run_of_a_test, a_weight_of_several_places_is_of_none_for_sure) {
  add_nodes(1);
  find("TC-114", field::weight, "", layer::dpa);
  of.findings.back().reported = "20";
  of.findings.back().known = "16";
  const judged_run is = judged();
  EXPECT_EQ(is.causes.at(0).title, "BE1: weight (DPA): 20, the limit is 16");
  EXPECT_EQ(is.causes.at(0).how_sure, sureness::unknown);
}

TEST_F(run_of_a_test, a_weight_of_several_bundles_leaves_each_of_them_in_doubt) {
  add_nodes(2);
  add_bundle("BE2");
  add_bundle("BE3");
  for (const char* name : {"BE1", "BE2", "BE3"}) {
    auto& cells = of.objects[of.object_at(object_kind::bundle, name, name)].cells;
    const bool is_heavy = std::string(name) != "BE3";
    cells.push_back(
        {field::weight, source::lagport, 0, no_place, of.texts.keep(is_heavy ? "20" : "2")});
    cells.push_back({field::weight_limit, source::lagport, 0, no_place, of.texts.keep("16")});
  }
  find("TC-114", field::weight, "0/0/CPU0", layer::dpa);
  of.findings.back().object = {};
  of.findings.back().reported = "20";
  of.findings.back().known = "16";
  const judged_run is = judge(std::move(of));
  ASSERT_EQ(is.bundles.size(), 3U);
  EXPECT_EQ(is.bundles[0].is, verdict::not_judged);
  EXPECT_EQ(is.bundles[1].is, verdict::not_judged);
  EXPECT_EQ(is.bundles[2].is, verdict::agrees);
  EXPECT_EQ(is.causes.at(0).title, "BE1 or BE2: weight on 0/0/CPU0 (DPA): 20, the limit is 16");
  EXPECT_EQ(is.causes.at(0).how_sure, sureness::unknown);
  EXPECT_EQ(exit_status(is), 1);
}

TEST_F(run_of_a_test, a_weight_that_no_bundle_has_is_of_a_bundle_all_the_same) {
  add_nodes(1);
  find("TC-114", field::weight, "", layer::dpa);
  of.findings.back().object = {};
  of.findings.back().reported = "20";
  of.findings.back().known = "16";
  const judged_run is = judged();
  EXPECT_EQ(is.causes.at(0).title,
            "a bundle that no message names: weight (DPA): 20, the limit is 16");
  EXPECT_EQ(is.bundles.at(0).is, verdict::not_judged) << "it may be of this one";
  EXPECT_THAT(is.bundles.at(0).not_judged, ElementsAre(is.causes.at(0).title));
  EXPECT_EQ(exit_status(is), 1);
}

// A message less than places with its numbers: no bundle has all of them.
TEST_F(run_of_a_test, a_weight_of_several_bundles_counts_once_for_each) {
  add_nodes(2);
  for (std::int16_t node = 0; node < 2; ++node) {
    set(field::weight, source::lagport, node, "20");
    set(field::weight_limit, source::lagport, node, "16");
  }
  for (const char* name : {"BE2", "BE3", "BE4"}) add_bundle(name);
  for (int i = 0; i < 7; ++i) {
    find("TC-114", field::weight, "", layer::dpa);
    of.findings.back().object = {};
    of.findings.back().reported = "20";
    of.findings.back().known = "16";
  }
  const judged_run is = judged();
  ASSERT_EQ(is.causes.size(), 1U);
  EXPECT_EQ(is.causes[0].findings.size(), 7U);
  for (const bundle_verdict& each : is.bundles) {
    EXPECT_EQ(each.is, verdict::not_judged);
    EXPECT_EQ(each.findings, 1U) << each.bundle;
  }
}

TEST_F(run_of_a_test, an_entry_that_the_audit_itself_left_without_a_mark_is_no_fault) {
  add_nodes(2);
  find("TC-402", field::presence, "", layer::bcm, finding_kind::note);
  of.findings.back().object = {object_kind::entry, "BE1", "LAG 0x8_npu0_node0/0/CPU0"};
  const judged_run is = judged();
  EXPECT_THAT(is.causes, IsEmpty());
  EXPECT_THAT(is.unexplained, ElementsAre(0));
  EXPECT_EQ(is.bundles.at(0).is, verdict::agrees);
  EXPECT_EQ(exit_status(is), 0);
}

TEST_F(run_of_a_test, entries_without_a_mark_of_most_bundles_are_no_common_fault) {
  add_nodes(2);
  for (const char* name : {"BE1", "BE2", "BE3", "BE4"}) {
    add_bundle(name);
    find("TC-402", field::presence, "0/0/CPU0", layer::bcm, finding_kind::note);
    of.findings.back().object = {object_kind::entry, name, "LAG 0x8_npu0_node0/0/CPU0"};
  }
  const judged_run is = judged();
  EXPECT_THAT(is.causes, IsEmpty());
  EXPECT_THAT(is.unexplained, ElementsAre(0, 1, 2, 3));
  EXPECT_EQ(is.bundles.size(), 4U);
  for (const bundle_verdict& one : is.bundles) EXPECT_EQ(one.is, verdict::agrees) << one.bundle;
  EXPECT_EQ(exit_status(is), 0);
}

TEST_F(run_of_a_test, an_entry_without_a_mark_is_no_message_of_what_was_not_read) {
  add_nodes(3);
  of.tables.erase({source::chip_lag, 2, 0});
  find("TC-608", field::none, "", layer::pi, finding_kind::note);
  find("TC-402", field::presence, "0/2/CPU0", layer::bcm, finding_kind::note);
  of.findings.back().object = {object_kind::entry, "BE1", "LAG 0x8_npu0_node0/2/CPU0"};
  find("TC-608", field::none, "", layer::pi, finding_kind::note);
  const judged_run is = judged();
  ASSERT_EQ(is.causes.size(), 1U);
  EXPECT_EQ(is.causes[0].first, layer::bcm);
  EXPECT_THAT(is.causes[0].findings, IsEmpty());
  EXPECT_THAT(is.unexplained, ElementsAre(0, 1, 2)) << "in their order";
  EXPECT_EQ(exit_status(is), 3);
}

TEST_F(run_of_a_test, what_is_next_is_the_table_that_shows_the_finding_again) {
  std::string id = "4";
  const auto next = [&](const char* code, finding_kind kind, const char* asic, const char* text) {
    of = run();
    SetUp();
    add_nodes(1);
    of.nodes[0].asic = asic;
    of.nodes[0].id = id;
    find(code, field::none, "0/0/CPU0", layer::bcm, kind);
    of.findings.back().npu = "2";
    of.findings.back().text = text;
    return judged().causes.at(0).next;
  };
  constexpr auto programming = finding_kind::programming;
  EXPECT_EQ(next("TC-203", programming, "BCM8868", "SEMA/B entry is not present for glif 0x1,BE1"),
            "/opt/nos/bin/asic_shell_show -c \"diag dbal dbd 3\" -u 2 -n 4; "
            "/opt/nos/bin/asic_shell_show -c \"diag dbal dbd 4\" -u 2 -n 4");
  EXPECT_EQ(next("TC-204", programming, "BCM8868",
                 "Programming Error 1: Not able to find GLIF 0x00014501 to LLIF mapping for BE1"),
            "/opt/nos/bin/asic_shell_show -c \"diag pp lif id=0x4501 gl=1 type=in\" -u 2 -n 4");
  EXPECT_EQ(next("TC-204", programming, "BCM8868", "cut off behind GLIF"),
            "/opt/nos/bin/asic_shell_show -c \"diag pp lif id=0x4000 gl=1 type=in\" -u 2 -n 4");
  EXPECT_THAT(next("TC-204", programming, "BCM8869", "any"), HasSubstr("table=IN_AC_UNTAGGED_DB"));
  EXPECT_EQ(next("TC-501", finding_kind::health, "BCM8868", "BE1: out of step"), "lagmgr_health");
  const std::string list = "/opt/nos/bin/plat_nodes_show -v";
  EXPECT_EQ(next("TC-204", programming, "BCM8868", "cannot find GLIF $(w) to LLIF"), list);
  id = "$(reboot)";
  EXPECT_EQ(next("TC-203", programming, "BCM8868", "any"), list);
  EXPECT_EQ(next("TC-203", programming, "BCM8869", "any"), list);
}

// Of a run whose snapshot is lost: three healthy nodes are named, and the odd one is not.
TEST_F(run_of_a_test, messages_that_compare_nodes_name_no_odd_one) {
  of.has_snapshot = false;
  for (const char* named : {"0/2/CPU0", "0/5/CPU0", "0/11/CPU0"}) {
    find("TC-108", field::lif, named, layer::dpa);
    of.findings.back().reported = "0x14000";
    of.findings.back().known = "0x14500";
  }
  const judged_run is = judge(std::move(of));
  ASSERT_EQ(is.causes.size(), 1U);
  EXPECT_EQ(is.causes[0].title,
            "BE1: global LIF is 0x14000 on 0/2/CPU0, 0/5/CPU0, 0/11/CPU0 (DPA), and 0x14500 in a "
            "place that no message names");
  EXPECT_EQ(is.causes[0].how_sure, sureness::unknown);
  EXPECT_EQ(is.causes[0].node, "");
  EXPECT_EQ(is.causes[0].findings.size(), 3U);
  EXPECT_EQ(is.bundles.at(0).is, verdict::differs);
  EXPECT_EQ(exit_status(is), 1);
}

TEST_F(run_of_a_test, what_was_looked_for_in_vain_is_missing_and_does_not_differ) {
  for (const char* code : {"TC-204", "TC-205"}) {
    of = run();
    SetUp();
    add_nodes(2);
    find(code, std::string(code) == "TC-204" ? field::lif : field::rif, "0/1/CPU0", layer::bcm,
         finding_kind::programming);
    of.findings.back().npu = "0";
    of.findings.back().known = "0x11";
    const std::string what = std::string(code) == "TC-204" ? "global LIF" : "RIF";
    EXPECT_EQ(judged().causes.at(0).title,
              "BE1: " + what + " 0x11 missing on 0/1/CPU0 NPU 0 (BCM)");
  }
}

// The agent and the forwarding layer of one node hold two values.
TEST_F(run_of_a_test, messages_that_compare_layers_name_no_odd_one) {
  of.has_snapshot = false;
  find("TC-104", field::lag_id, "0/RP0/CPU0", layer::dpa);
  of.findings.back().reported = "0x401";
  of.findings.back().known = "0x1";
  find("TC-104", field::lag_id, "0/0/CPU0", layer::pd);
  of.findings.back().reported = "0x401";
  of.findings.back().known = "0x1";
  const judged_run is = judge(std::move(of));
  ASSERT_EQ(is.causes.size(), 1U);
  EXPECT_EQ(is.causes[0].title,
            "BE1: LAG id is 0x401 on 0/0/CPU0 (PD), 0x401 on 0/RP0/CPU0 (DPA), and 0x1 in a place "
            "that no message names");
  EXPECT_EQ(is.causes[0].how_sure, sureness::unknown);
  EXPECT_EQ(is.causes[0].node, "");
  EXPECT_EQ(is.causes[0].first, layer::pd);
}

// The audit compares a RIF and a MAC as texts, and behind that nothing more of the bundle there.
TEST_F(run_of_a_test, two_notations_of_one_value_are_no_difference) {
  struct pair {
    const char* code;
    field what;
    const char* reported;
    const char* known;
    const char* title;
  };
  for (const pair& one :
       {pair{"TC-106", field::rif, "0x00000011", "0x11",
             "BE1: RIF on 0/0/CPU0 (DPA): 0x00000011 and 0x11 are one value in two notations"},
        pair{"TC-110", field::mac, "00265E000a02", "0026.5e00.0a02",
             "BE1: MAC on 0/0/CPU0 (DPA): 00265E000a02 and 0026.5e00.0a02 are one value in two "
             "notations"}}) {
    of = run();
    SetUp();
    add_nodes(2);
    find(one.code, one.what, "0/0/CPU0", layer::dpa);
    of.findings.back().reported = one.reported;
    of.findings.back().known = one.known;
    const judged_run is = judged();
    ASSERT_EQ(is.causes.size(), 1U);
    EXPECT_EQ(is.causes[0].title, one.title);
    EXPECT_EQ(is.causes[0].how_sure, sureness::unknown);
    EXPECT_EQ(is.bundles.at(0).is, verdict::not_judged);
    EXPECT_EQ(is.bundles.at(0).findings, 0U) << "it is no fault";
    EXPECT_EQ(exit_status(is), 3);
  }
}

// Without a row for the port there is no domain to compare.
TEST_F(run_of_a_test, a_port_without_a_vlan_domain_is_no_notation_of_domain_zero) {
  add_nodes(2);
  find("TC-202", field::vlan_domain, "0/0/CPU0", layer::bcm, finding_kind::programming);
  of.findings.back().known = "0x0";
  of.findings.back().reported = "0";
  const judged_run is = judged();
  ASSERT_EQ(is.causes.size(), 1U);
  EXPECT_EQ(is.causes[0].how_sure, sureness::named);
  EXPECT_EQ(is.bundles.at(0).is, verdict::differs);
  EXPECT_EQ(exit_status(is), 1);
}

TEST_F(run_of_a_test, messages_that_say_the_same_of_a_node_are_one_cause) {
  add_nodes(2);
  for (const char* text : {"Inconsistency 1: BME has no Bundle entry in location 0/1/CPU0",
                           "Inconsistency 12: BME has no Bundle entry in location 0/1/CPU0"}) {
    find("TC-101", field::presence, "0/1/CPU0", layer::pd);
    of.findings.back().object = {object_kind::node, "", "0/1/CPU0"};
    of.findings.back().text = text;
    of.findings.back().number = of.findings.size();
  }
  const judged_run is = judge(std::move(of));
  ASSERT_EQ(is.causes.size(), 1U);
  EXPECT_THAT(is.causes[0].findings, ElementsAre(0, 1));
}

// One message for each bundle, which none of them names.
TEST_F(run_of_a_test, each_bundle_that_a_node_lacks_has_one_of_the_messages) {
  for (const std::size_t messages : {std::size_t{2}, std::size_t{3}}) {
    of = run();
    SetUp();
    add_nodes(3);
    add_bundle("BE2");
    for (const char* name : {"BE1", "BE2"})
      std::erase_if(of.objects[of.object_at(object_kind::bundle, name, name)].cells,
                    [](const cell& c) { return c.from == source::agent && c.node == 1; });
    for (std::size_t i = 0; i < messages; ++i) {
      find("TC-101", field::presence, "0/1/CPU0", layer::pd);
      of.findings.back().object = {object_kind::node, "", "0/1/CPU0"};
    }
    const judged_run is = judge(std::move(of));
    ASSERT_EQ(is.causes.size(), 2U);
    EXPECT_EQ(is.causes[0].findings.size(), messages == 2 ? 1 : 3);
    EXPECT_EQ(is.causes[1].findings.size(), messages == 2 ? 1 : 0);
    for (const bundle_verdict& one : is.bundles)
      EXPECT_EQ(one.findings, messages == 2 ? 1U : 0U) << "of which bundle they are, nobody knows";
    EXPECT_EQ(is.causes[0].why,
              messages == 2
                  ? "2 of 3 nodes hold it"
                  : "2 of 3 nodes hold it; TC-101 names no bundle, and may be of another");
  }
}

// Only bundles have a message that names nothing but the place.
TEST_F(run_of_a_test, a_member_that_a_node_lacks_has_none_of_the_bundles_messages) {
  add_nodes(3);
  add_bundle("BE2");
  std::erase_if(of.objects[bundle].cells,
                [](const cell& c) { return c.from == source::agent && c.node == 1; });
  const std::size_t member = of.object_at(object_kind::member, "BE2", "0/1/0/7");
  of.places[member].node = 1;
  of.objects[member].is_configured = true;
  of.objects[member].cells.push_back(
      {field::npu, source::bundle_manager, no_place, no_place, of.texts.keep("0")});
  find("TC-101", field::presence, "0/1/CPU0", layer::pd);
  of.findings.back().object = {object_kind::node, "", "0/1/CPU0"};
  const judged_run is = judge(std::move(of));
  ASSERT_FALSE(is.causes.empty());
  EXPECT_EQ(is.causes[0].object.bundle, "BE1");
  EXPECT_THAT(is.causes[0].findings, ElementsAre(0));
  EXPECT_THAT(is.causes[0].why, Not(HasSubstr("may be of another")));
  EXPECT_EQ(is.bundles.at(0).findings, 1U);
}

TEST_F(run_of_a_test, a_message_of_another_version_is_not_understood) {
  add_nodes(2);
  find("TC-000", field::none, "", layer::none);
  of.findings.back().text = "Inconsistency 4:BE1 is purple";
  of.findings.back().log = "tessel_inconsistencies.log";
  of.findings.back().line = 7;
  const judged_run is = judged();
  ASSERT_EQ(is.causes.size(), 1U);
  EXPECT_EQ(is.causes[0].title,
            "a message that this version of tessel-report does not know: Inconsistency 4:BE1 is "
            "purple");
  EXPECT_EQ(is.causes[0].how_sure, sureness::unknown);
  EXPECT_EQ(is.causes[0].why, "it stands in tessel_inconsistencies.log:7");
}

// The audit asks a node without members for the LAG only.
TEST_F(run_of_a_test, a_node_without_members_is_no_odd_one) {
  add_nodes(3);
  const auto member = of.object_at(object_kind::member, "BE1", "0/0/0/0");
  of.places[member].node = 0;
  set(field::lif, source::l2port, 2, "0x00014500");
  EXPECT_EQ(judge(std::move(of)).bundles.at(0).is, verdict::agrees);
}

TEST_F(run_of_a_test, a_node_without_members_must_have_the_lag_all_the_same) {
  add_nodes(3);
  const auto member = of.object_at(object_kind::member, "BE1", "0/0/0/0");
  of.places[member].node = 0;
  set(field::lag_id, source::lagport, 2, "0x401");
  EXPECT_EQ(judge(std::move(of)).bundles.at(0).is, verdict::differs);
}

// Its members are those of the active one, which its agent does not list.
TEST_F(run_of_a_test, a_live_standby_has_the_members_of_the_active_route_processor) {
  const auto add_route_processors = [&] {
    of = run();
    SetUp();
    add_nodes(2);
    of.nodes[0].type = of.nodes[1].type = "RP";
    of.nodes[0].role = "Active";
    of.nodes[1].role = "Standby";
    std::erase_if(of.objects[bundle].cells,
                  [](const cell& c) { return c.from == source::agent && c.node == 1; });
    of.places[of.object_at(object_kind::member, "BE1", "0/0/0/0")].node = 0;
  };
  add_route_processors();
  set(field::lif, source::l2port, 0, "0x00014500");
  find("TC-108", field::lif, "0/1/CPU0", layer::dpa);
  const judged_run two = judge(std::move(of));
  ASSERT_EQ(two.causes.size(), 1U);
  EXPECT_EQ(two.causes[0].how_sure, sureness::two_nodes);
  EXPECT_EQ(two.causes[0].node, "");

  add_route_processors();
  std::erase_if(of.objects[bundle].cells,
                [](const cell& c) { return c.from == source::l2port && c.node == 1; });
  const judged_run one = judge(std::move(of));
  ASSERT_EQ(one.causes.size(), 1U);
  EXPECT_EQ(one.causes[0].title, "BE1: missing on 0/1/CPU0 (DPA, fwd_object_show -t l2port)");
}

// A line card is active, too.
TEST_F(run_of_a_test, a_live_standby_does_not_have_the_members_of_a_line_card) {
  add_nodes(2);
  of.nodes[0].role = "Active";
  of.nodes[1].role = "Standby";
  of.nodes[1].type = "RP";
  of.places[of.object_at(object_kind::member, "BE1", "0/0/0/0")].node = 0;
  std::erase_if(of.objects[bundle].cells, [](const cell& c) {
    return c.node == 1 && (c.from == source::agent || c.from == source::l2port);
  });
  EXPECT_THAT(judge(std::move(of)).causes, testing::IsEmpty());
}

TEST_F(run_of_a_test, the_type_counts_where_the_bundle_has_members) {
  for (const bool has_members : {false, true}) {
    of = run();
    SetUp();
    add_nodes(3);
    of.places[of.object_at(object_kind::member, "BE1", "0/0/0/0")].node = 0;
    if (has_members) of.places[of.object_at(object_kind::member, "BE1", "0/2/0/0")].node = 2;
    set(field::type, source::running_config, no_place, "layer 3");
    set(field::rif, source::l3intf, 0, "0x11");
    set(field::rif, source::l3intf, 1, "0x11");
    set(field::lif, source::l2intf, 2, "0x00014000");
    const judged_run is = judge(std::move(of));
    const auto type = std::find_if(is.causes.begin(), is.causes.end(), [](const cause& one) {
      return one.title.starts_with("BE1: type is");
    });
    EXPECT_EQ(type != is.causes.end(), has_members);
  }
}

// The audit reads the LIF of a sub-bundle in its l2intf object, and the RIF in its l3intf object.
TEST_F(run_of_a_test, a_sub_bundle_has_no_l2port_object_to_compare) {
  add_nodes(3);
  of.has_hqos = true;
  const auto sub = of.object_at(object_kind::sub_bundle, "BE1", "BE1.7");
  of.objects[sub].is_configured = true;
  const auto add = [&](field what, source from, std::int16_t node, const char* value) {
    of.objects[sub].cells.push_back({what, from, node, no_place, of.texts.keep(value)});
  };
  for (const std::int16_t node : {std::int16_t{0}, std::int16_t{1}, std::int16_t{2}})
    add(field::rif, source::l3intf, node, "0x14");
  add(field::rif, source::l2port, 0, "0x0011");
  const judged_run is = judged();
  EXPECT_THAT(is.causes, IsEmpty());
  EXPECT_EQ(is.bundles.at(0).is, verdict::agrees);
}

TEST_F(run_of_a_test, a_log_that_has_lost_messages_leaves_every_bundle_open) {
  add_nodes(2);
  of.cut_logs.emplace_back("tessel_inconsistencies.log");
  const judged_run judged = judge(std::move(of));
  EXPECT_EQ(judged.bundles.at(0).is, verdict::not_judged);
  EXPECT_EQ(exit_status(judged), 3);
}

// What it had printed is in the tables, and nobody knows what it had not.
TEST_F(run_of_a_test, a_command_that_was_ended_leaves_its_layer_open) {
  add_nodes(2);
  journal_command ended;
  ended.id = 1;
  ended.node = "0/0/CPU0";
  ended.command = "ssh 192.0.0.0 /opt/nos/bin/fwd_object_show -t l2port -D";
  ended.has_ended = true;
  ended.is_timed_out = true;
  ended.bytes = 100;
  of.log_of_commands.emplace().commands.push_back(ended);
  fill_coverage(of);
  const coverage* entry = coverage_of(of, layer::dpa, "0/0/CPU0", {});
  ASSERT_NE(entry, nullptr);
  EXPECT_EQ(entry->state, coverage_state::partly);
  EXPECT_THAT(entry->reason, HasSubstr("its time was over"));
  EXPECT_EQ(coverage_of(of, layer::dpa, "0/1/CPU0", {})->state, coverage_state::read);
  const judged_run judged = judge(std::move(of));
  EXPECT_EQ(judged.bundles.at(0).is, verdict::not_judged);
}

// Both route processors have the member, but only the active one is asked for its port.
TEST_F(run_of_a_test, places_the_mtu_of_a_port_on_the_node_that_has_it) {
  add_nodes(2);
  const std::size_t member = of.object_at(object_kind::member, "BE1", "0/0/0/1");
  of.places[member].node = 1;
  for (const char* node : {"0/0/CPU0", "0/1/CPU0"}) {
    find("TC-105", field::mtu, node, layer::dpa);
    of.findings.back().object = {object_kind::member, "BE1", "0/0/0/1"};
    of.findings.back().known = "9216";
    of.findings.back().reported = "9116";
  }
  const judged_run judged = judge(std::move(of));
  ASSERT_EQ(judged.causes.size(), 1U);
  EXPECT_EQ(judged.causes[0].node, "0/1/CPU0");
  EXPECT_EQ(judged.causes[0].title,
            "BE1 member 0/0/0/1: MTU on 0/1/CPU0 (DPA): 9116 here, 9216 known before");
  EXPECT_EQ(judged.causes[0].findings.size(), 2U);
}

// As above, of so many bundles that the message is of them all; rotation may have left the
// standby's messages only.
TEST_F(run_of_a_test, a_message_about_the_ports_of_all_bundles_names_the_node_that_has_them) {
  for (const bool has_all : {true, false}) {
    of = run();
    SetUp();
    add_nodes(2);
    for (const char* name : {"BE1", "BE2", "BE3", "BE4"}) {
      add_bundle(name);
      const std::string port = std::string("0/0/0/") + name[2];
      of.places[of.object_at(object_kind::member, name, port)].node = 0;
      for (const char* node : {"0/0/CPU0", "0/1/CPU0"}) {
        if (!has_all && std::string_view(node) == "0/0/CPU0") continue;
        find("TC-105", field::mtu, node, layer::dpa);
        of.findings.back().object = {object_kind::member, name, port};
      }
    }
    const judged_run judged = judge(std::move(of));
    ASSERT_EQ(judged.causes.size(), 1U);
    EXPECT_EQ(judged.causes[0].node, "0/0/CPU0");
    EXPECT_EQ(judged.causes[0].title,
              "4 of 4 bundles on 0/0/CPU0: the same message of each: a message");
    EXPECT_EQ(judged.causes[0].next, "ssh 192.0.0.0 /opt/nos/bin/fwd_object_show -t l1port -D");
    EXPECT_EQ(judged.causes[0].findings.size(), has_all ? 8U : 4U);
  }
}

}  // namespace
}  // namespace desk
