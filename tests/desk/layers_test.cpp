#include "desk/model/layers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "desk/model/numbers.h"

namespace desk {
namespace {

// What the chips say of a member: of which node, and what.
using seen = std::vector<std::tuple<field, std::int16_t, std::string>>;

struct agent_member {
  std::string bundle, name, member_id, system_port;
};
struct chip_member {
  std::string lag, named;
};

// A router with one node of each chip family, each with one chip, all of whose values are from a
// few. Each chip lists what the other one would call a member as well.
struct small_router {
  std::vector<std::pair<std::string, std::string>> lags;  // bundle and LAG id
  std::vector<agent_member> members;
  std::vector<chip_member> in_older;
  std::vector<chip_member> in_jericho2;
};

small_router any_router(std::uint32_t seed) {
  std::mt19937 random(seed);
  const auto below = [&](std::size_t limit) { return std::to_string(random() % limit); };
  small_router made;
  for (int b = 1; b <= 3; ++b) {
    const std::string bundle = "BE" + std::to_string(b);
    made.lags.emplace_back(bundle, "0x" + below(3));
    for (int m = 0; m < 4; ++m)
      made.members.push_back(
          {bundle, "0/0/0/" + std::to_string(10 * b + m), "0x" + below(4),
           std::vector<std::string>{"0x0001", "0x11", "0x", "1001", "0x101"}[random() % 5]});
  }
  for (auto* listed : {&made.in_older, &made.in_jericho2})
    for (int i = 0; i < 12; ++i)
      listed->push_back(
          {"0x" + below(4), random() % 2 == 0 ? "0x" + below(4) : "0x040010" + below(20)});
  return made;
}

std::string dump(const std::string& label, const std::string& text) {
  return "'Start of " + label + " entries...'\n" + text + "\n'End of " + label + " entries...'\n";
}

// Equal keys may come twice; a reader of JSON takes each as it comes.
std::string debug_log_of(const small_router& of) {
  std::string bundles, agents, older, jericho2;
  for (const auto& [bundle, id] : of.lags)
    bundles.append(",\"").append(bundle).append(R"(":{"Data":{"lagid":")").append(id) += "\"}}";
  for (const agent_member& m : of.members) {
    bundles += ",\"" + m.bundle + "\":{\"Data\":{\"members\":{\"0/0/CPU0\":{\"" + m.name +
               "\":{\"nodename\":\"0/0/CPU0\",\"npu_id\":\"0\"}}}}}";
    agents += ",\"" + m.bundle + "\":{\"members\":{\"0/0/CPU0\":{\"" + m.name + "\":{\"memid\":\"" +
              m.member_id + "\",\"sysport\":\"" + m.system_port + "\"}}}}";
  }
  for (const chip_member& m : of.in_older)
    older += ",\"LAG " + m.lag + "\":{\"" + m.named + "\":{\"gport\":\"x\"}}";
  for (const chip_member& m : of.in_jericho2)
    jericho2 += ",\"" + m.lag + "\":{\"members\":[\"" + m.named + "\"]}";
  return dump("TESSELDB", "{" + bundles.substr(1) + "}") +
         dump("BCM", R"({"0/0/CPU0":{"0":{"diag_lag":{)" + older.substr(1) +
                         R"(}}},"0/1/CPU0":{"0":{"tm_lag":{)" + jericho2.substr(1) + "}}}}") +
         dump("BM PD", "{" + agents.substr(1) + "}");
}

std::string_view significant_digits(std::string_view system_port) {
  system_port.remove_prefix(std::min(system_port.find_first_not_of("0x"), system_port.size()));
  return system_port;
}

// Each line of each chip compared with each member.
seen plainly_seen(const small_router& of, const agent_member& member) {
  const std::string_view digits = significant_digits(member.system_port);
  const auto is_in = [&](const chip_member& line) {
    return std::find(of.lags.begin(), of.lags.end(), std::pair(member.bundle, line.lag)) !=
           of.lags.end();
  };
  seen made;
  for (const chip_member& line : of.in_older)
    if (is_in(line) && line.named == member.member_id)
      made.emplace_back(field::presence, 0, "present");
  for (const chip_member& line : of.in_jericho2)
    if (is_in(line) && !digits.empty() && line.named.ends_with(digits))
      made.emplace_back(field::presence, 1, "present");
  return made;
}

class layers : public testing::Test {
 protected:
  void SetUp() override {
    std::string name = testing::TempDir() + "desk_layers.XXXXXX";
    ASSERT_NE(::mkdtemp(name.data()), nullptr);
    folder = name;
  }
  void TearDown() override { std::filesystem::remove_all(folder); }
  void read(run& into, const std::string& log) const {
    std::ofstream(folder + "/log", std::ios::binary) << log;
    read_layers(into, folder + "/log");
  }
  static seen seen_of(const run& of, const object& one) {
    seen made;
    for (const cell& c : one.cells)
      if (layer_of(c.from) == layer::bcm)
        made.emplace_back(c.what, c.node, std::string(of.texts.text(c.value)));
    return made;
  }

  std::string folder;
};

TEST_F(layers, give_a_member_what_its_chip_lists_in_the_way_of_its_family) {
  std::size_t found = 0;
  for (std::uint32_t seed = 0; seed < 300; ++seed) {
    const small_router router = any_router(seed);
    run of;
    read(of, debug_log_of(router));
    ASSERT_THAT(of.marks, testing::IsEmpty());
    for (const agent_member& member : router.members) {
      const object* one = of.find(object_kind::member, member.bundle, member.name);
      ASSERT_NE(one, nullptr);
      const seen plain = plainly_seen(router, member);
      ASSERT_EQ(seen_of(of, *one), plain) << "seed " << seed << ' ' << member.name;
      found += plain.size();
    }
  }
  EXPECT_GT(found, 1000U);
}

// So many bundles have LAG 0x1 and a member each, and the chips have so many lines of it.
small_router router_of_one_lag(int bundles, int lines) {
  small_router made;
  for (int i = 1; i <= bundles; ++i) {
    const std::string bundle = "BE" + std::to_string(i);
    made.lags.emplace_back(bundle, "0x1");
    made.members.push_back({bundle, "0/0/0/" + std::to_string(i), "0x0", "0x11"});
  }
  made.in_older.assign(static_cast<std::size_t>(lines), {"0x1", "0x0"});
  made.in_jericho2.assign(static_cast<std::size_t>(lines), {"0x1", "0x04001011"});
  return made;
}

small_router router_of_one_name(int members, int lines) {
  small_router made = router_of_one_lag(members, lines);
  made.lags.resize(1);
  for (agent_member& one : made.members) one.bundle = made.lags.front().first;
  return made;
}

TEST_F(layers, give_what_a_chip_lists_to_few_of_one_name) {
  for (const auto& router_of : {router_of_one_lag, router_of_one_name}) {
    const auto cells_and_marks = [&](int objects, int lines) {
      run of;
      read(of, debug_log_of(router_of(objects, lines)));
      std::size_t cells = 0;
      for (const object& one : of.objects) cells += seen_of(of, one).size();
      return std::pair(cells, of.marks);
    };
    EXPECT_THAT(cells_and_marks(16, 3).second, testing::IsEmpty());
    const auto [few, no_marks] = cells_and_marks(16, 500);
    EXPECT_GE(few, 16U * 2U * 500U);
    const auto [many, marks] = cells_and_marks(1000, 500);
    const auto [twice, same_marks] = cells_and_marks(2000, 1000);
    EXPECT_LE(many, few);
    EXPECT_LE(twice, 2 * many);
    EXPECT_THAT(marks, testing::ElementsAre(testing::StartsWith(
                           "LAGs and members of the chips are left out: more than 16 objects")));
    EXPECT_EQ(marks, same_marks);
  }
}

// Three bundles of so many members each, all with member id 0x0 and a system port of its own; each
// chip lists them as its family names them.
small_router router_of_unset_ids(int members) {
  small_router made;
  for (int b = 1; b <= 3; ++b) {
    const std::string bundle = "BE" + std::to_string(b);
    const std::string lag = "0x" + std::to_string(b);
    made.lags.emplace_back(bundle, lag);
    for (int m = 0; m < members; ++m) {
      const std::string port = std::to_string(1000 * b + m);
      made.members.push_back({bundle, "0/0/0/" + port, "0x0", "0x" + port});
      made.in_older.push_back({lag, "0x0"});
      made.in_jericho2.push_back({lag, "0x0400" + port});
    }
  }
  return made;
}

TEST_F(layers, mark_only_the_names_that_a_chip_has) {
  small_router router = router_of_unset_ids(17);
  const std::vector<chip_member> older = std::exchange(router.in_older, {{"0x9", "0x0"}});
  run by_port;
  read(by_port, debug_log_of(router));
  EXPECT_THAT(by_port.marks, testing::IsEmpty());
  for (const object& one : by_port.objects) {
    if (one.kind != object_kind::member) continue;
    EXPECT_EQ(seen_of(by_port, one), (seen{{field::presence, 1, "present"}})) << one.name;
  }

  router.in_older = older;
  run by_both;
  read(by_both, debug_log_of(router));
  EXPECT_THAT(by_both.marks, testing::ElementsAre(testing::EndsWith("member's name 0x0")))
      << "one name of three bundles";
  EXPECT_EQ(seen_of(by_both, *by_both.find(object_kind::member, "BE3", "0/0/0/3016")),
            (seen{{field::presence, 1, "present"}}));

  run of_few;
  read(of_few, debug_log_of(router_of_unset_ids(16)));
  EXPECT_THAT(of_few.marks, testing::IsEmpty());
  const seen of_first = seen_of(of_few, *of_few.find(object_kind::member, "BE1", "0/0/0/1000"));
  EXPECT_EQ(of_first.size(), 16U + 1U);
}

TEST_F(layers, count_the_sub_bundles_of_a_lag_as_well) {
  for (const int subs : {15, 16}) {
    std::string text;
    for (int i = 1; i <= subs; ++i)
      text.append(i == 1 ? "" : ",").append("\"BE1.") += std::to_string(i) + R"(":{"lagid":"0x1"})";
    const std::string bundles =
        dump("TESSELDB", R"({"BE1":{"Data":{"lagid":"0x1","sub_bundles":{)" + text + "}}}}");
    const auto marks = [&](const std::string& lag) {
      run of;
      read(of, bundles + dump("BCM", R"({"0/0/CPU0":{"0":{"tm_lag":{")" + lag +
                                         R"(":{"members":["0x04000012"]}}}}})"));
      return of.marks;
    };
    EXPECT_THAT(marks("0x2"), testing::IsEmpty());
    if (subs == 15) {
      EXPECT_THAT(marks("0x1"), testing::IsEmpty());
    } else {
      EXPECT_THAT(marks("0x1"), testing::ElementsAre(testing::EndsWith("member's name 0x1")));
    }
  }
}

