#include "desk/show/dossier.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <numeric>
#include <random>
#include <sstream>
#include <tuple>

#include "desk/show/dossier_table.h"
#include "desk/show/escape.h"
#include "tests/desk/example_runs.h"

namespace desk {
namespace {

using std::string;
using testing::HasSubstr;
using testing::Not;

const object_ref member_ref{object_kind::member, "BE1", "0/0/0/1"};
const object_ref sub_ref{object_kind::sub_bundle, "BE1", "BE1.100"};
const object_ref bundle_ref{object_kind::bundle, "BE1", "BE1"};

// BE1 with a member on the first node and a sub-bundle, on nodes with two NPUs each.
class example {
 public:
  explicit example(std::size_t nodes) {
    for (std::size_t i = 0; i < nodes; ++i)
      of.of.nodes.emplace_back().name = fmt::format("0/{}/CPU0", i);
    of.of.has_snapshot = true;
    bundle = of.of.object_at(object_kind::bundle, "BE1", "BE1");
    member = of.of.object_at(object_kind::member, "BE1", "0/0/0/1");
    sub = of.of.object_at(object_kind::sub_bundle, "BE1", "BE1.100");
    of.bundles.emplace_back().bundle = "BE1";
    set(bundle, field::mac, source::bundle_manager, no_place, no_place, "0026.5e00.0a02");
    set(member, field::mtu, source::interfaces, no_place, no_place, "9216");
    set(member, field::npu, source::agent, 0, no_place, "0");
    for (std::int16_t i = 0; i < static_cast<std::int16_t>(nodes); ++i) {
      set(bundle, field::lag_id, source::agent, i, no_place, "0x1");
      set(bundle, field::lif, source::l2port, i, no_place, "0x00014000");
      for (const std::int16_t npu : {std::int16_t{0}, std::int16_t{1}})
        for (const std::size_t one : {bundle, member, sub})
          set(one, field::presence, source::chip_lag, i, npu, "present");
    }
    of.of.places[member] = {0, 0, "1", "10"};
  }

  void set(std::size_t one, field what, source from, std::int16_t node, std::int16_t npu,
           const string& value) {
    of.of.objects[one].cells.push_back({what, from, node, npu, of.of.texts.keep(value)});
  }
  finding& found(const string& code, const object_ref& object, layer in, field what,
                 const string& node, const string& npu, const string& reported = "") {
    finding made;
    made.code = code;
    made.object = object;
    made.of = in;
    made.what = what;
    made.node = node;
    made.npu = npu;
    made.reported = reported;
    made.text = code;
    of.of.findings.push_back(made);
    return of.of.findings.back();
  }
  void hole(layer in, const string& node, const string& npu) {
    coverage made;
    made.of = in;
    made.node = node;
    made.npu = npu;
    made.state = coverage_state::failed;
    made.reason = "no route";
    of.of.covered.push_back(made);
  }
  [[nodiscard]] dossier_table table() const {
    return dossier_maker(of).table_of(of.of.objects[bundle]);
  }

