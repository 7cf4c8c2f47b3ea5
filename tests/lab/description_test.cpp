#include "lab/describe/description.h"
#include "lab/base/error.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "support.h"

namespace {

using namespace lab;
using lab_test::scratch_folder;

constexpr const char* small = R"(description = "small"
type = "birch"
[[node]]
name = "0/0/CPU0"
chip = "BCM88680"
npus = 2
[[node]]
name = "0/RP0/CPU0"
id = 4096
[[bundle]]
number = 5
members = [{ port = "HundredGigE0/0/0/1", node = "0/0/CPU0", npu = 1 }]
subs = [{ number = 7, kind = "l2", encapsulation = "dot1q 7" }]
)";

std::string refusal(const std::string& text) {
  try {
    parse_router(text, "test.toml");
  } catch (const lab_error& failure) {
    return failure.what();
  }
  return "accepted";
}

TEST(description, derives_the_values_that_are_not_given) {
  const router r = parse_router(small, "test.toml");
  ASSERT_EQ(r.bundles.size(), 1U);
  const bundle& b = r.bundles.front();
  EXPECT_EQ(r.model, "TR-BIRCH (x86_64)");
  EXPECT_EQ(r.nodes.front().address, "192.0.0.4");
  EXPECT_NE(b.lag, 0U);
  EXPECT_NE(b.handle, b.subs.front().handle);
  EXPECT_NE(b.glif, b.subs.front().glif);
  EXPECT_EQ(b.subs.front().lag, b.lag) << "without hqos a sub-bundle rides on its bundle's LAG";
  EXPECT_EQ(b.members.front().mtu, b.mtu);
  EXPECT_GE(b.members.front().system_port, 0x100U) << "three digits, no one is another's tail";
}

TEST(description, keeps_the_values_that_are_given) {
  const router r = parse_router(R"toml(type = "birch"
model = "TR-WILLOW (x86_64)"
hqos = true
host_node_id = 4352
bundle_scale = 512
[[node]]
name = "0/0/CPU0"
chip = "BCM88680"
npus = 1
[[node]]
name = "0/RP1/CPU0"
id = 4352
[[bundle]]
number = 5
lag = 77
handle = 0x3001230
mac = "0011.2233.4455"
members = [{ port = "TenGigE0/0/0/1/2", node = "0/0/CPU0", handle = 0x1000999, pp_port = 33, up = false, description = "east" }]
subs = [{ number = 7, lag = 78, handle = 0x7000000003001254, description = "west" }]
[[override]]
field = "dpa.lag"
object = "BE5"
node = "0/0/CPU0"
value = "0x99"
)toml",
                                "test.toml");
  EXPECT_EQ(r.model, "TR-WILLOW (x86_64)");
  EXPECT_EQ(r.host_node_id, 4352U);
  EXPECT_EQ(r.bundles.front().lag, 77U);
  EXPECT_EQ(r.bundles.front().handle, 0x3001230U);
  EXPECT_EQ(r.bundles.front().members.front().pp_port, 33U);
  EXPECT_EQ(r.bundles.front().subs.front().lag, 78U);
  EXPECT_EQ(r.bundle_scale, 512U);
  EXPECT_FALSE(r.bundles.front().members.front().up);
  EXPECT_EQ(r.bundles.front().members.front().description, "east");
  EXPECT_EQ(r.bundles.front().subs.front().description, "west");
  EXPECT_EQ(r.bundles.front().subs.front().handle, 0x7000000003001254U);
  EXPECT_EQ(overridden(r, "dpa.lag", "BE5", "0/0/CPU0"), "0x99");
  EXPECT_EQ(overridden(r, "dpa.lag", "BE5", "0/1/CPU0"), std::nullopt);
}