TEST_F(layers, keep_the_ids_of_all_lags_of_a_chip) {
  run of;
  read(of, dump("BCM", R"({"0/0/CPU0":{"0":{"diag_lag":{"LAG 0x1":{},"LAG 0x401":{}}},)"
                       R"("1":{"tm_lag":{"0x2":{"members":[]}}}}})"));
  const auto id = [&](const char* text) { return of.texts.find(text).value(); };
  EXPECT_THAT(of.chip_lags.at({0, 0}), testing::ElementsAre(id("0x1"), id("0x401")));
  EXPECT_THAT(of.chip_lags.at({0, 1}), testing::ElementsAre(id("0x2")));
}

// Agents that lost every bundle list the bundles only. A row that is not known is another matter.
TEST_F(layers, take_bundles_without_a_row_for_understood) {
  const auto misunderstood = [&](const std::string& entry) {
    std::string text;
    for (const char* name : {"BE1", "BE2", "BE3"})
      text.append(text.empty() ? "\"" : ",\"").append(name).append("\":{") += entry + "}";
    run of;
    read(of, dump("BM PD", "{" + text + "}"));
    return of.not_understood.size();
  };
  EXPECT_EQ(misunderstood(R"("Visited":1,"members":{})"), 0U);
  EXPECT_EQ(misunderstood(R"("Node Description":"x")"), 0U);
  EXPECT_EQ(misunderstood(R"("Visited":1,"members":{"0/0/CPU0":{}})"), 1U);
  EXPECT_EQ(misunderstood(R"("rows":{})"), 1U);
  EXPECT_EQ(misunderstood(R"("rows":["0/0/CPU0 1"])"), 1U);
  EXPECT_EQ(misunderstood(R"("0/0/CPU0":{"lag":"0x1"},"members":{})"), 1U);
}

