#include "collect/hardware_dumps.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <string>
#include <vector>

#include "support/command_line.h"
#include "support/fake_router.h"
#include "support/hostile.h"

namespace tessel {
namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using testing::UnorderedElementsAre;

constexpr std::string_view older = "0/0/CPU0";
constexpr std::string_view newer = "0/1/CPU0";

// $2 is the chip shell's command.
constexpr std::string_view chip = R"(case "$2" in
'vis lag') printf '| 0     |   1 |    0 | 20   |    0 |    2 |\n|       |     |    1 | 21   |\n' ;;
'dbal table dump table=INGRESS_PP_PORT') echo '| 0 | 0 | 5 || 16 |' ;;
'tm lag') echo '| 0 | 1 |   | 1 | yes | 0xc000021 | 0 |' ;;
'dbal table dump table=IN_AC_UNTAGGED_DB') echo '| 0 | 7 | 1 || 4660 |' ;;
'dbal table dump table=ING_VSI_INFO_DB') echo '| 0 | 8 || 0 | 4661 |' ;;
'dump ETPPC_EDITING_PER_PORT_TABLE ') echo 'ETPPC_EDITING_PER_PORT_TABLE.ETPPC0[5]: <A=1,MTU_PROFILE=2>' ;;
'dump chg ETPPC_MTU_MAP_TABLE') echo 'ETPPC_MTU_MAP_TABLE.ETPPC0[20]: <A=1,MTU=0x5ea>' ;;
'd IHP_VTT_IN_PP_PORT_CONFIG') printf 'A.IHP0[1]: <P=1,VLAN_DOMAIN=0,B=1>\n\n  \nA.IHP0[2]: <P=1,VLAN_DOMAIN=0x10,B=1>\n' ;;
'diag dbal dbd 3') printf 'Key=0x1 Payload=0x00000000\nKey=0x2 Payload=0x00000001\n' ;;
'diag dbal dbd 4') printf 'Key=0x3 Payload=0x00000000\nKey=0x4 Payload=0x00000002\n' ;;
'diag lag') printf 'LAG ID: 1\n 0 | 0xc000021 | Y\n 1 | 0xbffffff | N\n' ;;
'd IHP_VSI_LOW_CFG_1') printf 'A.IHP0[1]: <MY_MAC=0x12>\nA.IHP1[1]: <MY_MAC=0x12>\nA.IHP0[2]: <MY_MAC=0>\n' ;;
'dump EPNI_PACKETPROCESSING_PORT_CONFIGURATION_TABLE') echo 'EPNI_PACKETPROCESSING_PORT_CONFIGURATION_TABLE.EPNI0[1]: <A=1,MTU=0x10>' ;;
*) echo "unknown command: $2" >&2; exit 1 ;;
esac)";

class hardware_dumps_test : public router_test {
 protected:
  void SetUp() override {
    router_test::SetUp();
    open_logs();
    st().router = birch;
    add_node(older, "BCM8868");
    add_node(newer, "BCM8869");
    tool("asic_shell_show", chip);
  }
  static void add_node(std::string_view name, std::string_view asic) {
    st().nodeinfo.get().as_map().set(name, map_of({{"asic_supported", 1}, {"asic", asic}}));
    st().BCM.get().as_map().set(name, make_shared_map());
  }
  static value tables(std::string_view node) { return st().BCM.get().at(node).at("1"); }
};

int dump_older() {
  return dump_tables_per_npu_non_j2("1", 4096, "192.0.0.4", std::string(older));
}
int dump_newer() {
  return dump_tables_per_npu_j2("1", 4096, "192.0.0.4", std::string(newer));
}

struct chip_row {
  std::string cmd;
  std::string fname;
  std::string grep_opt;
};

const std::vector<chip_row>& older_rows() {
  static const std::vector<chip_row> rows = {
      {"d IHP_VTT_IN_PP_PORT_CONFIG", "vlan_domain",
       "-v -E 'VLAN_DOMAIN=0,' | grep '[^[:space:]]'"},
      {"diag dbal dbd 3", "SEMA", "-v -E 'Payload=0x00000000'"},
      {"diag dbal dbd 4", "SEMB", "-v -E 'Payload=0x00000000'"},
      {"diag lag", "diag_lag", "-v -E 0xbffffff"},
      {"d IHP_VSI_LOW_CFG_1", "vsi_mac_map", "-E 'IHP0' | grep -E 'MY_MAC=0x'"},
      {"dump EPNI_PACKETPROCESSING_PORT_CONFIGURATION_TABLE", "mtu_profile", ""}};
  return rows;
}