TEST(description, error_names_file_line_and_place) {
  struct row {
    const char* why;
    const char* text;
    const char* message;
  };
  const row rows[] = {
      {"a text that is not TOML", "type = \"birch\"\nhqos = maybe\n", "test.toml:2: "},
      {"unknown key at the top", "type = \"birch\"\ncolour = 1\n",
       "test.toml:2: router: unknown key \"colour\""},
      {"unknown key in a list",
       "type = \"birch\"\n[[node]]\nname = \"0/0/CPU0\"\n[[bundle]]\nnumber = 1\nspeed = 3\n",
       "test.toml:6: [[bundle]]: unknown key \"speed\""},
      {"unknown type", "type = \"willow\"\n",
       "test.toml:1: router: unknown router type \"willow\""},
      {"a text where a number belongs", "type = \"birch\"\nhost_node_id = \"x\"\n",
       "test.toml:2: router: host_node_id is not a number from 0 to 4294967295"},
      {"a number beyond its range", "type = \"birch\"\nhost_node_id = 4294967296\n",
       "test.toml:2: router: host_node_id is not a number"},
      {"a negative number", "type = \"birch\"\nhost_node_id = -1\n",
       "test.toml:2: router: host_node_id is not a number"},
      {"an unknown choice", "type = \"birch\"\nhealth = \"poor\"\n",
       "test.toml:2: router: health is \"poor\", not one of clean, info, errors, mixed"},
      {"a missing name", "type = \"birch\"\n[[node]]\nchip = \"x\"\n",
       "test.toml:2: [[node]]: name is missing"},
      {"an unknown override",
       "type = \"birch\"\n[[override]]\nfield = \"a.b\"\nobject = \"BE1\"\nvalue = \"1\"\n",
       "test.toml:3: [[override]]: unknown field \"a.b\", not one of interfaces.mtu, im.handle, "},
      {"a node without NPUs but with a chip",
       "type = \"birch\"\n[[node]]\nname = \"0/0/CPU0\"\nchip = \"BCM88680\"\nnpus = 0\n",
       "test.toml:5: [[node]]: npus is 0, but a node with a chip has 1 to 16; leave both out"},
      {"a chip that no router has",
       "type = \"birch\"\n[[node]]\nname = \"0/0/CPU0\"\nchip = \"BCM1\"\n",
       "test.toml:4: [[node]]: chip \"BCM1\" is not BCM and five digits, such as BCM88680"},
      {"a node that appears twice",
       "type = \"birch\"\n[[node]]\nname = \"0/0/CPU0\"\n[[node]]\nname = \"0/0/CPU0\"\n",
       "test.toml:4: [[node]]: name 0/0/CPU0 appears twice"},
      {"a bundle that appears twice",
       "type = \"birch\"\n[[bundle]]\nnumber = 1\n[[bundle]]\nnumber = 1\n",
       "test.toml:4: [[bundle]]: number 1 appears twice"},
      {"a port that appears twice in its bundle",
       "type = \"birch\"\n[[bundle]]\nnumber = 1\nmembers = [{ port = \"HundredGigE0/0/0/1\" },\n"
       "           { port = \"HundredGigE0/0/0/1\" }]\n",
       "test.toml:5: members: port HundredGigE0/0/0/1 appears twice"},
      {"a base that is not there", "base = \"nowhere\"\n",
       "test.toml:1: router: there is no router \"nowhere\""},
      {"an unknown fault", "type = \"birch\"\nfaults = [\"chip-mtu\",\n\"rust\"]\n",
       "test.toml:3: router: there is no fault \"rust\""},
  };
  for (const row& r : rows)
    EXPECT_EQ(refusal(r.text).substr(0, std::string{r.message}.size()), r.message) << r.why;
}

struct refused_router {
  const char* why;
  std::string text;
  const char* message;
};

void expect_refusals(const std::vector<refused_router>& rows) {
  for (const refused_router& r : rows) EXPECT_EQ(refusal(r.text), r.message) << r.why;
}

// Routers with `small` and this text. Only the beginning of the message is compared.
void expect_refusals_after_small(const std::vector<refused_router>& rows) {
  for (const refused_router& r : rows)
    EXPECT_EQ(refusal(small + r.text).substr(0, std::string{r.message}.size()), r.message) << r.why;
}

const std::string second_bundle =
    "[[bundle]]\nnumber = 6\nmembers = [{ port = \"HundredGigE0/0/0/2\", node = \"0/0/CPU0\" "
    "}]\n";

