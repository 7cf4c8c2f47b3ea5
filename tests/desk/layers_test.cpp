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
#include <vector>

#include "desk/model/numbers.h"

namespace desk {
namespace {

// What a chip says of a member: of which node and NPU, and what.
using seen = std::vector<std::tuple<field, std::int16_t, std::string>>;

struct agent_member {
  std::string bundle, name, member_id, system_port, core, port;
};
struct chip_member {
  std::string lag, named;
};
struct chip_port {
  std::string core, port, mtu;
};

// A router with one node and one chip, all of whose values are from a few.
struct small_router {
  std::vector<std::pair<std::string, std::string>> lags;  // bundle and LAG id
  std::vector<agent_member> members;
  std::vector<chip_member> listed;
  std::vector<chip_port> mtus;
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
           std::vector<std::string>{"0x0001", "0x11", "0x", "1001", "0x101"}[random() % 5],
           below(2), below(3)});
  }
  for (int i = 0; i < 12; ++i)
    made.listed.push_back(
        {"0x" + below(4), random() % 2 == 0 ? "0x" + below(4) : "0x040010" + below(20)});
  for (int i = 0; i < 5; ++i) made.mtus.push_back({below(2), below(3), std::to_string(1500 + i)});
  return made;
}

std::string dump(const std::string& label, const std::string& text) {
  return "'Start of " + label + " entries...'\n" + text + "\n'End of " + label + " entries...'\n";
}

// Equal keys may come twice; a reader of JSON takes each as it comes.
std::string debug_log_of(const small_router& of) {
  std::string bundles, agents, lags, ports;
  for (const auto& [bundle, id] : of.lags)
    bundles += ",\"" + bundle + "\":{\"Data\":{\"lagid\":\"" + id + "\"}}";
  for (const agent_member& m : of.members) {
    bundles += ",\"" + m.bundle + "\":{\"Data\":{\"members\":{\"0/0/CPU0\":{\"" + m.name +
               "\":{\"nodename\":\"0/0/CPU0\",\"npu_id\":\"0\",\"npu_core\":\"" + m.core +
               "\",\"pp_port\":\"" + m.port + "\"}}}}}";
    agents += ",\"" + m.bundle + "\":{\"members\":{\"0/0/CPU0\":{\"" + m.name + "\":{\"memid\":\"" +
              m.member_id + "\",\"sysport\":\"" + m.system_port + "\"}}}}";
  }
  for (const chip_member& m : of.listed)
    lags += ",\"LAG " + m.lag + "\":{\"" + m.named + "\":{\"gport\":\"x\"}}";
  for (const chip_port& p : of.mtus)
    ports += ",\"" + p.core + "\":{\"" + p.port + "\":\"" + p.mtu + "\"}";
  return dump("TESSELDB", "{" + bundles.substr(1) + "}") +
         dump("BCM", "{\"0/0/CPU0\":{\"0\":{\"diag_lag\":{" + lags.substr(1) +
                         "},\"member_mtu\":{" + ports.substr(1) + "}}}}") +
         dump("BM PD", "{" + agents.substr(1) + "}");
}

// Each line of the chip compared with each member.
seen plainly_seen(const small_router& of, const agent_member& member) {
  seen made;
  for (const chip_member& line : of.listed) {
    for (const auto& [bundle, id] : of.lags) {
      if (bundle != member.bundle || id != line.lag) continue;
      std::string_view digits = member.system_port;
      while (!digits.empty() && (digits.front() == '0' || digits.front() == 'x'))
        digits.remove_prefix(1);
      if (line.named == member.member_id || (!digits.empty() && line.named.ends_with(digits)))
        made.emplace_back(field::presence, 0, "present");
    }
  }
  for (const chip_port& one : of.mtus)
    if (one.core == member.core && one.port == member.port)
      made.emplace_back(field::mtu, 0, one.mtu);
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
      if (c.from == source::chip_lag || c.from == source::chip_mtu)
        made.emplace_back(c.what, c.npu, std::string(of.texts.text(c.value)));
    return made;
  }

  std::string folder;
};

TEST_F(layers, give_a_member_what_the_chips_list_under_its_id_or_its_port) {
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

TEST_F(layers, find_the_mtu_of_a_member_by_the_profile_of_its_port) {
  run of;
  read(
      of,
      dump("TESSELDB", R"({"BE1":{"Data":{"lagid":"0x10","members":{"0/0/CPU0":{"0/0/0/1":{)"
                       R"("nodename":"0/0/CPU0","npu_id":"1","npu_core":"0","pp_port":"5"}}}}}})") +
          dump("BCM",
               R"({"0/0/CPU0":{"1":{"bdl_pp_port":{"16":{"0":"7","1":"8"}},)"
               R"("lag_mtu":{"0":{"7":"2","8":"3"}},"mtu_profile":{"0":{"2":"1500","3":"9000"}},)"
               R"("mtu_profile":{"0":{"2":"0x1000"}}}}})"));
  const object* member = of.find(object_kind::member, "BE1", "0/0/0/1");
  ASSERT_NE(member, nullptr);
  EXPECT_EQ(seen_of(of, *member), (seen{{field::mtu, 1, "4096"}})) << "the last value counts";
}

TEST_F(layers, hold_the_mtu_of_a_port_beside_what_is_compared) {
  run of;
  read(of, dump("TESSELDB", R"({"BE1":{"Data":{"members":{"0/0/CPU0":{)"
                            R"("0/0/0/1":{"mtu":"9216","nodename":"0/0/CPU0"},)"
                            R"("0/0/0/2":{"mtu":"1514","nodename":"0/0/CPU0"},)"
                            R"("0/0/0/3":{"mtu":"1514","nodename":"0/0/CPU0"}}}}}})") +
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
