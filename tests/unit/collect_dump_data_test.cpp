#include "collect/dump_data.h"

#include <array>
#include <atomic>
#include <filesystem>
#include <string>
#include <vector>

#include "base/text.h"
#include "base/worker.h"
#include "parse/parse_data.h"
#include "support/command_line.h"
#include "support/fake_router.h"
#include "support/hostile.h"

namespace tessel {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;
using testing::UnorderedElementsAre;

const std::string title = "Dumping Data............................";
constexpr std::string_view config =
    "Building configuration...\nTarmac OS Configuration\n!\nhostname birch\n!\nend\n";
constexpr std::string_view skipped =
    "INFO: Both RPs are in active mode & software may be different. Performed TESSEL check on "
    "current node, skipped ";

// The shell code that ssh runs as a node: $4 is the address, $5 the tool, $7 the object type.
constexpr std::string_view remote = R"(case "$5" in
*/board_api_probe) printf 'Board\n  Node Id:0x1100\n  Node Id:4096\n' ;;
*) echo "$7 element 0"; echo '  @dpa_intf_t intf => 0x5'; echo '  uint16_t lag_id => 0x1'
   echo '  char intf_name => HundredGigE0_0_0_1'; echo '  uint32_t pp_port_id => 1'
   echo '  uint8_t device => 0'; echo '  uint8_t core => 0'; echo '  uint32_t mtu => 1514'
   echo '  rif_t rif => 1'; echo '  lif_t lif => 2'; echo '  mac_t bia_mac => 00:11'
   echo '  uint16_t vlan_domain => 1'; echo '  gport_t gport_id_lif => 2'
   echo '  uint8_t l2_intf_type => 3'; echo '  intf_t l3a_intf_id => 1' ;;
esac)";

class dump_data_test : public router_test {
 protected:
  void SetUp() override {
    router_test::SetUp();
    open_logs();
    st().router = birch;
    st().my_node_id = 4096;
    tool_prints("iface_show", "");
    tool("node_id_convert", "echo ' 0x1001000 '");
    tool("ssh", remote);
    tool_prints("ifmgr_show", "");
    tool_prints("cfg_render", config);
    tool_prints("lagmgr_table_show", "");
    tool_prints("lagmgr_agent_show", "");
    tool("asic_shell_show", "echo 'LAG ID: 1'");
  }
  static void add_node(std::string_view name, std::string_view nodeip, int dump,
                       int asic_supported = 0) {
    st().nodeinfo.get().as_map().set(name, map_of({{"nodeid", 0},
                                                   {"dump", dump},
                                                   {"nodeip", nodeip},
                                                   {"npu_list", list_of({"0", "1"})},
                                                   {"asic", "BCM8868"},
                                                   {"asic_supported", asic_supported}}));
  }
  static value node(std::string_view name) { return st().nodeinfo.get().at(name); }
  // Runs the stage and waits for its workers.
  int dump() {
    int result = ERROR;
    output_ = output_of([&] { result = dump_data(); });
    st().pid_list.join_all();
    return result;
  }
  // All messages except those of the two bundle manager parsers, which find no bundle here.
  static std::vector<std::string> other_messages() {
    std::vector<std::string> found;
    for (const std::string& each : messages(LOG_FILE_EXCEPTION)) {
      if (!each.ends_with("dont have any bundle data")) found.push_back(each);
    }
    return found;
  }
  std::string output_;
};

constexpr std::int64_t empty_layers = 2;  // counted by the two parsers that find no bundle

TEST_F(dump_data_test, each_local_command_line_is_exactly_this) {
  EXPECT_EQ(command_line_of("showInterfaces", [this] { dump(); }),
            R"(iface_show "-i" ".*" | grep "-E" "line protocol|MTU")");
  EXPECT_EQ(command_line_of("IM_PI", [this] { dump(); }),
            "ifmgr_show database -l 0x1 -a | grep -E BE | grep -E LDP | sort | uniq");
  EXPECT_EQ(command_line_of("running_cfg", [this] { dump(); }), " cfg_render -c -l 1 -t 1 -o 1 ");
}