TEST(description, impossible_bundle_is_refused) {
  const std::string base = small;
  const std::string& second = second_bundle;
  expect_refusals({
      {"two bundles with one handle", base + second + "handle = 0x3000004\n",
       "test.toml:14: bundle 6: handle 0x3000004 is taken by bundle 5, give each its own"},
      {"a node that is not there",
       base + "[[bundle]]\nnumber = 6\nmembers = [{ port = \"HundredGigE0/9/0/2\", node = "
              "\"0/9/CPU0\" }]\n",
       "test.toml:16: bundle 6, member HundredGigE0/9/0/2: there is no node 0/9/CPU0"},
      {"an NPU that is not there",
       base + "[[bundle]]\nnumber = 6\nmembers = [{ port = \"HundredGigE0/0/0/2\", node = "
              "\"0/0/CPU0\", npu = 2 }]\n",
       "test.toml:16: bundle 6, member HundredGigE0/0/0/2: node 0/0/CPU0 has 2 NPUs, not number 2"},
      {"more members than allowed", base + second + "max_members = 0\n",
       "test.toml:14: bundle 6: 1 members where 0 are allowed"},
      {"a port in two bundles",
       base + "[[bundle]]\nnumber = 6\nmembers = [{ port = \"HundredGigE0/0/0/1\", node = "
              "\"0/0/CPU0\" }]\n",
       "test.toml:16: bundle 6, member HundredGigE0/0/0/1: the port is a member already"},
      {"a tag that no frame has",
       base + second + "subs = [{ number = 8, encapsulation = \"dot1q 8 second-dot1q 4095\" }]\n",
       "test.toml:17: sub-bundle BE6.8: encapsulation \"dot1q 8 second-dot1q 4095\" is not one of "
       "\"default\", \"untagged\", \"dot1q 10\", \"dot1q 10 second-dot1q 20\", \"dot1ad 10\", "
       "\"dot1ad 10 dot1q 20\", with a tag from 1 to 4094, 10-20, 10,20 or any"},
      {"members of a Jericho2 with unlike MTUs",
       base + "[[node]]\nname = \"0/1/CPU0\"\nid = 7\nchip = \"BCM88690\"\n[[bundle]]\nnumber = 6\n"
              "members = [{ port = \"HundredGigE0/1/0/1\", node = \"0/1/CPU0\" },\n"
              "           { port = \"HundredGigE0/1/0/2\", node = \"0/1/CPU0\", mtu = 1514 }]\n",
       "test.toml:21: bundle 6, member HundredGigE0/1/0/2: mtu 1514, but 9216 on "
       "HundredGigE0/1/0/1; "
       "a "
       "Jericho2 has one MTU for a bundle"},
  });
}

TEST(description, impossible_node_is_refused) {
  const std::string base = small;
  expect_refusals({
      {"a single-node type with two nodes",
       "type = \"elm\"\n[[node]]\nname = \"0/RP0/CPU0\"\n[[node]]\nname = \"0/0/CPU0\"\n",
       "test.toml: a router of type elm has the single node 0/RP0/CPU0"},
      {"two nodes with one id",
       base + "[[node]]\nname = \"0/1/CPU0\"\nid = 7\n[[node]]\nname = \"0/2/CPU0\"\nid = 7\n",
       "test.toml:17: node 0/2/CPU0: id 0x7 is taken, give each node its own"},
      {"two nodes without an id", base + "[[node]]\nname = \"0/1/CPU0\"\n",
       "test.toml:14: node 0/1/CPU0: id 0x0 is taken, give each node its own"},
      {"more NPUs than a node has",
       base + "[[node]]\nname = \"0/1/CPU0\"\nid = 7\nchip = \"BCM88680\"\nnpus = 17\n",
       "test.toml:14: node 0/1/CPU0: 17 NPUs, a node has at most 16"},
      {"a Jericho2 with more cores than two",
       base + "[[node]]\nname = \"0/1/CPU0\"\nid = 7\nchip = \"BCM88690\"\ncores = 4\n",
       "test.toml:14: node 0/1/CPU0: 4 cores, a Jericho2 has two"},
      {"a card of two words", base + "[[node]]\nname = \"0/1/CPU0\"\nid = 7\ncard = \"TC LC\"\n",
       "test.toml:14: node 0/1/CPU0: card \"TC LC\" is not a single word"},
      {"no band", base + "[[node]]\nname = \"0/1/CPU0\"\nid = 7\nband = \"\"\n",
       "test.toml:14: node 0/1/CPU0: band \"\" is not a single word"},
      {"no node", "type = \"birch\"\n", "test.toml: no node is described"},
  });
}

// Two objects with one number, or a value that no layer can hold: the audit of such a router would
// report faults that it does not have, or crash.

