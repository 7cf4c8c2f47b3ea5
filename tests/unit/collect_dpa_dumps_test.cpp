#include "collect/dpa_dumps.h"

#include <array>
#include <filesystem>
#include <string>
#include <vector>

#include "consistency/dpa_checks.h"
#include "support/command_line.h"
#include "support/fake_router.h"
#include "support/hostile.h"
#include "support/together.h"

namespace tessel {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using testing::UnorderedElementsAre;

constexpr std::string_view node = "0/RP1/CPU0";

constexpr std::string_view objects_of_a_node = R"(case "$7" in
lagport) cat <<'END'
Objects of type lagport
lagport element 0 pending(cr/up/dl):0/0/0
  @dpa_intf_t intf => 0x3000120
  uint16_t lag_id => 0x1
  uint8_t hash_mode => 2
  uint32_t max_member_count => not set
  0:dpa_intf_t mifh => 0x60
  0:uint8_t mbr_npu_id => 0
  0:uint16_t weight => 1
  1:dpa_intf_t mifh => not set
END
;;
l1port) cat <<'END'
l1port element 0
  @dpa_intf_t intf => 0x60
  char intf_name => HundredGigE0_0_0_1
  uint32_t pp_port_id => 5
  uint8_t device => 0
  uint8_t core => 0
  uint8_t speed => 100
  uint32_t mtu => not set
END
;;
l2port) printf 'l2port element 0\n  @dpa_intf_t intf => 0x5\n  rif_t rif => 1\n  lif_t lif => 2\n'
        printf '  mac_t bia_mac => 00:11\n  x vlan => 3\n' ;;
l2intf) printf 'l2intf element 0\n  @dpa_intf_t intf => 0x5\n  uint16_t vlan_domain => 1\n'
        printf '  gport_t gport_id_lif => 2\n  uint8_t l2_intf_type => 3\n' ;;
l3intf) printf 'l3intf element 0\n  @dpa_intf_t intf => 0x5\n  uint16_t l3a_intf_id => 1\n' ;;
esac)";

class dpa_dumps_test : public router_test {
 protected:
  void SetUp() override {
    router_test::SetUp();
    open_logs();
    for (const std::string_view name : {node, std::string_view("0/0/CPU0")}) {
      st().nodeinfo.get().as_map().set(name, map_of({{"dump", 1}}));
    }
    tool("ssh", objects_of_a_node);
  }
  static int dump(const std::string& nodename) {
    return dump_dpa_objects(4352, "192.0.0.4", nodename);
  }
};

std::vector<std::string> remote_calls(const std::vector<std::string>& types) {
  std::vector<std::string> lines;
  for (const std::string& type : types) {
    lines.push_back(
        "ssh -q -o StrictHostKeyChecking=no 192.0.0.4 /opt/nos/bin/fwd_object_show -t " + type +
        " -D");
  }
  return lines;
}

TEST_F(dpa_dumps_test, with_no_standby_node_every_node_gets_all_five_dumps) {
  EXPECT_EQ(dump(std::string(node)), SUCCESS);
  EXPECT_EQ(calls(), remote_calls({"lagport", "l1port", "l2port", "l2intf", "l3intf"}));
  const value objects = st().DPA.get().at(node);
  EXPECT_THAT(objects.as_map().keys(), ElementsAre("lagport", "l2port", "l2intf", "l3intf"))
      << "ports leave their effect elsewhere";
  EXPECT_THAT(objects.at("lagport").as_map().keys(), ElementsAre("0x3000120"));
  EXPECT_THAT(objects.at("lagport").at("0x3000120").at("members").at("0").as_map().keys(),
              ElementsAre("0x60"));
  EXPECT_EQ(objects.at("l2port"),
            map_of({{"0x5", map_of({{"rif", "1"}, {"lif", "2"}, {"mac", "00:11"}})}}));
  EXPECT_EQ(objects.at("l2intf"),
            map_of({{"0x5", map_of({{"vlan_domain", "1"}, {"lif", "2"}, {"is_l2", "3"}})}}));
  EXPECT_EQ(objects.at("l3intf"), map_of({{"0x5", map_of({{"rif", "1"}})}}));
  EXPECT_THAT(st().voq_usage.get().as_map().keys(), ElementsAre("0/0/0/1"));
  EXPECT_EQ(st().voq_usage.get().at("0/0/0/1").as_record().get("nodename"), node);
  EXPECT_FALSE(objects.as_map().is_ordered());
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION), IsEmpty());
}