TEST_F(dump_data_test, the_command_line_for_a_node_id_depends_on_the_router) {
  add_node("0/0/CPU0", "192.0.0.9", 1);
  EXPECT_EQ(command_line_of("0", [this] { dump(); }), "node_id_convert -I 0/0/CPU0");
  st().router = aspen;
  add_node("0/0/CPU0", "192.0.0.9", 1);
  EXPECT_EQ(command_line_of("0", [this] { dump(); }),
            "ssh  -q -o 'StrictHostKeyChecking=no'  192.0.0.9 /opt/nos/bin/board_api_probe");
}

TEST_F(dump_data_test, with_no_node_to_collect_only_the_two_parser_workers_are_joined) {
  EXPECT_EQ(dump(), SUCCESS);
  EXPECT_EQ(output_, title);
  EXPECT_EQ(st().pid_list.size(), 2U);
  EXPECT_EQ(st().bdlInfoPI.get(), make_map());
  EXPECT_EQ(st().bdlInfoPD.get(), make_map());
  EXPECT_THAT(calls(), UnorderedElementsAre("iface_show -i .*", "ifmgr_show database -l 0x1 -a",
                                            "cfg_render -c -l 1 -t 1 -o 1",
                                            "lagmgr_table_show -d -P 0x0 -N all -L 0x3 -O all",
                                            "lagmgr_agent_show -m -a all"));
  EXPECT_EQ(st().exception, empty_layers);
}

TEST_F(dump_data_test, member_mtus_are_read_from_the_interface_listing) {
  tool_prints(
      "iface_show",
      "Bundle-Ether12 is up, line protocol is up\n  Hardware is x\n  MTU 9192 bytes, BW 1\n"
      "HundredGigE0/0/0/1 is administratively down, line protocol is administratively down\n"
      "  MTU 1514 bytes, BW 100000\n"
      "TenGigE0/0/0/2/3 is up, line protocol is up\n  MTU 1500 bytes\n"
      "TenGigE0/0/0/2/3 is up, line protocol is up\n  MTU 1600 bytes\n"
      "Loopback0 is up, line protocol is up (looped)\n  MTU 1700 bytes\n");
  EXPECT_EQ(dump(), SUCCESS);
  EXPECT_EQ(st().mbrInfoPI.get(),
            map_of({{"12", "9192"}, {"0/0/0/1", "1514"}, {"0/0/0/2/3", "1600"}}));
  EXPECT_EQ(file_text("/tmp/tessel_showInterfaces.log").find("Hardware"), std::string::npos);
}

TEST_F(dump_data_test, a_run_of_plain_words_may_cross_line_ends) {
  tool_prints("iface_show", "Hu0/0/0/1 is up, line protocol is up\nMTU\n  MTU 1514 bytes\n");
  EXPECT_EQ(dump(), SUCCESS);
  EXPECT_EQ(st().mbrInfoPI.get(), map_of({{"0/0/0/1", "1514"}}));
}

TEST_F(dump_data_test, a_listing_without_any_match_leaves_no_member_mtus_and_no_error) {
  tool_prints("iface_show", "no line protocol, no MTU\n");
  EXPECT_EQ(dump(), SUCCESS);
  EXPECT_EQ(st().mbrInfoPI.get(), make_map());
  EXPECT_THAT(other_messages(), IsEmpty());
}

TEST_F(dump_data_test, sub_bundles_of_the_interface_manager_are_kept_filtered_and_sorted) {
  tool_prints("ifmgr_show", "BE2.1 LDP b\nHu0 LDP\nBE1.1 LDP a\nBE9 other\nBE2.1 LDP b\n");
  EXPECT_EQ(dump(), SUCCESS);
  EXPECT_EQ(st().bdlSubPI.get(), "BE1.1 LDP a\nBE2.1 LDP b\n");
}