std::string bundle_with(const std::string& more) {
  return "[[bundle]]\nnumber = 6\nmembers = [{ port = \"HundredGigE0/0/0/2\", node = "
         "\"0/0/CPU0\", npu = 1 }]\n" +
         more;
}

std::string member_with(const std::string& more) {
  return "[[bundle]]\nnumber = 6\nmembers = [{ port = \"HundredGigE0/0/0/2\", node = "
         "\"0/0/CPU0\", npu = 1, " +
         more + " }]\n";
}

std::string sub_with(const std::string& encapsulation) {
  return bundle_with("subs = [{ number = 1, encapsulation = \"" + encapsulation + "\" }]\n");
}

TEST(description, number_that_another_object_has_is_refused) {
  expect_refusals_after_small({
      {"a LAG id", bundle_with("lag = 1\n"),
       "test.toml:14: bundle 6: lag 0x1 is taken by bundle 5, give each its own"},
      {"a sub-bundle's LAG id", bundle_with("subs = [{ number = 1, lag = 1 }]\n"),
       "test.toml:17: sub-bundle BE6.1: lag 0x1 is taken by bundle 5, give each its own"},
      {"a global LIF", bundle_with("glif = 0x14000\n"),
       "test.toml:14: bundle 6: glif 0x14000 is taken by bundle 5, give each its own"},
      {"a RIF", bundle_with("rif = 0x11\n"),
       "test.toml:14: bundle 6: rif 0x11 is taken by bundle 5, give each its own"},
      {"a member's handle", member_with("handle = 0x1000040"),
       "test.toml:16: bundle 6, member HundredGigE0/0/0/2: handle 0x1000040 is taken by bundle 5, "
       "member HundredGigE0/0/0/1, give each its own"},
      {"a member with a bundle's handle", member_with("handle = 0x3000004"),
       "test.toml:16: bundle 6, member HundredGigE0/0/0/2: handle 0x3000004 is taken by bundle 5, "
       "give each its own"},
      {"a system port", member_with("system_port = 0x101"),
       "test.toml:16: bundle 6, member HundredGigE0/0/0/2: system_port 0x101 is taken by bundle 5, "
       "member HundredGigE0/0/0/1, give each its own"},
      {"a port of one core", member_with("pp_port = 10"),
       "test.toml:16: bundle 6, member HundredGigE0/0/0/2: pp_port 0xa is taken by bundle 5, "
       "member HundredGigE0/0/0/1, give each its own"},
  });
}

TEST(description, number_that_no_router_has_is_refused) {
  expect_refusals_after_small({
      {"more members than ports",
       "[[node]]\nname = \"0/1/CPU0\"\nid = 7\nchip = \"BCM88680\"\nports = 1\n[[bundle]]\nnumber "
       "= 6\n"
       "members = [{ port = \"HundredGigE0/1/0/1/0\", node = \"0/1/CPU0\" },\n"
       "           { port = \"HundredGigE0/1/0/1/1\", node = \"0/1/CPU0\" },\n"
       "           { port = \"HundredGigE0/1/0/2\", node = \"0/1/CPU0\" }]\n",
       "test.toml:14: node 0/1/CPU0: members on 2 ports, it has 1"},
      {"no MTU", bundle_with("mtu = 0\n"), "test.toml:14: bundle 6: mtu 0 is not from 1 to 65535"},
      {"an MTU beyond sixteen bits", bundle_with("mtu = 65536\n"),
       "test.toml:14: bundle 6: mtu 65536 is not from 1 to 65535"},
      {"a member's MTU", member_with("mtu = 70000"),
       "test.toml:16: bundle 6, member HundredGigE0/0/0/2: mtu 70000 is not from 1 to 65535"},
      {"bundle 0", "[[bundle]]\nnumber = 0\n",
       "test.toml:14: bundle 0: a bundle's number is from 1 to 65535"},
      {"a bundle beyond sixteen bits", "[[bundle]]\nnumber = 65536\n",
       "test.toml:14: bundle 65536: a bundle's number is from 1 to 65535"},
      {"a system port of too many digits", member_with("system_port = 0x1000000"),
       "test.toml:16: bundle 6, member HundredGigE0/0/0/2: system_port 0x1000000 is beyond "
       "0xffffff"},
  });
}

