#include "lab/capture/diff.h"

#include <gtest/gtest.h>

#include "lab/capture/diff_names.h"
#include "support.h"

namespace {

using namespace lab;

capture birch() {
  return lab_test::rendered_router("birch-small").c;
}

void replace_in(std::string& text, const std::string& from, const std::string& to) {
  const std::size_t at = text.find(from);
  ASSERT_NE(at, std::string::npos) << from;
  text.replace(at, from.size(), to);
}

const std::string dpa = "fwd_object_show -t lagport -D";

TEST(changes, are_empty_between_equal_captures) {
  EXPECT_TRUE(changes_between(birch(), birch()).empty());
  EXPECT_EQ(change_report({}), "No layer changed.\n");
}

TEST(changes, name_layer_node_and_bundle) {
  capture b = birch();
  replace_in(answer_to(b, "192.0.0.6", dpa), "lag_id => 0x1\n", "lag_id => 0x401\n");
  const auto changes = changes_between(birch(), b);
  ASSERT_EQ(changes.size(), 1U);
  EXPECT_EQ(changes[0].layer, "DPA");
  EXPECT_EQ(changes[0].where, "0/0/CPU0");
  EXPECT_EQ(changes[0].named, std::set<std::string>{"BE1"});
  EXPECT_EQ(changes[0].lines, 2U);
  EXPECT_EQ(change_report(changes),
            "layer          node                lines  about\n"
            "DPA            0/0/CPU0                2  BE1\n");
}

TEST(changes, come_in_the_order_of_the_layers) {
  capture b = birch();
  const std::string health = "lagmgr_health";
  const std::string chip = "asic_shell_show -c \"diag lag\" -u 1 -n 0";
  answer(b, "local", health, "another\n");
  answer(b, "local", chip, answer_to(b, "local", chip) + "one more\n");
  replace_in(answer_to(b, "local", "cfg_render -c -l 1 -t 1 -o 1"), " description customer port",
             " description another port");
  replace_in(answer_to(b, "local", "lagmgr_table_show -d -P 0x0 -N all -L 0x3 -O all"),
             "Operational MTU                  9216", "Operational MTU                  1500");
  const auto changes = changes_between(birch(), b);
  ASSERT_EQ(changes.size(), 4U);
  EXPECT_EQ(changes[0].layer, "configuration");
  EXPECT_EQ(changes[0].named, std::set<std::string>{"BE2"});
  EXPECT_EQ(changes[1].layer, "PI");
  EXPECT_EQ(changes[1].named, std::set<std::string>{"BE1"});
  EXPECT_EQ(changes[2].layer, "BCM");
  EXPECT_EQ(changes[2].where, "0/0/CPU0 NPU 1");
  EXPECT_TRUE(changes[2].named.empty());
  EXPECT_EQ(changes[2].asked, std::set<std::string>{"asic_shell_show -c diag lag -u 1 -n 0"});
  EXPECT_EQ(changes[3].layer, "bundle health");
}

TEST(changes, do_not_include_values_that_change_by_themselves) {
  capture b = birch();
  replace_in(answer_to(b, "local", "iface_show -i .*"), "1234567 packets", "1234568 packets");
  replace_in(answer_to(b, "local", "plat_nodes_show -v"), "12w3d", "13w1d");
  replace_in(answer_to(b, "local", "sw_version_show"), "12 weeks", "13 weeks");
  replace_in(answer_to(b, "local", "cfg_render -c -l 1 -t 1 -o 1"), "11:02:13", "11:02:14");
  EXPECT_TRUE(changes_between(birch(), b).empty());
}

TEST(changes, do_not_include_the_journal) {
  capture b = birch();
  b.journal = "{\"n\":1}\n";
  EXPECT_TRUE(changes_between(birch(), b).empty());
}

TEST(changes, do_not_include_the_order_of_lines) {
  capture a;
  capture b;
  answer(a, "local", "ifmgr_show database", "0x1 Hu0/0/0/0 x\n0x2 Hu0/0/0/1 y\n");
  answer(b, "local", "ifmgr_show database", "0x2 Hu0/0/0/1 y\n0x1 Hu0/0/0/0 x\n");
  EXPECT_TRUE(changes_between(a, b).empty());
  answer(b, "local", "ifmgr_show database", "0x2 Hu0/0/0/1 y\n0x1 Hu0/0/0/0 x\n0x1 Hu0/0/0/0 x\n");
  EXPECT_EQ(changes_between(a, b).at(0).named, std::set<std::string>{"Hu0/0/0/0"});
}

TEST(changes, include_commands_that_only_one_capture_answers) {
  capture a = birch();
  capture b = birch();
  a.answers.erase({"local", "lagmgr_health"});
  const auto changes = changes_between(a, b);
  ASSERT_EQ(changes.size(), 1U);
  EXPECT_EQ(*changes[0].asked.begin(), "lagmgr_health (B only)");
  EXPECT_EQ(*changes_between(b, a)[0].asked.begin(), "lagmgr_health (A only)");
}

TEST(changes, include_statuses_and_further_answers) {
  capture a;
  capture b;
  answer(a, "local", "lagmgr_health", "fine\n");
  b.answers[{"local", "lagmgr_health;1"}] = "fine\n";
  b.answers[{"local", "lagmgr_health;answers"}] = "3 1\n";
  EXPECT_EQ(changes_between(a, b).size(), 1U);
  EXPECT_EQ(changes_between(a, b)[0].lines, 2U) << "the head of the list and its line";
}

TEST(changes, of_many_nodes_fit_on_a_screen) {
  std::vector<layer_change> many(
      50,
      layer_change{"DPA", "0/0/CPU0", {"BE1", "BE2", "BE3", "BE4", "BE5", "BE6", "BE7"}, {}, 9});
  const std::string report = change_report(many);
  EXPECT_EQ(std::count(report.begin(), report.end(), '\n'), 22);
  EXPECT_NE(report.find("BE1, BE2, BE3, BE4, BE5, 2 more\n"), std::string::npos);
  EXPECT_NE(report.find("... and 30 more\n"), std::string::npos);
}

TEST(changes, show_the_lines_that_differ) {
  capture a;
  capture b;
  answer(a, "local", "lagmgr_table_show", "Bundle-Ether2\nMTU 1\n\nBundle-Ether1\nMTU 2\nMTU 2\n");
  answer(b, "local", "lagmgr_table_show", "Bundle-Ether2\nMTU 1\n\nBundle-Ether1\nMTU 3\033[1m\n");
  EXPECT_EQ(change_report(changes_between(a, b), {.values = true}),
            "layer          node                lines  about\n"
            "PI             router                  3  BE1\n"
            "  - BE1        MTU 2\n"
            "  - BE1        MTU 2\n"
            "  + BE1        MTU 3\\x1b[1m\n");
}

TEST(changes, are_all_shown_on_request) {
  capture a;
  capture b;
  std::string many;
  for (int i = 1; i <= 30; ++i) many += "Bundle-Ether" + std::to_string(i) + " up\n";
  many += "Bundle-Ether31 " + std::string(300, 'x') + "\n";
  answer(a, "local", "lagmgr_table_show", "");
  answer(b, "local", "lagmgr_table_show", many);
  const auto changes = changes_between(a, b);
  const std::string brief = change_report(changes, {.values = true});
  EXPECT_EQ(std::count(brief.begin(), brief.end(), '\n'), 9);
  EXPECT_NE(brief.find(", 26 more\n"), std::string::npos);
  EXPECT_NE(brief.find("  ... and 25 more lines; see --all\n"), std::string::npos);
  const std::string all = change_report(changes, {.values = true, .all = true});
  EXPECT_EQ(std::count(all.begin(), all.end(), '\n'), 33);
  EXPECT_EQ(all.find("more"), std::string::npos);
  EXPECT_NE(all.find(std::string(300, 'x') + "\n"), std::string::npos);
}

TEST(owners_of_lines, are_named_in_the_line_or_its_block) {
  const handle_names names{{"0x3000004", "BE1"}, {"0x1000040", "Hu0/0/0/0"}};
  const auto owner = [&](const char* text, std::size_t line) {
    return lines_with_owners(text, names).at(line).owner;
  };
  EXPECT_EQ(owner("interface Bundle-Ether12.7\n mtu 9000\n!\n", 1), "BE12.7");
  EXPECT_EQ(owner("lagport element 0\n intf => 0x3000004\n mifh => 0x1000040\n\n", 0), "BE1");
  EXPECT_EQ(owner("lagport element 0\n intf => 0x3000004\n mifh => 0x1000040\n\n", 2), "BE1");
  EXPECT_EQ(owner("interface HundredGigE0/0/0/1\n bundle id 1\n!\n", 1), "HundredGigE0/0/0/1");
  EXPECT_EQ(owner("a BE1\nb BE2.100 x\nc\n", 1), "BE2.100");
  EXPECT_EQ(owner("a BE1\nb BE2.100 x\nc\n", 2), "BE1");
  EXPECT_EQ(owner("first BE1\n\nsecond\n", 1), "");
  EXPECT_EQ(owner("0x30000040 MYBE1 BEx 12/3\n", 0), "");
}

}  // namespace