TEST_F(dpa_dumps_test, each_command_line_is_exactly_this) {
  const std::array<std::pair<std::string, std::string>, 5> expected = {{
      {"lagport",
       "ssh  -q -o 'StrictHostKeyChecking=no' 192.0.0.4 /opt/nos/bin/fwd_object_show -t lagport "
       "-D | grep -Ea "
       "'lagport|pending|lag_id|intf|mifh|npu_id|mtu|port_class|weight|max_member_count' | grep "
       "-v -E 'not set'"},
      {"l1port",
       "ssh  -q -o 'StrictHostKeyChecking=no' 192.0.0.4 /opt/nos/bin/fwd_object_show -t l1port -D "
       "| grep -Ea 'port|intf|device|core|mtu|pending'"},
      {"l2port",
       "ssh  -q -o 'StrictHostKeyChecking=no' 192.0.0.4 /opt/nos/bin/fwd_object_show -t l2port -D "
       "| grep -Ea 'l2port|bia_mac|intf|lif|rif' | grep -v -E 'not set'"},
      {"l2intf",
       "ssh  -q -o 'StrictHostKeyChecking=no' 192.0.0.4 /opt/nos/bin/fwd_object_show -t l2intf -D "
       "| grep -Ea 'intf|lif|encap_id|vlan_domain' | grep -v -E 'not set'"},
      {"l3intf",
       "ssh  -q -o 'StrictHostKeyChecking=no' 192.0.0.4 /opt/nos/bin/fwd_object_show -t l3intf -D "
       "| grep -Ea 'intf' | grep -v -E 'not set'"},
  }};
  for (const auto& [type, line] : expected) {
    EXPECT_EQ(command_line_of(type + "_0_RP1_CPU0", [] { dump(std::string(node)); }), line);
  }
}

TEST_F(dpa_dumps_test, lines_that_are_not_set_pass_the_filter_of_ports_alone) {
  EXPECT_EQ(dump("0/0/CPU0"), SUCCESS);
  EXPECT_THAT(file_text("/tmp/tessel_l1port_0_0_CPU0.log"), HasSubstr("uint32_t mtu => not set\n"));
  EXPECT_EQ(file_text("/tmp/tessel_lagport_0_0_CPU0.log"),
            "Objects of type lagport\n"
            "lagport element 0 pending(cr/up/dl):0/0/0\n"
            "  @dpa_intf_t intf => 0x3000120\n"
            "  uint16_t lag_id => 0x1\n"
            "  0:dpa_intf_t mifh => 0x60\n"
            "  0:uint8_t mbr_npu_id => 0\n"
            "  0:uint16_t weight => 1\n");
}

TEST_F(dpa_dumps_test, the_standby_node_goes_without_ports) {
  st().standbynodeinfo = node;
  EXPECT_EQ(dump(std::string(node)), SUCCESS);
  EXPECT_EQ(calls(), remote_calls({"lagport", "l2port", "l2intf", "l3intf"}));
  EXPECT_FALSE(file_exists("/tmp/tessel_l1port_0_RP1_CPU0.log"));
  EXPECT_TRUE(st().voq_usage.get().as_map().empty());
  EXPECT_THAT(st().DPA.get().at(node).as_map().keys(),
              ElementsAre("lagport", "l2port", "l2intf", "l3intf"));
  EXPECT_EQ(dump("0/0/CPU0"), SUCCESS);
  EXPECT_TRUE(file_exists("/tmp/tessel_l1port_0_0_CPU0.log")) << "other nodes do not";
}

TEST_F(dpa_dumps_test, slashes_of_a_node_name_become_underscores_in_each_file_name) {
  EXPECT_EQ(dump(std::string(node)), SUCCESS);
  for (const char* type : {"lagport", "l1port", "l2port", "l2intf", "l3intf"}) {
    EXPECT_TRUE(file_exists("/tmp/tessel_" + std::string(type) + "_0_RP1_CPU0.log")) << type;
  }
}

TEST_F(dpa_dumps_test, a_parser_that_failed_leaves_error_in_its_place) {
  tool("ssh", "[ \"$7\" = l2port ] && echo 'l2port element 0'\n" + std::string(objects_of_a_node));
  EXPECT_EQ(dump(std::string(node)), SUCCESS);
  const value objects = st().DPA.get().at(node);
  EXPECT_EQ(objects.at("l2port"), ERROR);
  EXPECT_THAT(objects.as_map().keys(), ElementsAre("lagport", "l2port", "l2intf", "l3intf"));
  EXPECT_EQ(st().exception, 1);
  EXPECT_EQ(messages(LOG_FILE_EXCEPTION).size(), 1U);
}

TEST_F(dpa_dumps_test, a_failure_leaves_what_was_stored_and_skips_the_rest) {
  EXPECT_EQ(dump_dpa_objects(4352, ERROR, std::string(node)), ERROR) << "no address";
  EXPECT_EQ(st().DPA.get().at(node), make_map()) << "later stages meet missing keys";
  EXPECT_THAT(calls(), IsEmpty());
  EXPECT_EQ(st().exception, 1);
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION),
              ElementsAre("a text expected, found the integer 0: dump_dpa_objects failed "
                          "0/RP1/CPU0"));
  EXPECT_THAT(file_text(LOG_FILE_EXCEPTION), HasSubstr("Traceback (most recent call last):"));
}