TEST(description, name_that_no_router_has_is_refused) {
  expect_refusals_after_small({
      {"a port of another slot",
       "[[bundle]]\nnumber = 6\nmembers = [{ port = \"HundredGigE0/1/0/2\", node = "
       "\"0/0/CPU0\" }]\n",
       "test.toml:16: bundle 6, member HundredGigE0/1/0/2: its node 0/0/CPU0 has the ports "
       "0/0/..."},
      {"a slot that is not there", "[[node]]\nname = \"0/16/CPU0\"\nid = 16\n",
       "test.toml:14: node 0/16/CPU0: a router of type birch has 0/RP0/CPU0, 0/RP1/CPU0 and "
       "0/0/CPU0 to 0/15/CPU0"},
      {"a slot in other digits", "[[node]]\nname = \"0/01/CPU0\"\nid = 1\n",
       "test.toml:14: node 0/01/CPU0: a router of type birch has 0/RP0/CPU0, 0/RP1/CPU0 and "
       "0/0/CPU0 to 0/15/CPU0"},
      {"an address that leads out of a capture",
       "[[node]]\nname = \"0/1/CPU0\"\nid = 1\naddress = \"../../tmp\"\n",
       "test.toml:14: node 0/1/CPU0: address \"../../tmp\" is not valid; give one such as "
       "192.0.0.6"},
      {"the route processor's own place for an address",
       "[[node]]\nname = \"0/1/CPU0\"\nid = 1\naddress = \"local\"\n",
       "test.toml:14: node 0/1/CPU0: address \"local\" is not valid; give one such as 192.0.0.6"},
      {"a port without its last number",
       "[[bundle]]\nnumber = 6\nmembers = [{ port = \"HundredGigE0/0/0/\", node = "
       "\"0/0/CPU0\" }]\n",
       "test.toml:16: bundle 6, member HundredGigE0/0/0/: a port's numbers have the form 0/0/0/1 "
       "or "
       "0/0/0/1/3"},
      {"a port with a letter",
       "[[bundle]]\nnumber = 6\nmembers = [{ port = \"HundredGigE0/0/0/1x\", node = "
       "\"0/0/CPU0\" }]\n",
       "test.toml:16: bundle 6, member HundredGigE0/0/0/1x: a port's numbers have the form 0/0/0/1 "
       "or "
       "0/0/0/1/3"},
      {"an override of no object",
       "[[override]]\nfield = \"dpa.lag\"\nobject = \"BE9\"\nvalue = \"1\"\n",
       "test.toml:14: override of dpa.lag: there is no \"BE9\"; an object is named such as BE1, "
       "BE1.100, "
       "0/0/0/1 or *"},
  });
}

TEST(description, encapsulation_that_no_router_has_is_refused) {
  expect_refusals_after_small({
      {"an encapsulation without a tag", sub_with("dot1q"),
       "test.toml:17: sub-bundle BE6.1: encapsulation \"dot1q\" is not one of"},
      {"an encapsulation of another kind", sub_with("vlan 7"),
       "test.toml:17: sub-bundle BE6.1: encapsulation \"vlan 7\" is not one of"},
      {"an inner tag of the other form", sub_with("dot1q 7 dot1q 8"),
       "test.toml:17: sub-bundle BE6.1: encapsulation \"dot1q 7 dot1q 8\" is not one of"},
      {"a blank too many", sub_with("dot1q  7"),
       "test.toml:17: sub-bundle BE6.1: encapsulation \"dot1q  7\" is not one of"},
      {"a range without an end", sub_with("dot1q 7-"),
       "test.toml:17: sub-bundle BE6.1: encapsulation \"dot1q 7-\" is not one of"},
      {"a range beyond the last VLAN", sub_with("dot1q 7-4095"),
       "test.toml:17: sub-bundle BE6.1: encapsulation \"dot1q 7-4095\" is not one of"},
  });
  for (const char* fine : {"default", "untagged", "dot1q any", "dot1q 1,3-4,4094",
                           "dot1q 7 second-dot1q any", "dot1ad 7 dot1q 8-9", "dot1ad any dot1q 4"})
    EXPECT_EQ(refusal(small + sub_with(fine)), "accepted") << fine;
}