TEST_F(layers, hold_of_each_chip_what_it_lists_like_the_one_before_or_not) {
  const std::string both = R"({"tm_lag":{"0x1":{"members":["0x04000011","0x04000012"]}}})";
  const std::string second = R"({"tm_lag":{"0x1":{"members":["0x04000012"]}}})";
  const std::string other = R"({"tm_lag":{"0x2":{"members":["0x04000011","0x04000012"]}}})";
  run of;
  read(of, dump("TESSELDB", R"({"BE1":{"Data":{"lagid":"0x1"}}})") +
               dump("BM PD", R"({"BE1":{"members":{"0/0/CPU0":{"0/0/0/1":{"sysport":"0x0011"},)"
                             R"("0/0/0/2":{"sysport":"0x0012"}}}}})") +
               dump("BCM", R"({"0/0/CPU0":{"0":)" + both + R"(,"1":)" + both +
                               R"(},"0/1/CPU0":{"0":)" + second + R"(},"0/2/CPU0":{"0":)" + other +
                               R"(},"0/3/CPU0":{"0":)" + both + R"(,"1":)" + second + "}}"));
  const auto places = [&](object_kind kind, const std::string& name) {
    std::vector<std::pair<int, int>> made;
    for (const cell& c : of.find(kind, "BE1", name)->cells)
      if (layer_of(c.from) == layer::bcm) made.emplace_back(c.node, c.npu);
    return made;
  };
  using testing::ElementsAre;
  using testing::Pair;
  EXPECT_THAT(places(object_kind::member, "0/0/0/1"),
              ElementsAre(Pair(0, 0), Pair(0, 1), Pair(3, 0)));
  const auto has_second = ElementsAre(Pair(0, 0), Pair(0, 1), Pair(1, 0), Pair(3, 0), Pair(3, 1));
  EXPECT_THAT(places(object_kind::member, "0/0/0/2"), has_second);
  EXPECT_THAT(places(object_kind::bundle, "BE1"), has_second);
}