TEST_F(dpa_dumps_test, a_node_left_with_bundles_alone_is_a_failure_of_the_check_that_wants_more) {
  EXPECT_EQ(dump(std::string(node)), SUCCESS);
  const value lagport = st().DPA.get().at(node).at("lagport");
  st().DPA.get().as_map().set(node, map_of({{"lagport", lagport}}));
  const value bundle = new_record<Bundles>();
  bundle.as_record().set("ifh", "0x3000120");
  bundle.as_record().get("members").as_map().set(node, make_map());
  st().tesselDb.as_map().set("BE12", bundle);
  EXPECT_EQ(check_bundles_DPA("BE12", node, "BE12"), ERROR);
  EXPECT_EQ(st().exception, 1);
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION),
              ElementsAre("no key 'l2port': DPA bundle consistency check failed for BE12"));
}

TEST_F(dpa_dumps_test, an_earlier_entry_of_the_node_is_dropped) {
  st().DPA.get().as_map().set(node, map_of({{"old", 1}}));
  EXPECT_EQ(dump(std::string(node)), SUCCESS);
  EXPECT_FALSE(st().DPA.get().at(node).contains("old"));
}

TEST_F(dpa_dumps_test, a_node_that_does_not_answer_is_a_node_without_objects) {
  tool("ssh", "echo 'no route to host' >&2; exit 255");
  EXPECT_EQ(dump(std::string(node)), SUCCESS);
  EXPECT_EQ(st().exception, 0);
  EXPECT_EQ(st().info, 4);
  EXPECT_EQ(messages(LOG_FILE_EXCEPTION).size(), 4U);
  EXPECT_EQ(st().nodeinfo.get().at(node).at("dump"), 0);
  EXPECT_THAT(file_text(LOG_FILE_DEBUG), HasSubstr("no route to host"));
  for (const char* key : {"lagport", "l2port", "l2intf", "l3intf"}) {
    EXPECT_EQ(st().DPA.get().at(node).at(key), make_map());
  }
}

TEST_F(dpa_dumps_test, commands_that_cannot_be_run_lose_each_type_by_itself) {
  {
    const read_only_folder no_captures("/tmp");
    EXPECT_EQ(dump(std::string(node)), SUCCESS);
  }
  EXPECT_EQ(st().exception, 10) << "five commands and five parsers";
  EXPECT_EQ(messages(LOG_FILE_EXCEPTION).size(), 10U);
  EXPECT_EQ(st().DPA.get().at(node),
            map_of({{"lagport", ERROR}, {"l2port", ERROR}, {"l2intf", ERROR}, {"l3intf", ERROR}}));
}

// An ssh that does what the real one does with such an option.
constexpr std::string_view obedient_ssh =
    "for word; do case $word in -oProxyCommand=*) eval \"${word#*=}\" ;; esac; done";

TEST_F(dpa_dumps_test, an_address_that_would_plant_a_command_loses_each_type_and_runs_nothing) {
  constexpr std::string_view marker = "/opt/nos/planted";
  for (const std::string& nodeip : values_that_plant(marker)) {
    SCOPED_TRACE(nodeip);
    SetUp();
    std::filesystem::remove(marker);
    tool("ssh", obedient_ssh);
    EXPECT_EQ(dump_dpa_objects(4352, nodeip, std::string(node)), SUCCESS);
    EXPECT_FALSE(file_exists(marker));
    EXPECT_THAT(calls(), IsEmpty());
    EXPECT_EQ(st().exception, 10) << "five commands and five parsers";
    const auto told = messages(LOG_FILE_EXCEPTION);
    ASSERT_EQ(told.size(), 10U);
    for (std::size_t at = 0; at < told.size(); at += 2) {
      EXPECT_THAT(told[at], AllOf(StartsWith("the address of 0/RP1/CPU0 is "),
                                  HasSubstr(": execution failed for ssh  -q -o ")));
    }
    EXPECT_EQ(
        st().DPA.get().at(node),
        map_of({{"lagport", ERROR}, {"l2port", ERROR}, {"l2intf", ERROR}, {"l3intf", ERROR}}));
  }
}

TEST_F(dpa_dumps_test, a_malformed_node_name_never_gets_into_a_file_name) {
  dump("0/../x;y");
  EXPECT_THAT(calls(), IsEmpty());
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION)[0], StartsWith("the node name is '0_.._x;y', and "));
}

TEST_F(dpa_dumps_test, nodes_are_dumped_side_by_side) {
  constexpr int nodes = 6;
  for (int number = 0; number < nodes; ++number) {
    st().nodeinfo.get().as_map().set("0/" + std::to_string(number) + "/CPU0",
                                     map_of({{"dump", 1}}));
  }
  together(nodes,
           [](int number) { EXPECT_EQ(dump("0/" + std::to_string(number) + "/CPU0"), SUCCESS); });
  EXPECT_THAT(
      st().DPA.get().as_map().keys(),
      UnorderedElementsAre("0/0/CPU0", "0/1/CPU0", "0/2/CPU0", "0/3/CPU0", "0/4/CPU0", "0/5/CPU0"));
  EXPECT_EQ(st().voq_usage.get().as_map().size(), 1U) << "one port, whoever wrote last";
  EXPECT_EQ(st().exception, 0);
}

}  // namespace
}  // namespace tessel