const std::vector<chip_row>& newer_rows() {
  static const std::vector<chip_row> rows = {
      {"vis lag", "lag_pp_port", ""},
      {"dbal table dump table=INGRESS_PP_PORT", "vlan_domain", ""},
      {"tm lag", "tm_lag", ""},
      {"dbal table dump table=IN_AC_UNTAGGED_DB", "local_lif", ""},
      {"dbal table dump table=ING_VSI_INFO_DB", "vsi_mac_map", ""},
      {"dump ETPPC_EDITING_PER_PORT_TABLE ", "mtu_profile", ""},
      {"dump chg ETPPC_MTU_MAP_TABLE", "mtu_profile", ""}};
  return rows;
}

void expect_calls_of(const std::vector<chip_row>& rows) {
  std::vector<std::string> expected;
  for (const chip_row& each : rows) {
    expected.push_back("asic_shell_show -c " + each.cmd + " -u 1 -n 4096");
  }
  EXPECT_EQ(calls(), expected);
}

std::string line_of(const chip_row& row) {
  const std::string line = "/opt/nos/bin/asic_shell_show -c \"" + row.cmd + "\" -u 1 -n 4096";
  return row.grep_opt.empty() ? line : line + " | grep " + row.grep_opt;
}

TEST_F(hardware_dumps_test, an_earlier_chip_gets_its_commands_in_order) {
  EXPECT_EQ(dump_older(), SUCCESS);
  expect_calls_of(older_rows());
  EXPECT_EQ(printed(tables(older)),
            "{'vd': 'A.IHP0[2]: <P=1,VLAN_DOMAIN=0x10,B=1>\\n', "
            "'SEMA': 'Key=0x2 Payload=0x00000001\\n', 'SEMB': 'Key=0x4 Payload=0x00000002\\n', "
            "'diag_lag': {'LAG 0x1': {'0x0': {'gport': '0xc000021', 'is_active': 'Y', "
            "'Node Description': 'LAG 0x1_npu1_node0/0/CPU0_memid0x0'}, 'Visited': 0, "
            "'Node Description': 'LAG 0x1_npu1_node0/0/CPU0'}}, "
            "'VSI': 'A.IHP0[1]: <MY_MAC=0x12>\\n', 'member_mtu': {'0': {'1': '16'}}}");
  EXPECT_TRUE(tables(older).as_map().is_ordered());
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION), IsEmpty());
}

TEST_F(hardware_dumps_test, a_jericho2_chip_gets_its_commands_in_order) {
  EXPECT_EQ(dump_newer(), SUCCESS);
  expect_calls_of(newer_rows());
  EXPECT_EQ(printed(tables(newer)),
            "{'bdl_pp_port': {'1': {'0': '20', '1': '21'}}, 'vd': {'0': {'5': '16'}}, "
            "'tm_lag': {'0x1': {'members': ['0xc000021'], 'Visited': 0, "
            "'Node Description': '0x1_npu1_node0/1/CPU0'}}, 'lif': {'7': '4660'}, "
            "'VSI': {'8': '4661'}, 'lag_mtu': {'0': {'5': '2'}}, "
            "'mtu_profile': {'0': {'2': '1514'}}}");
  EXPECT_TRUE(tables(newer).as_map().is_ordered());
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION), IsEmpty());
}

TEST_F(hardware_dumps_test, each_command_line_of_an_earlier_chip_is_exactly_this) {
  for (const chip_row& each : older_rows()) {
    EXPECT_EQ(command_line_of(each.fname + "_1_4096", [] { dump_older(); }), line_of(each));
  }
}

TEST_F(hardware_dumps_test, each_command_line_of_a_jericho2_chip_is_exactly_this) {
  for (const chip_row& each : newer_rows()) {
    if (each.cmd.starts_with("dump chg")) continue;  // shares its file name with the row before
    EXPECT_EQ(command_line_of(each.fname + "_1_4096", [] { dump_newer(); }), line_of(each));
  }
  EXPECT_EQ(dump_newer(), SUCCESS);
  EXPECT_THAT(file_text("/tmp/tessel_mtu_profile_1_4096.log"), StartsWith("ETPPC_MTU_MAP_TABLE"))
      << "the later of the two replaces the earlier";
}