TEST_F(dump_data_test, a_node_without_an_address_gets_neither_id_nor_worker_and_no_message) {
  add_node("0/0/CPU0", "None", 1);
  EXPECT_EQ(dump(), SUCCESS);
  EXPECT_EQ(node("0/0/CPU0").at("nodeid"), 0);
  EXPECT_EQ(node("0/0/CPU0").at("dump"), 1);
  EXPECT_EQ(st().pid_list.size(), 2U);
  EXPECT_TRUE(st().DPA.get().as_map().empty());
  EXPECT_THAT(other_messages(), IsEmpty());
}

TEST_F(dump_data_test, a_node_that_takes_no_part_gets_no_id_and_no_worker) {
  add_node("0/0/CPU0", "192.0.0.9", 0);
  EXPECT_EQ(dump(), SUCCESS);
  EXPECT_EQ(node("0/0/CPU0").at("nodeid"), 0);
  EXPECT_EQ(st().pid_list.size(), 2U);
  EXPECT_THAT(calls(), Not(Contains(HasSubstr("node_id_convert"))));
}

TEST_F(dump_data_test, of_a_node_id_the_low_24_bits_count) {
  struct row {
    const char* why;
    std::string printed;
    int expected;
  };
  for (const row& each : {row{"hexadecimal", "0x1001000\n", 4096}, row{"decimal", "16781568", 4352},
                          row{"octal, blanks around", "  010 \n\n", 8}, row{"none", "0", 0},
                          row{"all of 64 bits", "0xFFFFFFFFFFFFFFFF", 16777215},
                          row{"more than 64 bits", "0x10000000000000001001000", 4096}}) {
    SCOPED_TRACE(each.why);
    SetUp();
    add_node("0/0/CPU0", "192.0.0.9", 1);
    tool_prints("node_id_convert", each.printed);
    EXPECT_EQ(dump(), SUCCESS);
    EXPECT_EQ(node("0/0/CPU0").at("nodeid"), each.expected);
  }
}

TEST_F(dump_data_test, a_probed_node_id_of_64_bits_is_named_as_it_is) {
  st().router = aspen;
  add_node("0/0/CPU0", "192.0.0.9", 1);
  tool("ssh", "echo 'Node Id:0xFFFFFFFFFFFFFFFF'");
  EXPECT_EQ(dump(), SUCCESS);
  EXPECT_EQ(node("0/0/CPU0").at("nodeid"), "18446744073709551615");
}

TEST_F(dump_data_test, a_node_id_that_is_not_a_number_ends_the_whole_stage) {
  for (const char* printed : {"", "none\n", "08\n", "1 2\n"}) {
    SCOPED_TRACE(printed);
    SetUp();
    add_node("0/0/CPU0", "192.0.0.9", 1);
    tool_prints("node_id_convert", printed);
    EXPECT_EQ(dump(), ERROR);
    EXPECT_EQ(st().exception, 1);
    EXPECT_THAT(messages(LOG_FILE_EXCEPTION),
                ElementsAre(EndsWith(" is no number: dump data failed")));
    EXPECT_THAT(file_text(LOG_FILE_EXCEPTION), HasSubstr("Traceback (most recent call last):"));
    EXPECT_EQ(st().pid_list.size(), 0U) << "no parser worker was started";
    EXPECT_EQ(st().run_cfg.get(), make_list());
  }
}

TEST_F(dump_data_test, the_stage_logs_its_failure_before_it_counts_it) {
  st().nodeinfo.set(ERROR);
  output_of([] { EXPECT_TRUE(logs_before_counting([] { dump_data(); })); });
}

TEST_F(dump_data_test, an_inventory_that_failed_is_a_failure_of_the_stage) {
  st().nodeinfo.set(ERROR);
  EXPECT_EQ(dump(), ERROR);
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION),
              ElementsAre("a map expected, found the integer 0: dump data failed"));
}