TEST_F(layers, hold_every_line_of_the_longest_lag) {
  constexpr std::size_t lines = 140000;
  std::string ports = "\"0x04000011\"";
  for (std::size_t i = 1; i < lines; ++i) ports += ",\"0x04000011\"";
  run of;
  read(of,
       dump("TESSELDB", R"({"BE1":{"Data":{"lagid":"0x1"}},"BE2":{"Data":{"lagid":"0x2"}}})") +
           dump("BM PD", R"({"BE1":{"members":{"0/0/CPU0":{"0/0/0/1":{"sysport":"0x0011"}}}},)"
                         R"("BE2":{"members":{"0/0/CPU0":{"0/0/0/2":{"sysport":"0x0012"}}}}})") +
           dump("BCM", R"({"0/0/CPU0":{"0":{"tm_lag":{"0x1":{"members":[)" + ports +
                           R"(]},"0x2":{"members":["0x04000012"]}}}}})"));
  const object* of_long = of.find(object_kind::member, "BE1", "0/0/0/1");
  const object* of_next = of.find(object_kind::member, "BE2", "0/0/0/2");
  ASSERT_TRUE(of_long != nullptr && of_next != nullptr);
  EXPECT_EQ(seen_of(of, *of_long).size(), lines);
  EXPECT_EQ(seen_of(of, *of_next), (seen{{field::presence, 0, "present"}}));
}

// The id of one member is the end of the system port of another one.
TEST_F(layers, take_no_system_port_for_a_member_id) {
  run of;
  read(of, dump("TESSELDB", R"({"BE1":{"Data":{"lagid":"0x1"}}})") +
               dump("BM PD", R"({"BE1":{"members":{"0/0/CPU0":{)"
                             R"("0/0/0/1":{"memid":"0x0","sysport":"0x0001"},)"
                             R"("0/0/0/2":{"memid":"0x1","sysport":"0x0002"}}}}})") +
               dump("BCM", R"({"0/0/CPU0":{"0":{"diag_lag":{"LAG 0x1":{"0x1":{"gport":"x"}}}}}})"));
  const object* listed = of.find(object_kind::member, "BE1", "0/0/0/2");
  const object* lacking = of.find(object_kind::member, "BE1", "0/0/0/1");
  ASSERT_TRUE(listed != nullptr && lacking != nullptr);
  EXPECT_EQ(seen_of(of, *listed), (seen{{field::presence, 0, "present"}}));
  EXPECT_EQ(seen_of(of, *lacking), seen{});
}