TEST_F(hardware_dumps_test, an_empty_list_of_npus_gives_an_empty_map_and_no_worker) {
  st().BCM.get().as_map().set(older, map_of({{"old", 1}}));
  EXPECT_EQ(dump_hw_tables(make_list(), 0, "192.0.0.4", std::string(older)), SUCCESS);
  EXPECT_EQ(st().BCM.get().at(older), make_map());
  EXPECT_TRUE(st().BCM.get().at(older).as_map().is_ordered());
  EXPECT_EQ(st().pid_list.size(), 0U);
  EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(hardware_dumps_test, each_npu_has_a_worker_that_is_not_waited_for) {
  // The chip answers only after the function that starts the workers has returned.
  tool("asic_shell_show", "while [ ! -e /opt/nos/go ]; do sleep 0.01; done\n" + std::string(chip));
  std::filesystem::remove("/opt/nos/go");
  EXPECT_EQ(dump_hw_tables(list_of({"0", "1", "2"}), 7, "192.0.0.4", std::string(older)), SUCCESS);
  EXPECT_EQ(st().pid_list.size(), 3U);
  EXPECT_EQ(st().BCM.get().at(older), make_map()) << "an NPU appears only once it is complete";
  write_file("/opt/nos/go", "");
  st().pid_list.join_all();
  std::filesystem::remove("/opt/nos/go");
  EXPECT_THAT(st().BCM.get().at(older).as_map().keys(), UnorderedElementsAre("0", "1", "2"));
  for (const char* npu : {"0", "1", "2"}) {
    EXPECT_TRUE(file_exists("/tmp/tessel_diag_lag_" + std::string(npu) + "_7.log"));
  }
  st().pid_list.join_all();
  EXPECT_EQ(st().pid_list.size(), 3U) << "the list is joined again later on";
}

TEST_F(hardware_dumps_test, chips_of_both_families_may_be_mixed) {
  EXPECT_EQ(dump_hw_tables(list_of({"0"}), 1, "192.0.0.4", std::string(older)), SUCCESS);
  EXPECT_EQ(dump_hw_tables(list_of({"0"}), 2, "192.0.0.5", std::string(newer)), SUCCESS);
  st().pid_list.join_all();
  EXPECT_TRUE(st().BCM.get().at(older).at("0").contains("diag_lag"));
  EXPECT_TRUE(st().BCM.get().at(newer).at("0").contains("tm_lag"));
  EXPECT_FALSE(st().BCM.get().at(newer).at("0").contains("diag_lag"));
}

TEST_F(hardware_dumps_test, a_chip_that_prints_nothing_yields_empty_texts) {
  tool_prints("asic_shell_show", "");
  EXPECT_EQ(dump_older(), SUCCESS);
  for (const char* key : {"vd", "SEMA", "SEMB", "VSI"}) EXPECT_EQ(tables(older).at(key), "");
  EXPECT_EQ(tables(older).at("diag_lag"), make_map());
  EXPECT_EQ(tables(older).at("member_mtu"), make_map());
  EXPECT_EQ(st().info, 1) << "no LAG in the chip is a note";
  EXPECT_EQ(st().exception, 0);
  EXPECT_EQ(dump_newer(), SUCCESS);
  for (const char* key : {"bdl_pp_port", "vd", "tm_lag", "lif", "VSI", "lag_mtu", "mtu_profile"}) {
    EXPECT_EQ(tables(newer).at(key), make_map()) << key;
  }
  EXPECT_EQ(st().info, 2);
}

TEST_F(hardware_dumps_test, a_failed_worker_leaves_no_entry_for_its_npu) {
  for (const std::string_view node : {older, newer}) {
    SCOPED_TRACE(node);
    SetUp();
    std::filesystem::create_directory("/tmp/tessel_mtu_profile_1_7.log");
    EXPECT_EQ(dump_hw_tables(list_of({"0", "1", "2"}), 7, "192.0.0.4", std::string(node)), SUCCESS);
    st().pid_list.join_all();
    EXPECT_THAT(st().BCM.get().at(node).as_map().keys(), UnorderedElementsAre("0", "2"));
    EXPECT_THAT(messages(LOG_FILE_EXCEPTION),
                ElementsAre(StartsWith("cannot open /tmp/tessel_mtu_profile_1_7.log"),
                            EndsWith(": dump_tables_per_npu failed " + std::string(node))));
    EXPECT_EQ(st().exception, 2);
  }
}

TEST_F(hardware_dumps_test, both_families_report_a_failure_in_the_same_words) {
  const read_only_folder no_captures("/tmp");
  EXPECT_EQ(dump_newer(), ERROR);
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION),
              ElementsAre(StartsWith("cannot open /tmp/tessel_lag_pp_port_1_4096.log"),
                          "a text expected, found the integer 0: dump_tables_per_npu failed "
                          "0/1/CPU0"));
  EXPECT_EQ(st().exception, 2) << "the command and the worker";
  EXPECT_EQ(dump_older(), ERROR);
  EXPECT_EQ(messages(LOG_FILE_EXCEPTION).back(),
            "a text expected, found the integer 0: dump_tables_per_npu failed 0/0/CPU0");
  EXPECT_THAT(file_text(LOG_FILE_EXCEPTION), HasSubstr("in dump_tables_per_npu_j2\n"));
  EXPECT_FALSE(st().BCM.get().at(newer).contains("1"));
}