TEST_F(dump_data_test, an_interface_listing_that_cannot_be_fetched_ends_the_stage) {
  const read_only_folder no_captures("/tmp");
  EXPECT_EQ(dump(), ERROR);
  EXPECT_EQ(st().exception, 2) << "the command and the stage";
  EXPECT_EQ(output_, title);
}

TEST_F(dump_data_test, workers_already_started_run_on_when_the_stage_fails) {
  add_node("0/0/CPU0", "192.0.0.9", 1);
  add_node("0/1/CPU0", "192.0.0.9", 1);
  tool("node_id_convert", "[ \"$2\" = 0/0/CPU0 ] && echo 1 || echo none");
  EXPECT_EQ(dump(), ERROR);
  EXPECT_EQ(st().pid_list.size(), 1U);
  EXPECT_THAT(st().DPA.get().as_map().keys(), ElementsAre("0/0/CPU0"));
  EXPECT_EQ(st().DPA.get().at("0/0/CPU0").as_map().size(), 4U) << "it was finished";
}

// --- the chassis whose nodes are probed

TEST_F(dump_data_test, a_probed_id_is_the_first_that_is_printed) {
  st().router = aspen;
  st().activenode_cnt = 1;
  add_node("0/0/CPU0", "192.0.0.9", 1);
  EXPECT_EQ(dump(), SUCCESS);
  EXPECT_EQ(node("0/0/CPU0").at("nodeid"), 0x1100);
  EXPECT_EQ(node("0/0/CPU0").at("dump"), 1);
  EXPECT_THAT(st().DPA.get().as_map().keys(), ElementsAre("0/0/CPU0"));
  EXPECT_THAT(other_messages(), IsEmpty());
}

TEST_F(dump_data_test, without_a_probed_id_the_node_is_skipped_and_the_loop_goes_on) {
  st().router = aspen;
  st().activenode_cnt = 1;
  add_node("0/0/CPU0", "192.0.0.8", 1);
  add_node("0/1/CPU0", "192.0.0.9", 1);
  tool("ssh", "[ \"$4\" = 192.0.0.8 ] && exit 255\n" + std::string(remote));
  EXPECT_EQ(dump(), SUCCESS);
  EXPECT_EQ(node("0/0/CPU0").at("dump"), 0);
  EXPECT_EQ(node("0/1/CPU0").at("dump"), 1);
  EXPECT_THAT(other_messages(), ElementsAre("ERROR: Not able to get node id for 0/0/CPU0"));
  EXPECT_EQ(st().exception, empty_layers + 1);
  EXPECT_THAT(st().DPA.get().as_map().keys(), ElementsAre("0/1/CPU0"));
}

TEST_F(dump_data_test, without_a_probed_id_beside_two_active_nodes_the_stage_fails) {
  st().router = aspen;
  st().activenode_cnt = 2;
  add_node("0/0/CPU0", "192.0.0.8", 1);
  tool("ssh", "exit 255");
  EXPECT_EQ(dump(), ERROR);
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION),
              ElementsAre("ERROR: Not able to get node id for 0/0/CPU0",
                          "no second node id for 0/0/CPU0 among 0: dump data failed"));
  EXPECT_EQ(st().exception, 2);
  EXPECT_EQ(node("0/0/CPU0").at("dump"), 0);
}

TEST_F(dump_data_test, with_one_probed_id_beside_two_active_nodes_the_stage_fails) {
  st().router = aspen;
  st().activenode_cnt = 2;
  add_node("0/0/CPU0", "192.0.0.8", 1);
  tool("ssh", "echo Node Id:0x1100");
  EXPECT_EQ(dump(), ERROR);
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION),
              ElementsAre("no second node id for 0/0/CPU0 among 1: dump data failed"));
  EXPECT_EQ(node("0/0/CPU0").at("nodeid"), 0x1100);
}