// BE1 has the ports 0x12 and 0x13, BE2 has 0x21. LAG 0x8 is that of a sub-bundle of BE1.
class lags_of_sub_bundles : public layers {
 protected:
  // What is said of the LAG of this number whose chip lists these global ports, in each family.
  [[nodiscard]] std::string owner(std::uint32_t lag, const std::vector<std::string>& ports) const {
    const std::string id = "0x" + std::to_string(lag);
    std::string rows;
    std::string list;
    for (const std::string& port : ports) {
      rows += (rows.empty() ? "" : ",") + ("\"0x" + std::to_string(rows.size())) +
              R"(":{"gport":")" + port + R"("})";
      list += (list.empty() ? "\"" : ",\"") + port + '"';
    }
    run of;
    read(of, dump("TESSELDB", R"({"hqos":")" + std::string(has_hqos ? "1" : "0") + R"(",)" +
                                  R"("BE1":{"Data":{"lagid":"0x1","sub_bundles":{)"
                                  R"("BE1.7":{"lagid":"0x8"},"BE1.8":{"lagid":"0x9"}}}},)"
                                  R"("BE2":{"Data":{"lagid":"0x2","sub_bundles":{)"
                                  R"("BE2.7":{"lagid":"0x9"}}}}})") +
                 dump("BM PD", R"({"BE1":{"members":{"0/0/CPU0":{)"
                               R"("0/0/0/1":{"memid":"0x0","sysport":"0x12"},)"
                               R"("0/0/0/2":{"memid":"0x1","sysport":"0x13"}}}},)"
                               R"("BE2":{"members":{"0/0/CPU0":{)"
                               R"("0/0/0/3":{"memid":"0x0","sysport":"0x21"}}}}})") +
                 dump("BCM", R"({"0/0/CPU0":{"0":{"diag_lag":{"LAG )" + id + "\":{" + rows +
                                 R"(}}}},"0/1/CPU0":{"0":{"tm_lag":{")" + id + R"(":{"members":[)" +
                                 list + "]}}}}}"));
    EXPECT_THAT(of.marks, testing::IsEmpty());
    const auto on = [&](std::int16_t node) -> std::string {
      const auto known = of.texts.find(id);
      const auto at = of.sub_bundle_lags.find({known.value_or(0), node, 0});
      return at == of.sub_bundle_lags.end() ? "none" : of.objects[at->second].name;
    };
    EXPECT_EQ(on(of.node_index("0/0/CPU0")), on(of.node_index("0/1/CPU0")));
    return on(of.node_index("0/1/CPU0"));
  }
  bool has_hqos = true;
};

TEST_F(lags_of_sub_bundles, have_no_port_but_those_of_their_bundle) {
  EXPECT_EQ(owner(8, {"0x04000012"}), "BE1.7");
  EXPECT_EQ(owner(8, {"0xc000012", "0xc000013"}), "BE1.7");
  EXPECT_EQ(owner(8, {"0xc000021"}), "none") << "the port of another bundle, in slot 0";
  EXPECT_EQ(owner(8, {"0xc000012", "0xc000021"}), "none") << "one of them";
  EXPECT_EQ(owner(8, {"0xc000021", "0xc000012"}), "none") << "one of them, the other way round";
  EXPECT_EQ(owner(8, {"0xc000112"}), "none") << "a port that ends alike";
  EXPECT_EQ(owner(8, {"a port"}), "none");
  EXPECT_EQ(owner(8, {}), "none") << "the audit lists none without ports";
  EXPECT_EQ(owner(1, {"0xc000012"}), "none") << "a bundle's own";
  EXPECT_EQ(owner(9, {"0xc000012"}), "none") << "of sub-bundles of two bundles";
  EXPECT_EQ(owner(5, {"0xc000012"}), "none") << "of nobody";
  has_hqos = false;
  EXPECT_EQ(owner(8, {"0xc000012"}), "none");
}