TEST(description, types_have_nodes_of_their_own) {
  const auto described = [](const std::string& type, const std::string& node,
                            const std::string& more = {}) {
    return "type = \"" + type + "\"\n[[node]]\nname = \"" + node + "\"\nid = 4096\n" + more;
  };
  EXPECT_EQ(refusal(described("fir", "D1/CB0/CPU0")), "accepted");
  EXPECT_EQ(refusal(described("cedar", "0/RP1/CPU0")), "accepted");
  EXPECT_EQ(refusal(described("fir", "D0/CB0/CPU0", "[[node]]\nname = \"46/0/CPU0\"\n")),
            "accepted");
  EXPECT_EQ(refusal(described("fir", "D0/CB0/CPU0", "[[node]]\nname = \"47/0/CPU0\"\n")),
            "test.toml:5: node 47/0/CPU0: a router of type fir has D0/CB0/CPU0, D1/CB0/CPU0 and "
            "0/0/CPU0 to 46/0/CPU0");
  EXPECT_EQ(refusal(described("fir", "0/RP0/CPU0")),
            "test.toml:2: node 0/RP0/CPU0: a router of type fir has D0/CB0/CPU0, D1/CB0/CPU0 and "
            "0/0/CPU0 to 46/0/CPU0");
  EXPECT_EQ(refusal(described("birch", "0/3/CPU0")),
            "test.toml: no route processor is described, add the node 0/RP0/CPU0");
  EXPECT_EQ(refusal("[[node]]\nname = \"0/RP0/CPU0\"\n"),
            "test.toml: type is missing: give the router's type, such as type = \"birch\"");
  EXPECT_EQ(refusal(described("aspen", "0/RP0/CPU0",
                              "chip = \"BCM88680\"\n[[bundle]]\nnumber = 1\nmembers = [{ port = "
                              "\"HundredGigE0/7/0/1\", node = \"0/RP0/CPU0\", core = 1, "
                              "pp_port = 20 }]\n")),
            "test.toml:8: bundle 1, member HundredGigE0/7/0/1: pp_port 20 does not belong to core "
            "1, whose "
            "ports begin at 256");
}

TEST(description, message_is_one_line_whatever_the_description_holds) {
  EXPECT_EQ(refusal("type = \"birch\"\n\"a\\nb\\u001b[2J\" = 1\n"),
            "test.toml:2: router: unknown key \"a\\x0ab\\x1b[2J\"");
}

class base_test : public testing::Test {
 protected:
  void SetUp() override { setenv("TESSEL_LAB_ROUTERS", scratch_.path().c_str(), 1); }
  void TearDown() override { unsetenv("TESSEL_LAB_ROUTERS"); }
  void describe(const std::string& name, const std::string& text) {
    lab_test::write_text(scratch_.path() / (name + ".toml"), text);
  }
  scratch_folder scratch_;
};

TEST_F(base_test, base_is_changed_by_name_and_number) {
  describe("first", small);
  describe("second", R"(description = "second"
base = "first"
[[node]]
name = "0/0/CPU0"
chip = "BCM88690"
[[bundle]]
number = 5
mtu = 1514
subs = [{ number = 7, encapsulation = "dot1q 8" }, { number = 9, encapsulation = "dot1q 9" }]
)");
  const router r = load_router("second");
  EXPECT_EQ(r.name, "second");
  EXPECT_EQ(r.description, "second");
  ASSERT_EQ(r.nodes.size(), 2U);
  EXPECT_EQ(r.nodes.front().chip, "BCM88690");
  EXPECT_EQ(r.nodes.front().npus, 2U);
  ASSERT_EQ(r.bundles.size(), 1U);
  EXPECT_EQ(r.bundles.front().members.size(), 1U);
  EXPECT_EQ(r.bundles.front().members.front().mtu, 1514U);
  ASSERT_EQ(r.bundles.front().subs.size(), 2U);
  EXPECT_EQ(r.bundles.front().subs.front().encapsulation, "dot1q 8");
  EXPECT_TRUE(r.bundles.front().subs.front().l2) << "what the variant leaves out stays";
}

TEST_F(base_test, base_is_looked_for_beside_the_file_and_then_among_the_routers) {
  const scratch_folder elsewhere;
  const std::filesystem::path own = elsewhere.path() / "own.toml";
  lab_test::write_text(own, "base = \"first\"\n");
  EXPECT_THROW(load_router(own.string()), lab_error);
  describe("first", small);
  EXPECT_EQ(load_router(own.string()).description, "small");
  std::string beside = small;
  beside.replace(beside.find("small"), 5, "beside");
  lab_test::write_text(elsewhere.path() / "first.toml", beside);
  EXPECT_EQ(load_router(own.string()).description, "beside");
  lab_test::write_text(elsewhere.path() / "first.toml", "base = \"first\"\n");
  try {
    load_router(own.string());
    ADD_FAILURE() << "a file that is its own base";
  } catch (const lab_error& failure) {
    EXPECT_THAT(failure.what(), testing::EndsWith("first.toml:1: router: base \"first\" leads back "
                                                  "to itself"));
  }
}