TEST_F(dump_data_test, with_two_probed_ids_beside_two_active_nodes_every_node_is_skipped) {
  // The second id is a text and the host's an integer, so even the host's own node differs.
  st().router = aspen;
  st().activenode_cnt = 2;
  add_node("0/0/CPU0", "192.0.0.9", 1);
  EXPECT_EQ(dump(), SUCCESS);
  EXPECT_EQ(node("0/0/CPU0").at("nodeid"), 0x1100) << "written before the node is skipped";
  EXPECT_EQ(node("0/0/CPU0").at("dump"), 0);
  EXPECT_THAT(other_messages(), ElementsAre(std::string(skipped) + "0/0/CPU0"));
  EXPECT_EQ(st().exception, empty_layers) << "a note that is not counted";
  EXPECT_EQ(st().info, 0);
  EXPECT_TRUE(st().DPA.get().as_map().empty());
}

TEST_F(dump_data_test, two_active_nodes_matter_on_one_router_type_only) {
  st().activenode_cnt = 2;
  add_node("0/0/CPU0", "192.0.0.9", 1);
  EXPECT_EQ(dump(), SUCCESS);
  EXPECT_EQ(node("0/0/CPU0").at("dump"), 1);
}

TEST_F(dump_data_test, an_empty_probed_id_is_none) {
  st().router = aspen;
  add_node("0/0/CPU0", "192.0.0.9", 1);
  tool("ssh", "echo Node Id:");
  EXPECT_EQ(dump(), SUCCESS);
  EXPECT_EQ(node("0/0/CPU0").at("dump"), 0);
  EXPECT_THAT(other_messages(), ElementsAre("ERROR: Not able to get node id for 0/0/CPU0"));
}

TEST_F(dump_data_test, a_probed_id_that_is_not_a_number_ends_the_stage) {
  st().router = aspen;
  add_node("0/0/CPU0", "192.0.0.9", 1);
  tool("ssh", "echo Node Id:unknown");
  EXPECT_EQ(dump(), ERROR);
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION),
              ElementsAre("'unknown' is no number: dump data failed"));
}

TEST_F(dump_data_test, an_address_that_would_plant_a_command_ends_the_stage_before_it_is_probed) {
  constexpr std::string_view marker = "/opt/nos/planted";
  for (const std::string& nodeip : values_that_plant(marker)) {
    SCOPED_TRACE(nodeip);
    SetUp();
    std::filesystem::remove(marker);
    st().router = aspen;
    add_node("0/0/CPU0", nodeip, 1);
    EXPECT_EQ(dump(), ERROR);
    EXPECT_FALSE(file_exists(marker));
    EXPECT_THAT(calls(), ElementsAre("iface_show -i .*"));
    EXPECT_THAT(messages(LOG_FILE_EXCEPTION),
                ElementsAre(StartsWith("the address of 0/0/CPU0 is "),
                            "a text expected, found the integer 0: dump data failed"));
    EXPECT_EQ(st().exception, 2) << "the command and the stage";
  }
}

TEST_F(dump_data_test, a_node_name_that_would_plant_a_command_ends_the_stage) {
  constexpr std::string_view marker = "/opt/nos/planted";
  for (const std::string& nodename : values_that_plant(marker)) {
    SCOPED_TRACE(nodename);
    SetUp();
    std::filesystem::remove(marker);
    add_node(nodename, "192.0.0.9", 1);
    EXPECT_EQ(dump(), ERROR);
    EXPECT_FALSE(file_exists(marker));
    EXPECT_THAT(calls(), ElementsAre("iface_show -i .*"));
    EXPECT_THAT(messages(LOG_FILE_EXCEPTION),
                ElementsAre(StartsWith("the node name is "),
                            "a text expected, found the integer 0: dump data failed"));
  }
}

