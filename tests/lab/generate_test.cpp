#include "lab/model/generate.h"
#include "lab/base/error.h"
#include "lab/faults/render_faulty.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <set>

#include "support.h"

namespace {

using namespace lab;
namespace fs = std::filesystem;

// The limits of a type: bundles, layer 2 and layer 3 sub-bundles.
struct limits {
  const char* type;
  unsigned bundles;
  unsigned l2_subs;
  unsigned l3_subs;
};

constexpr limits all_limits[] = {
    {"birch", 256, 8192, 1024},   {"aspen", 256, 8192, 1024},   {"cedar", 256, 4092, 1024},
    {"dogwood", 256, 8192, 1024}, {"cedarl", 1024, 4092, 1024}, {"gorse", 32, 4092, 512},
    {"elm", 1024, 4092, 512},     {"fir", 256, 8192, 1024},
};

generate_request largest(const limits& row) {
  generate_request wanted = default_request(row.type);
  wanted.bundles = row.bundles;
  wanted.l2_subs = row.l2_subs;
  wanted.l3_subs = row.l3_subs;
  return wanted;
}

TEST(generate, reaches_the_limits_of_every_type) {
  for (const limits& row : all_limits) {
    const router r = generate(largest(row));
    EXPECT_EQ(r.type, row.type);
    EXPECT_EQ(r.bundles.size(), row.bundles) << row.type;
    unsigned l2 = 0;
    unsigned l3 = 0;
    for (const bundle& b : r.bundles)
      for (const sub_bundle& s : b.subs) (s.l2 ? l2 : l3) += 1;
    EXPECT_EQ(l2, row.l2_subs) << row.type;
    EXPECT_EQ(l3, row.l3_subs) << row.type;
  }
}

TEST(generate, goes_beyond_the_limits) {
  generate_request wanted = largest(all_limits[0]);
  wanted.bundles = 2000;
  wanted.members = 16;
  wanted.l2_subs = 20000;
  const router r = generate(wanted);
  EXPECT_EQ(r.bundles.size(), 2000U);
  std::set<std::string> tails;
  for (const bundle& b : r.bundles)
    for (const member& m : b.members) tails.insert(port_tail(m.port));
  EXPECT_EQ(tails.size(), 32000U);
  for (const node& n : r.nodes) EXPECT_FALSE(tails.contains(port_tail(free_port(r, n)))) << n.name;
}

TEST(generate, spreads_members_over_cards_npus_and_cores) {
  generate_request wanted = default_request("birch");
  wanted.cards = 3;
  wanted.npus = 4;
  wanted.bundles = 24;
  const router r = generate(wanted);
  std::set<std::string> places;
  for (const bundle& b : r.bundles)
    for (const member& m : b.members)
      places.insert(m.node + " " + std::to_string(m.npu) + " " + std::to_string(m.core));
  EXPECT_EQ(places.size(), 3U * 4U * 2U);
}

std::set<chip_family> families(const std::string& type, chip_mix mix) {
  generate_request wanted = default_request(type);
  wanted.family = mix;
  const router r = generate(wanted);
  std::set<chip_family> found;
  for (const bundle& b : r.bundles)
    for (const member& m : b.members) found.insert(family_of(*find_node(r, m.node)));
  return found;
}

TEST(generate, puts_the_chips_where_the_ports_are) {
  using set = std::set<chip_family>;
  for (const limits& row : all_limits) {
    EXPECT_EQ(families(row.type, chip_mix::older), set{chip_family::older}) << row.type;
    EXPECT_EQ(families(row.type, chip_mix::jericho2), set{chip_family::jericho2}) << row.type;
    const bool one_chip = is_single_node(row.type) || std::string{row.type} == "aspen";
    EXPECT_EQ(families(row.type, chip_mix::mixed).size(), one_chip ? 1U : 2U) << row.type;
  }
}

TEST(generate, same_seed_same_router) {
  generate_request wanted = default_request("birch");
  const auto once = render(generate(wanted)).answers;
  EXPECT_EQ(render(generate(wanted)).answers, once);
  wanted.seed = 2;
  EXPECT_NE(render(generate(wanted)).answers, once);
}

TEST(generate, answers_do_not_grow_with_chips_times_lifs) {
  generate_request wanted = default_request("birch");
  wanted.bundles = 16;
  wanted.l2_subs = 400;
  const std::size_t small = render(generate(wanted)).answers.size();
  wanted.cards = 8;
  wanted.npus = 4;
  const std::size_t large = render(generate(wanted)).answers.size();
  EXPECT_LT(large - small, 400U) << "28 more chips, and not one more answer for each LIF";
}

std::string refusal(generate_request wanted) {
  try {
    generate(wanted);
  } catch (const lab_error& failure) {
    return failure.what();
  }
  return "accepted";
}

TEST(generate, refuses_what_cannot_be_built) {
  const auto birch = [](auto change) {
    generate_request wanted = default_request("birch");
    change(wanted);
    return refusal(wanted);
  };
  using request = generate_request;
  EXPECT_EQ(birch([](request& w) { w.type = "willow"; }), "unknown router type \"willow\"");
  EXPECT_EQ(birch([](request& w) { w.cards = 17; }),
            "17 cards: a router of type birch has 1 to 16");
  EXPECT_EQ(birch([](request& w) { w.npus = 17; }), "17 NPUs: a card has 1 to 16");
  EXPECT_EQ(birch([](request& w) { w.bundles = 0; }), "0 bundles: a router has 1 to 65535");
  EXPECT_EQ(birch([](request& w) { w.members = 0; }),
            "0 members of each of 4 bundles: a router has 1 to 65535 ports");
  EXPECT_EQ(birch([](request& w) { w.members = 4000000000; }),
            "4000000000 members of each of 4 bundles: a router has 1 to 65535 ports");
  EXPECT_EQ(birch([](request& w) { w.l2_subs = 20000; }),
            "5002 sub-bundles on one bundle: there are 4094 VLANs");
  request wanted = default_request("dogwood");
  wanted.npus = 2;
  EXPECT_EQ(refusal(wanted), "2 NPUs: the nodes of a router of type dogwood have one");
  wanted = default_request("elm");
  wanted.cards = 2;
  EXPECT_EQ(refusal(wanted), "2 cards: a router of type elm is a single node");
}

TEST(generate_command, writes_a_capture) {
  const lab_test::scratch_folder scratch;
  const std::string out = (scratch.path() / "out").string();
  const auto made = lab_test::run_shell(LAB_PROGRAM
                                        " generate --type fir --cards 3 --npus 2 --bundles 5 "
                                        "--members 3 --l2-subs 7 --l3-subs 2 --family j2 --hqos "
                                        "--seed 9 " +
                                        out);
  EXPECT_EQ(made.status, 0) << made.err;
  EXPECT_EQ(made.out + made.err, "");
  generate_request wanted = default_request("fir");
  wanted.cards = 3;
  wanted.npus = 2;
  wanted.bundles = 5;
  wanted.members = 3;
  wanted.l2_subs = 7;
  wanted.l3_subs = 2;
  wanted.family = chip_mix::jericho2;
  wanted.hqos = true;
  wanted.seed = 9;
  EXPECT_EQ(read_folder(out).answers, render(generate(wanted)).answers);
}

TEST(generate_command, takes_each_type_that_its_help_names) {
  const auto help = lab_test::run_shell(LAB_PROGRAM " generate --help").out;
  const auto types = lab_test::findall(
      "[a-z]+", help.substr(help.find("--type TYPE") + 11,
                            help.find("Default") - help.find("--type TYPE") - 11));
  ASSERT_EQ(types.size(), 9U) << "eight and an \"or\"";
  for (const auto& type : types) {
    if (type.front() == "or") continue;
    const lab_test::scratch_folder scratch;
    const auto made = lab_test::run_shell(LAB_PROGRAM " generate --type " + type.front() + " " +
                                          (scratch.path() / "out").string());
    EXPECT_EQ(made.status, 0) << made.err;
  }
}

TEST(generate_command, reads_a_number_as_decimal) {
  const lab_test::scratch_folder scratch;
  const std::string out = (scratch.path() / "out").string();
  EXPECT_EQ(lab_test::run_shell(LAB_PROGRAM " generate " + out + " --bundles=010").status, 0);
  generate_request wanted = default_request("birch");
  wanted.bundles = 10;
  EXPECT_EQ(read_folder(out).answers, render(generate(wanted)).answers);
}

TEST(generate_command, refuses_bad_values_in_one_line_and_writes_nothing) {
  struct row {
    const char* arguments;
    std::string message;
  };
  const std::string hint = "; see tessel-lab generate --help";
  const row rows[] = {
      {"--cards 17", "17 cards: a router of type birch has 1 to 16" + hint},
      {"--cards many", "--cards \"many\": not a number from 0 to 4294967295" + hint},
      {"--cards 0x10", "--cards \"0x10\": not a number from 0 to 4294967295" + hint},
      {"--cards ''", "--cards \"\": not a number from 0 to 4294967295" + hint},
      {"--cards=", "--cards \"\": not a number from 0 to 4294967295" + hint},
      {"--bundles -1", "--bundles \"-1\": not a number from 0 to 4294967295" + hint},
      {"--bundles +1", "--bundles \"+1\": not a number from 0 to 4294967295" + hint},
      {"--bundles ' 1'", "--bundles \" 1\": not a number from 0 to 4294967295" + hint},
      {"--bundles 4294967296",
       "--bundles \"4294967296\": not a number from 0 to 4294967295" + hint},
      {"--type willow", "unknown router type \"willow\"" + hint},
      {"--family new", "--family \"new\": not one of old, j2, mixed" + hint},
      {"--seed", "--seed needs a value" + hint},
      {"--speed 9", "unknown option --speed" + hint},
  };
  for (const row& r : rows) {
    const lab_test::scratch_folder scratch;
    const auto refused = lab_test::run_shell("cd " + scratch.path().string() +
                                             " && " LAB_PROGRAM " generate out " + r.arguments);
    EXPECT_EQ(refused.status, 64) << r.arguments;
    EXPECT_EQ(refused.err, "tessel-lab: generate: " + r.message + "\n");
    EXPECT_TRUE(fs::is_empty(scratch.path())) << r.arguments;
  }
}

}  // namespace