TEST_F(layers, count_the_notes_that_are_too_many) {
  std::string log;
  for (int i = 0; i < 10'002; ++i) log += "'INFO: note'\n";
  run of;
  read(of, log);
  EXPECT_EQ(of.debug_notes.size(), 10'000U);
  ASSERT_FALSE(of.marks.empty());
  EXPECT_THAT(of.marks.back(),
              testing::EndsWith("/log: 2 notes of the audit behind the first 10000 are left out"));
}

TEST_F(layers, hold_the_mtu_of_a_port_beside_what_is_compared) {
  run of;
  read(of, dump("TESSELDB", R"({"BE1":{"Data":{"members":{"0/0/CPU0":{)"
                            R"("0/0/0/1":{"ifh":"0x9","mtu":"9216","nodename":"0/0/CPU0"},)"
                            R"("0/0/0/2":{"ifh":"0xa","mtu":"1514","nodename":"0/0/CPU0"},)"
                            R"("0/0/0/3":{"ifh":"0xb","mtu":"1514","nodename":"0/0/CPU0"}}}}}})") +
               dump("Voq usage", R"({"0/0/0/1":{"mtu":"9116","nodename":"0/0/CPU0"},)"
                                 R"("0/0/0/2":{"mtu":"Not set","nodename":"0/0/CPU0"},)"
                                 R"("0/0/0/9":{"mtu":"1","vlan_domain":{"mtu":"2"}}})"));
  const auto mtu_of = [&](const std::string& name) -> std::string {
    const object* member = of.find(object_kind::member, "BE1", name);
    if (member == nullptr) return "no such member";
    const auto& mtu = of.places.at(static_cast<std::size_t>(member - of.objects.data())).mtu;
    return mtu ? std::string(of.texts.text(*mtu)) : "none";
  };
  EXPECT_EQ(mtu_of("0/0/0/1"), "9116");
  EXPECT_EQ(mtu_of("0/0/0/2"), "none");
  EXPECT_EQ(mtu_of("0/0/0/3"), "none");
  EXPECT_EQ(of.find(object_kind::member, "BE1", "0/0/0/1")->cells.size(), 1U);
}

// The record of a member begins as a copy of its port object. The interface listing is asked behind
// the bundle manager, and only then another MTU takes its place.
TEST_F(layers, hold_an_mtu_as_that_of_the_port_until_the_manager_was_asked) {
  run of;
  read(of,
       dump("TESSELDB", R"({"BE1":{"Data":{"members":{"0/0/CPU0":{)"
                        R"("0/0/0/1":{"ifh":"0x9","mtu":"9216","nodename":"0/0/CPU0"},)"
                        R"("0/0/0/2":{"ifh":"Not set","mtu":"1514","nodename":"0/0/CPU0"}}}}}})"));
  const object* asked = of.find(object_kind::member, "BE1", "0/0/0/1");
  const object* not_asked = of.find(object_kind::member, "BE1", "0/0/0/2");
  ASSERT_TRUE(asked != nullptr && not_asked != nullptr);
  ASSERT_EQ(asked->cells.size(), 1U);
  EXPECT_EQ(asked->cells[0].from, source::interfaces);
  EXPECT_EQ(not_asked->cells.size(), 0U);
  const auto& mtu = of.places.at(static_cast<std::size_t>(not_asked - of.objects.data())).mtu;
  ASSERT_TRUE(mtu);
  EXPECT_EQ(of.texts.text(*mtu), "1514");
}

TEST_F(layers, hold_what_each_node_says_by_the_handle) {
  run of;
  read(of, dump("DPA", R"({"0/0/CPU0":{"lagport":{"0x3":{"lagid":"0x1","weight":"2",)"
                       R"("max_member_count":"Not set","members":{"0":{"0x9":{"memid":"0x7"}}}}},)"
                       R"("l2port":{"0x3":{"lif":"0x14000"},"0x4":{"lif":"0x14001"}}}})") +
               dump("BM PI", R"({"BE1":{"ifh":"0x3","members":{"0/0/0/1":{"mifh":"0x9"}}}})"));
  const object* bundle = of.find(object_kind::bundle, "BE1", "BE1");
  ASSERT_NE(bundle, nullptr);
  std::vector<std::pair<source, std::string>> values;
  for (const cell& c : bundle->cells) values.emplace_back(c.from, of.texts.text(c.value));
  EXPECT_THAT(values, testing::ElementsAre(std::pair(source::bundle_manager, "0x3"),
                                           std::pair(source::lagport, "0x1"),
                                           std::pair(source::lagport, "2"),
                                           std::pair(source::l2port, "0x14000")));
  EXPECT_EQ((of.tables[{source::l2port, 0, no_place}]), 2U);
  EXPECT_EQ((of.tables[{source::lagport, 0, no_place}]), 1U);
}

}  // namespace
}  // namespace desk