TEST_F(dump_data_test, a_node_with_such_an_address_loses_its_objects_and_the_others_keep_theirs) {
  add_node("0/0/CPU0", "$(touch /opt/nos/planted)", 1);
  add_node("0/1/CPU0", "192.0.0.9", 1);
  std::filesystem::remove("/opt/nos/planted");
  EXPECT_EQ(dump(), SUCCESS);
  EXPECT_FALSE(file_exists("/opt/nos/planted"));
  EXPECT_EQ(st().DPA.get().at("0/0/CPU0").at("lagport"), ERROR);
  EXPECT_TRUE(st().DPA.get().at("0/1/CPU0").at("lagport").is_map());
  EXPECT_EQ(st().exception, empty_layers + 10) << "five commands and five parsers";
}

// --- workers

TEST_F(dump_data_test, the_stage_ends_only_when_the_whole_tree_of_workers_has_ended) {
  tool("asic_shell_show", "sleep 0.05; echo 'LAG ID: 1'");
  add_node("0/0/CPU0", "192.0.0.9", 1, 1);
  add_node("0/1/CPU0", "192.0.0.9", 1, 1);
  int result = ERROR;
  output_of([&] { result = dump_data(); });
  EXPECT_EQ(result, SUCCESS);
  for (const char* name : {"0/0/CPU0", "0/1/CPU0"}) {
    EXPECT_EQ(st().DPA.get().at(name).as_map().size(), 4U);
    EXPECT_THAT(st().BCM.get().at(name).as_map().keys(), UnorderedElementsAre("0", "1"));
  }
  EXPECT_EQ(st().pid_list.size(), 8U) << "two nodes, two parsers, four NPUs; nothing empties it";
  st().pid_list.join_all();
}

TEST_F(dump_data_test, workers_that_join_the_list_late_are_waited_for) {
  std::atomic<int> ended = 0;
  st().pid_list.append(start_worker([&ended] {
    for (int number = 0; number < 20; ++number) {
      st().pid_list.append(start_worker([&ended] { ++ended; }));
    }
  }));
  EXPECT_EQ(dump(), SUCCESS);
  EXPECT_EQ(ended, 20);
}

TEST_F(dump_data_test, a_node_without_a_supported_chip_has_objects_and_no_chip_tables) {
  add_node("0/0/CPU0", "192.0.0.9", 1, 0);
  EXPECT_EQ(dump(), SUCCESS);
  EXPECT_THAT(st().DPA.get().as_map().keys(), ElementsAre("0/0/CPU0"));
  EXPECT_TRUE(st().BCM.get().as_map().empty());
  EXPECT_THAT(calls(), Not(Contains(StartsWith("asic_shell_show"))));
}

TEST_F(dump_data_test, a_failure_inside_a_worker_never_reaches_the_stage) {
  add_node("0/0/CPU0", "192.0.0.9", 1, 1);
  tool("ssh", "echo \"$7 element 0\"");
  EXPECT_EQ(dump(), SUCCESS);
  EXPECT_EQ(st().exception, empty_layers + 3) << "three types of interfaces without a handle";
  EXPECT_EQ(st().info, 2);
  EXPECT_EQ(other_messages().size(), 5U);
}

TEST_F(dump_data_test, both_layers_of_the_bundle_manager_may_end_as_raw_text) {
  tool_prints("lagmgr_table_show", "Bundle-Ether1\nBundle interface handle BE1 (0x1)\n");
  tool_prints("lagmgr_agent_show", "Bundle-Ether1\na\nb\n0/0/CPU0 lag 0 0\n");
  EXPECT_EQ(dump(), SUCCESS);
  EXPECT_TRUE(st().bdlInfoPI.get().is_text());
  EXPECT_TRUE(st().bdlInfoPD.get().is_text());
  EXPECT_EQ(st().exception, 2);
  EXPECT_THROW(st().bdlInfoPI.get().contains("BE1"), failure) << "never a substring test";
}