  judged_run of;
  std::size_t bundle = 0;
  std::size_t member = 0;
  std::size_t sub = 0;
};

// The cell of an object's row under "DPA l2port 3 nodes"; "no such cell" where there is none.
string cell(const dossier_table& of, const string& part, const string& row, const string& column) {
  for (const auto& section : of.sections)
    for (std::size_t i = 0; i < section.columns.size(); ++i) {
      const auto& at = section.columns[i];
      if (fmt::format("{} {} {}", word_for(at.of), short_tool(at.from), at.place) != column)
        continue;
      for (const auto& one : section.parts)
        for (const auto& line : one.rows)
          if (one.name == part && line.label == row) return string(line.cells[i].text);
    }
  return "no such cell";
}

std::size_t odd_cells(const dossier_table& of) {
  std::size_t odd = 0;
  for (const auto& section : of.sections)
    for (const auto& part : section.parts)
      for (const auto& row : part.rows)
        for (const auto& one : row.cells) odd += one.is_odd ? 1 : 0;
  return odd;
}

string shown(const judged_run& of, const string& bundle, std::size_t width = 80) {
  std::ostringstream out;
  terminal on;
  on.width = width;
  show_dossier(of, bundle, on, out);
  return out.str();
}

TEST(dossier, folds_nodes_that_hold_the_same) {
  const example run(16);
  const dossier_table made = run.table();
  EXPECT_EQ(cell(made, "", "LAG id", "PD lagmgr_agent 16 nodes"), "0x1");
  EXPECT_EQ(cell(made, "", "global LIF", "DPA l2port 16 nodes"), "0x00014000");
  EXPECT_EQ(cell(made, "", "presence", "BCM asic_shell 16 nodes"), "present");
  EXPECT_EQ(cell(made, "", "MAC", "PI lagmgr_table "), "0026.5e00.0a02");
  ASSERT_EQ(made.folds.size(), 1U);
  EXPECT_EQ(made.folds[0].second.size(), 16U);
  EXPECT_EQ(odd_cells(made), 0U);
}

TEST(dossier, shows_a_member_at_its_own_node) {
  const example run(3);
  const dossier_table made = run.table();
  EXPECT_EQ(made.sections.at(1).parts.at(0).place, "0/0/CPU0 NPU 0 core 1");
  EXPECT_EQ(cell(made, "0/0/0/1", "NPU", "PD lagmgr_agent its node"), "0");
  EXPECT_EQ(cell(made, "0/0/0/1", "MTU", "PI iface "), "9216");
  EXPECT_EQ(cell(made, "0/0/0/1", "presence", "BCM asic_shell 3 nodes"), "present");
}

TEST(dossier, has_the_odd_value_in_a_column_of_its_own) {
  example run(16);
  run.of.of.objects[run.bundle].cells.clear();
  cause& why = run.of.causes.emplace_back();
  difference& differs = why.differences.emplace_back();
  differs.object = bundle_ref;
  differs.what = field::lif;
  for (std::size_t i = 0; i < 16; ++i) {
    witness& one = differs.witnesses.emplace_back();
    one.from = source::l2port;
    one.node = run.of.of.nodes[i].name;
    one.is_odd = i == 3;
    one.value = one.is_odd ? "0x00014500" : "0x00014000";
  }
  // The message blames a node whose value is right.
  run.found("TC-108", bundle_ref, layer::dpa, field::lif, "0/1/CPU0", "", "0x14000");
  const dossier_table made = run.table();
  EXPECT_EQ(cell(made, "", "global LIF", "DPA l2port 0/3/CPU0"), "0x00014500*");
  EXPECT_EQ(cell(made, "", "global LIF", "DPA l2port 15 nodes"), "0x00014000");
  EXPECT_EQ(odd_cells(made), 1U);
}

TEST(dossier, marks_the_value_that_a_finding_reports_of_a_chip) {
  example run(3);
  run.set(run.member, field::vlan_domain, source::chip_domain, 0, no_place, "0x311");
  run.found("TC-202", member_ref, layer::bcm, field::vlan_domain, "0/0/CPU0", "0", "0x0311");
  const dossier_table made = run.table();
  EXPECT_EQ(cell(made, "0/0/0/1", "VLAN domain", "BCM asic_shell its node"), "0x311*");
  EXPECT_EQ(odd_cells(made), 1U);
}

TEST(dossier, marks_the_port_mtu_of_the_forwarding_layer) {
  example run(3);
  run.of.of.places[run.member].mtu = run.of.of.texts.keep("9116");
  EXPECT_EQ(cell(run.table(), "0/0/0/1", "MTU", "DPA l1port its node"), "9116");
  run.found("TC-105", member_ref, layer::dpa, field::mtu, "0/0/CPU0", "", "9116");
  EXPECT_EQ(cell(run.table(), "0/0/0/1", "MTU", "DPA l1port its node"), "9116*");
  EXPECT_EQ(cell(run.table(), "0/0/0/1", "MTU", "PI iface "), "9216");
}

TEST(dossier, says_that_a_chip_differs_where_nobody_shows_its_value) {
  example run(3);
  run.found("TC-118", member_ref, layer::bcm, field::mtu, "0/0/CPU0", "0");
  EXPECT_EQ(cell(run.table(), "0/0/0/1", "MTU", "BCM asic_shell its node"), "differs* (NPU 0)");
}

TEST(dossier, says_what_a_chip_lacks) {
  example run(3);
  run.found("TC-203", sub_ref, layer::bcm, field::presence, "0/1/CPU0", "0");
  run.found("TC-117", member_ref, layer::bcm, field::presence, "0/2/CPU0", "1");
  run.found("TC-115", bundle_ref, layer::bcm, field::presence, "0/2/CPU0", "");
  run.found("TC-205", sub_ref, layer::bcm, field::rif, "0/1/CPU0", "1");
  run.found("TC-206", bundle_ref, layer::bcm, field::mac, "0/0/CPU0", "", "0x26");
  const dossier_table made = run.table();
  EXPECT_EQ(cell(made, "BE1.100", "SEM entry", "BCM asic_shell 0/1/CPU0"), "missing* (NPU 0)");
  EXPECT_EQ(cell(made, "BE1.100", "presence", "BCM asic_shell 0/1/CPU0"), "present");
  EXPECT_EQ(cell(made, "BE1.100", "RIF", "BCM asic_shell 0/1/CPU0"), "missing* (NPU 1)");
  EXPECT_EQ(cell(made, "0/0/0/1", "presence", "BCM asic_shell 0/2/CPU0"),
            "present (NPU 0) / missing* (NPU 1)");
  EXPECT_EQ(cell(made, "", "presence", "BCM asic_shell 0/2/CPU0"), "missing*");
  EXPECT_EQ(cell(made, "", "MAC", "BCM asic_shell 0/0/CPU0"), "0x26*");
  EXPECT_EQ(odd_cells(made), 5U);
}

TEST(dossier, marks_one_npu_of_several_with_a_value) {
  example run(2);
  for (const std::int16_t npu : {std::int16_t{0}, std::int16_t{1}})
    run.set(run.bundle, field::vlan_domain, source::lagport, 0, npu, "0x111");
  run.found("TC-112", bundle_ref, layer::dpa, field::vlan_domain, "0/0/CPU0", "1", "0x111");
  EXPECT_EQ(cell(run.table(), "", "VLAN domain", "DPA lagport 0/0/CPU0"),
            "0x111 (NPU 0) / 0x111* (NPU 1)");
}

TEST(dossier, has_a_column_for_a_node_that_only_a_finding_names) {
  example run(2);
  run.found("TC-104", bundle_ref, layer::dpa, field::lag_id, "0/77/CPU0", "", "0x9");
  EXPECT_EQ(cell(run.table(), "", "LAG id", "DPA lagport 0/77/CPU0"), "0x9*");
}

TEST(dossier, leaves_out_what_could_not_be_verified) {
  example run(2);
  run.found("TC-735", bundle_ref, layer::dpa, field::lag_id, "0/0/CPU0", "").kind =
      finding_kind::failure;
  EXPECT_EQ(odd_cells(run.table()), 0U);
}

TEST(dossier, says_what_was_not_read) {
  example run(2);
  for (const std::size_t one : {run.bundle, run.member, run.sub})
    std::erase_if(run.of.of.objects[one].cells,
                  [](const desk::cell& c) { return c.from == source::chip_lag && c.node == 1; });
  run.hole(layer::bcm, "0/1/CPU0", "0");
  run.hole(layer::bcm, "0/1/CPU0", "1");
  run.hole(layer::dpa, "0/0/CPU0", "");
  run.of.of.objects[run.bundle].cells.clear();
  const dossier_table made = run.table();
  for (const string part : {"", "0/0/0/1", "BE1.100"})
    EXPECT_EQ(cell(made, part, "presence", "BCM asic_shell 0/1/CPU0"), "not read") << part;
  EXPECT_EQ(cell(made, "", "LAG id", "DPA lagport 0/0/CPU0"), "not read");
  EXPECT_EQ(cell(made, "", "global LIF", "DPA l2port 0/0/CPU0"), "not read");
  EXPECT_EQ(cell(made, "0/0/0/1", "MTU", "DPA l1port its node"), "not read");
  EXPECT_EQ(cell(made, "BE1.100", "global LIF", "DPA l2intf 0/0/CPU0"), "not read");
  EXPECT_EQ(odd_cells(made), 0U);
}

TEST(dossier, says_so_of_chips_of_which_no_table_has_come) {
  example run(2);
  for (const std::size_t one : {run.bundle, run.member, run.sub})
    std::erase_if(run.of.of.objects[one].cells,
                  [](const desk::cell& c) { return c.from == source::chip_lag; });
  EXPECT_EQ(cell(run.table(), "", "presence", "BCM asic_shell 2 nodes"), "no such cell");
  for (auto& node : run.of.of.nodes) node.takes_part = node.has_supported_asic = true;
  EXPECT_EQ(cell(run.table(), "", "presence", "BCM asic_shell 2 nodes"), "not read");
  run.of.of.nodes[1].role = "Standby";
  EXPECT_EQ(cell(run.table(), "", "presence", "BCM asic_shell 0/0/CPU0"), "not read");
  run.of.of.has_chip_tables = true;
  EXPECT_EQ(cell(run.table(), "", "presence", "BCM asic_shell 0/0/CPU0"), "no such cell");
}

TEST(dossier, keeps_what_was_read_before_the_rest_was_lost) {
  example run(2);
  run.hole(layer::pd, "0/0/CPU0", "");
  EXPECT_EQ(cell(run.table(), "", "LAG id", "PD lagmgr_agent 2 nodes"), "0x1");
  EXPECT_EQ(cell(run.table(), "0/0/0/1", "member id", "PD lagmgr_agent its node"), "not read");
}

TEST(dossier, numbers_folds_of_as_many_other_nodes) {
  example run(4);
  for (const std::int16_t node : {std::int16_t{0}, std::int16_t{1}})
    run.set(run.bundle, field::weight, source::lagport, node, no_place, "1");
  for (const std::int16_t node : {std::int16_t{2}, std::int16_t{3}})
    run.set(run.bundle, field::weight, source::lagport, node, no_place, "0");
  const dossier_table made = run.table();
  EXPECT_EQ(cell(made, "", "weight", "DPA lagport 2 nodes"), "1");
  EXPECT_EQ(cell(made, "", "weight", "DPA lagport 2 nodes (2)"), "0");
}

// ---- Folding, held against the cells themselves -------------------------------------------------

using place_of_value = std::tuple<string, string, source, string>;  // part, row, tool, node

std::map<place_of_value, string> unfolded(const dossier_table& of) {
  std::map<place_of_value, string> values;
  for (const auto& section : of.sections)
    for (const auto& part : section.parts)
      for (const auto& row : part.rows)
        for (std::size_t i = 0; i < row.cells.size(); ++i) {
          if (row.cells[i].text.empty()) continue;
          const auto& column = section.columns[i];
          std::vector<string> nodes = {column.place};
          for (const auto& [label, names] : of.folds)
            if (label == column.place) nodes.assign(names.begin(), names.end());
          for (const string& node : nodes)
            values[{part.name, string(row.label), column.from, node}] = row.cells[i].text;
        }
  return values;
}

// The nodes in any order, some with two NPUs; the router as a whole before them.
TEST(dossier, loses_no_value_by_folding) {
  std::mt19937 random(7);
  const auto below = [&](std::size_t end) { return random() % end; };
  const auto& hostile = hostile_texts();
  for (int round = 0; round < 200; ++round) {
    example run(1 + below(9));
    const bool has_place = round % 2 == 0;
    if (!has_place) run.of.of.places.clear();
    for (auto& one : run.of.of.objects) one.cells.clear();
    std::vector<std::int16_t> nodes(run.of.of.nodes.size() + 1);
    std::iota(nodes.begin(), nodes.end(), no_place);
    if (round % 4 == 3) std::shuffle(nodes.begin(), nodes.end(), random);
    std::map<place_of_value, string> plain;
    for (std::size_t part : {run.bundle, run.member, run.sub})
      for (const field what : {field::mac, field::lag_id, field::rif, field::weight})
        for (const source from : {source::agent, source::lagport, source::l3intf})
          for (const std::int16_t node : nodes) {
            const std::size_t kind = below(8);
            if (kind < 3) continue;
            const string value = kind == 3 ? hostile[below(hostile.size())] : "0x11";
            if (value.empty()) continue;
            run.set(part, what, from, node, kind == 4 ? std::int16_t{0} : no_place, value);
            if (kind == 4) run.set(part, what, from, node, 1, value);
            const bool is_own = has_place && part == run.member && node == 0;
            plain[{part == run.bundle ? "" : run.of.of.objects[part].name, string(word_for(what)),
                   from,
                   node == no_place ? ""
                   : is_own         ? "its node"
                            : run.of.of.nodes[static_cast<std::size_t>(node)].name}] = value;
          }
    ASSERT_EQ(unfolded(run.table()), plain) << round;
  }
}

TEST(dossier, shows_all_values_of_a_place_that_has_several) {
  example run(3);
  run.of.of.objects[run.sub].cells.clear();
  run.set(run.sub, field::encapsulation, source::running_config, no_place, no_place, "5");
  run.set(run.sub, field::encapsulation, source::running_config, no_place, no_place, "6");
  for (const std::int16_t node : {std::int16_t{0}, std::int16_t{1}, std::int16_t{2}})
    run.set(run.sub, field::lif, source::l2intf, node, no_place, "0x14001");
  const dossier_table made = run.table();
  EXPECT_EQ(cell(made, "BE1.100", "encapsulation", "config cfg_render "), "5 / 6");
  EXPECT_EQ(cell(made, "BE1.100", "global LIF", "DPA l2intf 3 nodes"), "0x14001");
}

// ---- On a terminal ------------------------------------------------------------------------------

TEST(dossier, fits_the_terminal) {
  example run(16);
  for (std::int16_t i = 0; i < 16; ++i)
    run.set(run.bundle, field::weight, source::lagport, i, no_place, std::to_string(i));
  run.found("TC-118", member_ref, layer::bcm, field::mtu, "0/0/CPU0", "0");
  run.hole(layer::dpa, "0/7/CPU0", "");
  run.of.of.covered.back().reason = string(50, 'a') + " " + string(50, 'b');
  for (const std::size_t width : {60U, 80U, 132U}) {
    std::istringstream lines(shown(run.of, "BE1", width));
    string line;
    while (std::getline(lines, line)) {
      EXPECT_LE(columns_of(line), width) << line;
      EXPECT_FALSE(line.ends_with(' ')) << line;
    }
  }
}

TEST(dossier, shows_the_tables_with_their_tools) {
  example run(3);
  run.found("TC-118", member_ref, layer::bcm, field::mtu, "0/0/CPU0", "0");
  const string text = shown(run.of, "BE1", 100);
  EXPECT_THAT(text, HasSubstr("\nMembers\n"));
  EXPECT_THAT(text, HasSubstr("\n0/0/0/1  0/0/CPU0 NPU 0 core 1\n"));
  EXPECT_THAT(text, HasSubstr("\n  MTU           9216   -             differs* (NPU 0)  -\n"));
  EXPECT_THAT(text, HasSubstr("\nRead from\n"));
  EXPECT_THAT(text, HasSubstr("  DPA     l2port        fwd_object_show -t l2port\n"));
  EXPECT_THAT(text, HasSubstr("\n  3 nodes: 0/0/CPU0, 0/1/CPU0, 0/2/CPU0\n"));
}

TEST(dossier, lists_of_a_shared_cause_what_concerns_the_bundle) {
  example run(2);
  cause& shared = run.of.causes.emplace_back();
  shared.title = "the same message of each";
  for (int i = 0; i < 30; ++i) {
    finding& one = run.of.of.findings.emplace_back();
    const int number = i % 3;  // of none, of BE1, of BE2
    if (number != 0) one.object.bundle = fmt::format("BE{}", number);
    one.text = fmt::format("message {} of {}", i, number);
    shared.findings.push_back(static_cast<std::size_t>(i));
  }
  run.of.bundles[0].causes = {0};
  const string text = shown(run.of, "BE1", 100);
  for (const int i : {0, 21, 1, 28}) EXPECT_THAT(text, HasSubstr(fmt::format(" message {} of", i)));
  for (const int i : {24, 27, 2, 29})
    EXPECT_THAT(text, Not(HasSubstr(fmt::format(" message {} of", i))));
  EXPECT_THAT(
      text,
      HasSubstr("\n    and 12 more messages of this cause; summary --all shows everything\n"));
}

TEST(dossier, keeps_hostile_texts_on_their_lines) {
  const judged_run run = hostile_run();
  for (const auto& each : run.bundles) {
    const string text = shown(run, each.bundle);
    EXPECT_EQ(utf8(text), text);
    EXPECT_EQ(text.find('\x1b'), string::npos);
    EXPECT_EQ(text.find('\0'), string::npos);
    EXPECT_EQ(text.find('\r'), string::npos);
    EXPECT_THAT(text, Not(HasSubstr("\xc2\x9b")));
  }
}

TEST(dossier, is_of_the_bundle_that_a_person_means) {
  example run(2);
  for (const char* word : {"BE1", "be1", "Be1", "1", "Bundle-Ether1", "bundle-ether1", "BE1.100",
                           "be1.7", "0/0/0/1", "HundredGigE0/0/0/1", "0x1"})
    EXPECT_EQ(bundle_meant(run.of, word), "BE1") << word;
  for (const char* word : {"BE2", "be", "be1x", "bundle1", "", ".100", "0/0/0/2", "0x2"})
    EXPECT_EQ(bundle_meant(run.of, word), std::nullopt) << word;
}

TEST(dossier, names_a_sub_bundle_that_the_run_lacks) {
  example run(2);
  const desk::run& of = run.of.of;
  for (const char* word : {"BE1", "BE1.100", "be1.100", "1.100", "0/0/0/1", "0x1.2"})
    EXPECT_EQ(unknown_sub_bundle(of, word), "") << word;
  EXPECT_EQ(unknown_sub_bundle(of, "bundle-ether1.7"), "BE1.7");
  run.found("TC-118", {object_kind::sub_bundle, "BE1", "BE1.7"}, layer::bcm, field::mtu, "", "");
  EXPECT_EQ(unknown_sub_bundle(of, "BE1.7"), "") << "a message names it";
  run.of.of.marks.emplace_back("the snapshot is cut off");
  EXPECT_EQ(unknown_sub_bundle(of, "BE1.8"), "") << "it may have been behind the cut";
}

TEST(dossier, says_little_of_a_bundle_that_only_messages_name) {
  judged_run run;
  run.bundles.emplace_back().bundle = "BE7";
  EXPECT_EQ(shown(run, "BE7"), "BE7 not judged\n");
}

}  // namespace
}  // namespace desk
