// Finds the values of the programming pass in the healthy routers' chips by the same steps: the
// VLAN domain trimmed by characters, the key formed from it, the first hit in the first table.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "lab/render/render.h"
#include "support.h"

namespace {

using namespace lab;
using lab_test::filtered;
using lab_test::findall;
using lab_test::rendered;
using lab_test::rendered_router;

std::string trimmed(const std::string& hexadecimal) {
  const std::size_t first = hexadecimal.find_first_not_of("0x");
  if (first == std::string::npos) return {};
  return hexadecimal.substr(first, hexadecimal.find_last_not_of("0x") - first + 1);
}

std::string key(const bundle& b, const sub_bundle& s) {
  const std::string domain = trimmed(fmt::format("{:#x}", b.vlan_domain));
  const auto tags = tags_of(s.encapsulation);
  if (tags.size() == 1) return fmt::format("{}{:03x}", domain, tags[0]);
  return fmt::format("{:03x}{}{:03x}", tags[0] * 2, domain, tags[0]);
}

std::vector<std::string> payloads(const std::string& digits, const std::string& table) {
  std::vector<std::string> found;
  for (const auto& hit : findall(digits + "\\s+Payload=(\\w+)", table)) found.push_back(hit[0]);
  return found;
}

std::string test_name(const testing::TestParamInfo<const char*>& chosen) {
  std::string name = chosen.param;
  std::replace(name.begin(), name.end(), '-', '_');
  return name;
}

class healthy_test : public testing::TestWithParam<const char*> {};
INSTANTIATE_TEST_SUITE_P(routers, healthy_test,
                         testing::Values("birch-small", "elm-single", "aspen-standby",
                                         "birch-six-npus", "dogwood-eight-cards", "fir-racks"),
                         test_name);

class older_chips_test : public testing::TestWithParam<const char*> {};
INSTANTIATE_TEST_SUITE_P(routers, older_chips_test,
                         testing::Values("aspen-active-cards", "aspen-standby", "birch-odd-forms",
                                         "birch-older", "birch-six-npus", "birch-small",
                                         "cedar-mixed", "dogwood-eight-cards", "elm-single",
                                         "fir-racks"),
                         test_name);

TEST_P(older_chips_test, every_key_is_programmed_once_with_its_own_lif) {
  const rendered& at = rendered_router(GetParam());
  std::size_t checked = 0;
  for (const node& n : at.r.nodes)
    for (unsigned npu = 0; family_of(n) == chip_family::older && npu < n.npus; ++npu) {
      const std::string a =
          filtered(at.chip("diag dbal dbd 3", npu, n), "grep -v -E 'Payload=0x00000000'");
      const std::string b_table =
          filtered(at.chip("diag dbal dbd 4", npu, n), "grep -v -E 'Payload=0x00000000'");
      for (const bundle& b : at.r.bundles) {
        if (members_on(at.r, b, n, npu).empty()) continue;
        for (const sub_bundle& s : b.subs) {
          if (tags_of(s.encapsulation).empty()) continue;
          auto hits = payloads(key(b, s), a);
          const auto more = payloads(key(b, s), b_table);
          hits.insert(hits.end(), more.begin(), more.end());
          EXPECT_EQ(hits, std::vector<std::string>{fmt::format("0x{:08x}", s.local_lif)})
              << name_of(s) << " on " << n.name << " NPU " << npu;
          ++checked;
        }
      }
    }
  EXPECT_GT(checked, 0U);
}

TEST_P(healthy_test, has_every_kind_of_object) {
  const rendered& at = rendered_router(GetParam());
  bool l2 = false;
  bool l3 = false;
  bool breakout = false;
  for (const bundle& b : at.r.bundles) {
    (b.l2 ? l2 : l3) = true;
    EXPECT_FALSE(has_untagged(b)) << "an untagged sub-bundle always raises a note";
    for (const sub_bundle& s : b.subs) EXPECT_FALSE(tags_of(s.encapsulation).empty());
    for (const member& m : b.members) breakout |= findall("\\/", port_tail(m.port)).size() == 4;
  }
  EXPECT_TRUE(l2 && l3 && breakout);
}

TEST(healthy_birch, has_every_encapsulation) {
  const rendered& at = rendered_router("birch-small");
  std::string all;
  for (const bundle& b : at.r.bundles)
    for (const sub_bundle& s : b.subs) all += s.encapsulation + "\n";
  for (const char* kind : {"^dot1q \\d+$", "^dot1q \\d+ second-dot1q \\d+$", "^dot1ad \\d+$",
                           "^dot1ad \\d+ dot1q \\d+$", "^dot1ad any dot1q \\d+$"})
    EXPECT_FALSE(findall(std::string{"(?m)"} + kind, all).empty()) << kind;
}

TEST(keys, are_those_of_the_trimmed_domain) {
  bundle b;
  sub_bundle s;
  s.encapsulation = "dot1q 5";
  b.vlan_domain = 0x10;
  EXPECT_EQ(key_of(b, s).digits, "1005");
  s.encapsulation = "dot1q 100 second-dot1q 200";
  b.vlan_domain = 8;
  EXPECT_EQ(key_of(b, s).digits, "0c88064");
  EXPECT_TRUE(key_of(b, s).double_tagged);
  EXPECT_EQ(untagged_key_of(b).digits, "8fff");
  s.encapsulation = "untagged";
  EXPECT_EQ(key_of(b, s).digits, "");
  s.encapsulation = "dot1q 100 second-dot1q 200";
  EXPECT_EQ(key(b, s), "0c88064");
}

TEST(untagged_router, has_key_and_mac_of_the_bundle_itself) {
  const rendered& at = rendered_router("birch-untagged");
  std::size_t checked = 0;
  for (const node& n : at.r.nodes)
    for (unsigned npu = 0; family_of(n) == chip_family::older && npu < n.npus; ++npu)
      for (const bundle& b : at.r.bundles) {
        if (!has_untagged(b) || members_on(at.r, b, n, npu).empty()) continue;
        EXPECT_EQ(payloads(untagged_key_of(b).digits, at.chip("diag dbal dbd 3", npu, n)).size(),
                  1U);
        const auto mac = findall(
            fmt::format("IHP\\w+.IHP0\\[{}\\]: <\\w+=\\w+,\\w+=\\w+.*MY_MAC=0x(\\w+)", b.rif),
            filtered(at.chip("d IHP_VSI_LOW_CFG_1", npu, n),
                     "grep -E 'IHP0' | grep -E 'MY_MAC=0x'"));
        ASSERT_EQ(mac.size(), 1U);
        EXPECT_EQ(std::stoul(mac[0][0], nullptr, 16) & 0x3ffU, low_mac_bits(b.mac));
        ++checked;
      }
  EXPECT_GT(checked, 0U);
}

}  // namespace