TEST_F(dump_data_test, a_node_record_without_its_fields_ends_only_its_own_worker) {
  st().nodeinfo.get().as_map().set("0/0/CPU0",
                                   map_of({{"nodeid", 0}, {"dump", 1}, {"nodeip", "192.0.0.9"}}));
  int result = ERROR;
  const std::string complaint = error_output_of([&] { result = dump(); });
  EXPECT_EQ(result, SUCCESS);
  EXPECT_THAT(complaint, HasSubstr("no key 'asic_supported'"));
  EXPECT_EQ(st().DPA.get().at("0/0/CPU0").as_map().size(), 4U);
}

// --- running configuration

TEST_F(dump_data_test, the_configuration_is_kept_from_its_banner_to_its_end) {
  EXPECT_EQ(dump_running_config(), SUCCESS);
  EXPECT_EQ(st().run_cfg.get(), "Tarmac OS Configuration\n!\nhostname birch\n!\nend");
  EXPECT_EQ(file_text("/tmp/tessel_running_cfg.log"), config);
}

TEST_F(dump_data_test, the_first_line_that_is_exactly_end_is_the_end) {
  tool_prints("cfg_render", "Tarmac OS Configuration\n end\nend-set\nendless\nend\nx\nend\n");
  EXPECT_EQ(dump_running_config(), SUCCESS);
  EXPECT_EQ(st().run_cfg.get(), "Tarmac OS Configuration\n end\nend-set\nendless\nend");
}

TEST_F(dump_data_test, of_the_configuration_only_what_is_kept_is_held_in_the_end) {
  const std::string kept = "Tarmac OS Configuration\n" + std::string(1000, 'x') + "\nend";
  tool_prints("cfg_render", std::string(2000, '!') + kept + "\n" + std::string(3000, 'y'));
  EXPECT_EQ(dump_running_config(), SUCCESS);
  EXPECT_EQ(st().run_cfg.get(), kept);
  EXPECT_EQ(st().texts.held(), kept.size());
}

TEST_F(dump_data_test, a_configuration_that_is_held_twice_fits) {
  const std::string output = "Tarmac OS Configuration\n" + std::string(1000, 'x') + "\nend\n";
  tool_prints("cfg_render", output);
  st().texts.set_limit({4 * output.size(), "RLIMIT_AS"});
  EXPECT_EQ(dump_running_config(), SUCCESS);
}

TEST_F(dump_data_test, a_configuration_that_does_not_fit_a_second_time_is_a_counted_failure) {
  const std::string output = "Tarmac OS Configuration\n" + std::string(1000, 'x') + "\nend\n";
  tool_prints("cfg_render", output);
  st().texts.set_limit({2 * (2 * output.size() - 1), "RLIMIT_AS"});
  EXPECT_EQ(dump_running_config(), ERROR);
  EXPECT_EQ(st().exception, 1);
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION),
              ElementsAre(testing::AllOf(
                  HasSubstr("cannot hold the running configuration: it has 1029 bytes, at most "
                            "1028 bytes are left"),
                  testing::EndsWith(": dump_running_config failed"))));
  EXPECT_EQ(st().run_cfg.get(), output);
}

TEST_F(dump_data_test, a_configuration_without_the_banner_stays_uncut_and_the_stage_goes_on) {
  tool_prints("cfg_render", "hostname birch\nend\n");
  EXPECT_EQ(dump(), SUCCESS);
  EXPECT_EQ(output_, title + " PARSE-ERROR: Not able to find the start of the running config\n")
      << "whatever is printed behind a title is preceded by one blank";
  EXPECT_EQ(st().run_cfg.get(), "hostname birch\nend\n");
  EXPECT_EQ(st().pid_list.size(), 2U);
  EXPECT_EQ(st().exception, empty_layers) << "printed, not counted";
}