TEST_F(hardware_dumps_test, a_unit_or_an_id_that_would_plant_a_command_fails_the_worker) {
  constexpr std::string_view marker = "/opt/nos/planted";
  const auto expect_failed = [&](const value& npu, const value& nodeid, const std::string& head) {
    SetUp();
    std::filesystem::remove(marker);
    st().BCM.get().as_map().set(older, make_ordered_map());
    st().BCM.get().as_map().set(newer, make_ordered_map());
    EXPECT_EQ(dump_tables_per_npu_non_j2(npu, nodeid, "192.0.0.4", std::string(older)), ERROR);
    EXPECT_EQ(dump_tables_per_npu_j2(npu, nodeid, "192.0.0.4", std::string(newer)), ERROR);
    EXPECT_FALSE(file_exists(marker));
    EXPECT_THAT(calls(), IsEmpty());
    const auto told = messages(LOG_FILE_EXCEPTION);
    ASSERT_EQ(told.size(), 10U) << "six commands, a parser, the worker; one command, the worker";
    EXPECT_EQ(std::count_if(told.begin(), told.end(),
                            [&](const std::string& each) { return each.starts_with(head); }),
              7);
    EXPECT_THAT(told[7], EndsWith(": dump_tables_per_npu failed 0/0/CPU0"));
    EXPECT_THAT(told[9], EndsWith(": dump_tables_per_npu failed 0/1/CPU0"));
    EXPECT_TRUE(st().BCM.get().at(older).as_map().empty());
    EXPECT_TRUE(st().BCM.get().at(newer).as_map().empty());
  };
  for (const std::string& text : values_that_plant(marker)) {
    SCOPED_TRACE(text);
    expect_failed(text, 4096, "the NPU of node id 4096 is ");
    expect_failed("0", text, "the node id is ");
  }
}

TEST_F(hardware_dumps_test, an_npu_list_of_another_kind_is_a_failure_of_the_node) {
  EXPECT_EQ(dump_hw_tables("Not set", 4096, "192.0.0.4", std::string(older)), ERROR);
  EXPECT_THAT(
      messages(LOG_FILE_EXCEPTION),
      ElementsAre("a list expected, found the text 'Not set': dump_hw_tables failed for nodeid "
                  "4096, 0/0/CPU0"));
  EXPECT_EQ(st().exception, 1);
  EXPECT_EQ(st().pid_list.size(), 0U);
}

TEST_F(hardware_dumps_test, a_lag_table_that_cannot_be_read_stands_as_error_in_its_place) {
  tool("asic_shell_show",
       "[ \"$2\" = 'tm lag' ] && echo '| 0 | 1 | before any id'\n" + std::string(chip));
  EXPECT_EQ(dump_newer(), SUCCESS);
  EXPECT_EQ(tables(newer).at("tm_lag"), ERROR);
  EXPECT_EQ(st().exception, 1);
}

}  // namespace
}  // namespace tessel