TEST_F(base_test, base_that_leads_back_is_refused) {
  describe("one", "base = \"two\"\n");
  describe("two", "base = \"one\"\n");
  EXPECT_THROW(load_router("one"), lab_error);
  EXPECT_THROW(load_router("two"), lab_error);
}

TEST_F(base_test, names_come_in_order) {
  describe("b", small);
  describe("a", small);
  lab_test::write_text(scratch_.path() / "notes.txt", "no router");
  EXPECT_EQ(router_names(), (std::vector<std::string>{"a", "b"}));
  EXPECT_THROW(load_router("c"), lab_error);
}

TEST(encapsulation, tags_are_the_numbers_after_their_keyword) {
  using tags = std::vector<unsigned>;
  EXPECT_EQ(tags_of("dot1q 100"), tags({100}));
  EXPECT_EQ(tags_of("dot1q 10 second-dot1q 20"), tags({10, 20}));
  EXPECT_EQ(tags_of("dot1ad 30"), tags({30}));
  EXPECT_EQ(tags_of("dot1ad 40 dot1q 41"), tags({40, 41}));
  EXPECT_EQ(tags_of("dot1ad any dot1q 11"), tags({11}));
  EXPECT_EQ(tags_of("dot1q 10-20"), tags({10})) << "a range goes by its first tag";
  EXPECT_EQ(tags_of("dot1q 10,20 second-dot1q 30"), tags({10}));
  EXPECT_EQ(tags_of("dot1q 10 second-dot1q 20-30"), tags({10, 20}));
  EXPECT_EQ(tags_of("dot1q 10 second-dot1q any"), tags({10}));
  EXPECT_EQ(tags_of("dot1ad 10 dot1q any"), tags({10}));
  EXPECT_EQ(tags_of("dot1q any"), tags());
  EXPECT_EQ(tags_of("dot1q any second-dot1q 20"), tags());
  EXPECT_EQ(tags_of("default"), tags());
  EXPECT_EQ(tags_of("untagged"), tags());
  EXPECT_EQ(tags_of(""), tags());
}

TEST(ports, system_ports_have_one_length_in_any_number) {
  std::string text =
      "type = \"birch\"\n[[node]]\nname = \"0/0/CPU0\"\nchip = \"BCM88680\"\n"
      "[[node]]\nname = \"0/RP0/CPU0\"\nid = 4096\n";
  for (unsigned at = 0; at < 3840; ++at)
    text += fmt::format(
        "[[bundle]]\nnumber = {}\nmembers = [{{ port = \"TenGigE0/0/0/{}\", node = "
        "\"0/0/CPU0\" }}]\n",
        at + 1, at);
  const router r = parse_router(text, "test.toml");
  EXPECT_EQ(r.bundles.front().members.front().system_port, 0x1001U);
  EXPECT_LE(r.bundles.back().members.front().system_port, 0xffffU);
  EXPECT_EQ(free_port(r, r.nodes.front()), "HundredGigE0/0/0/3840");
}

TEST(ports, names_in_each_layer) {
  EXPECT_EQ(port_tail("HundredGigE0/0/0/1"), "0/0/0/1");
  EXPECT_EQ(port_tail("TwentyFiveGigE0/0/0/2/3"), "0/0/0/2/3");
  EXPECT_EQ(short_name("HundredGigE0/0/0/1"), "Hu0/0/0/1");
  EXPECT_EQ(short_name("TwentyFiveGigE0/0/0/2/3"), "TF0/0/0/2/3");
  EXPECT_EQ(object_name("HundredGigE0/0/0/1"), "HundredGigE0_0_0_1");
  EXPECT_EQ(colon_mac("0026.5e00.0a02"), "00:26:5e:00:0a:02");
  EXPECT_EQ(low_mac_bits("0026.5e00.0abc"), 0x2bcU);
}

}  // namespace