TEST_F(dump_data_test, a_configuration_whose_last_line_is_end_without_a_line_feed_has_no_end) {
  tool_prints("cfg_render", "x\nTarmac OS Configuration\n!\nend");
  int result = SUCCESS;
  EXPECT_EQ(output_of([&] { result = dump_running_config(); }),
            "PARSE-ERROR: Not able to find the end of the running config\n");
  EXPECT_EQ(result, ERROR);
  EXPECT_EQ(st().run_cfg.get(), "Tarmac OS Configuration\n!\nend") << "the first cut stays";
  EXPECT_EQ(st().exception, 0);
}

TEST_F(dump_data_test, a_configuration_that_cannot_be_fetched_is_logged_and_counted) {
  const read_only_folder no_captures("/tmp");
  EXPECT_EQ(dump_running_config(), ERROR);
  EXPECT_EQ(st().run_cfg.get(), ERROR);
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION),
              ElementsAre(StartsWith("cannot open /tmp/tessel_running_cfg.log"),
                          "a text expected, found the integer 0: dump_running_config failed"));
  EXPECT_EQ(st().exception, 2) << "the command and its reader";
}

TEST_F(dump_data_test, a_configuration_of_many_megabytes_with_binary_bytes_is_cut_as_any_other) {
  std::string body = "Tarmac OS Configuration\n";
  for (const bad_output& each : meaningless_outputs()) body += each.output.as_text();
  body += std::string(4U << 20, 'x');
  tool_prints("cfg_render", "junk\n" + body + "\nend\n");
  EXPECT_EQ(dump_running_config(), SUCCESS);
  EXPECT_TRUE(st().run_cfg.get() == body + "\nend");
}

// --- bad output of every tool

TEST_F(dump_data_test, missing_tools_are_empty_outputs) {
  router_test::SetUp();
  open_logs();
  tool("ssh", "exit 127");  // otherwise the machine's own ssh would look for the node
  st().router = aspen;
  add_node("0/0/CPU0", "192.0.0.9", 1);
  EXPECT_EQ(dump(), SUCCESS);
  EXPECT_THAT(output_, HasSubstr(" PARSE-ERROR: Not able to find the start"));
  EXPECT_THAT(other_messages(), ElementsAre("ERROR: Not able to get node id for 0/0/CPU0"));
}

TEST_F(dump_data_test, junk_from_every_tool_is_reported_and_survived) {
  for (const bad_output& each : meaningless_outputs()) {
    SCOPED_TRACE(each.why);
    SetUp();
    add_node("0/0/CPU0", "192.0.0.9", 1, 1);
    for (const char* name : {"ssh", "ifmgr_show", "cfg_render", "lagmgr_table_show",
                             "lagmgr_agent_show", "asic_shell_show", "iface_show"}) {
      tool_prints(name, each.output.as_text());
    }
    EXPECT_EQ(dump(), SUCCESS);
    EXPECT_EQ(static_cast<std::int64_t>(messages(LOG_FILE_EXCEPTION).size()),
              st().exception + st().info);
    output_of([] { EXPECT_EQ(parse_data(), ERROR); });
  }
}

TEST_F(dump_data_test, endless_runs_from_every_tool_are_reported_and_survived) {
  for (const bad_output& each : endless_outputs()) {
    SCOPED_TRACE(each.why);
    SetUp();
    add_node("0/0/CPU0", "192.0.0.9", 1, 1);
    for (const char* name : {"ssh", "ifmgr_show", "cfg_render", "lagmgr_table_show",
                             "lagmgr_agent_show", "asic_shell_show", "iface_show"}) {
      tool_prints(
          name, "Bundle lagport l2port intf port LDP BE MTU " + std::string(each.output.as_text()));
    }
    EXPECT_EQ(dump(), SUCCESS);
    EXPECT_EQ(static_cast<std::int64_t>(messages(LOG_FILE_EXCEPTION).size()),
              st().exception + st().info);
    EXPECT_EQ(st().DPA.get().at("0/0/CPU0").at("l2port"), ERROR);
  }
}

}  // namespace
}  // namespace tessel
