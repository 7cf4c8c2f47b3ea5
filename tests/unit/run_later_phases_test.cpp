// The driver from the consistency check on: the effect of a phase that cannot be carried out.
#include <unistd.h>

#include <string>
#include <vector>

#include "run/run_tessel.h"
#include "support/fake_router.h"

namespace tessel {
namespace {

using testing::Contains;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

// A line card with two chips of the older family and one bundle. The member's forwarding object
// puts it on one chip, the bundle's forwarding object on the other.
class later_phases_test : public router_test {
 protected:
  void SetUp() override {
    router_test::SetUp();
    tool_prints("sw_version_show", "Tarmac TR-BIRCH processor with 32 G of memory\n");
    tool_prints("plat_nodes_show",
                "Node Type Card State Band Software Address\n"
                "0/0/CPU0 LC TC-36H ACTIVE FINAL 7.3.2 192.0.0.9\n");
    tool("asic_shell_show", R"(case "$2" in
'show unit') printf 'Node ID: 0/0/CPU0\nUnit 0 chip BCM8868_A0\n R/S/I: 0/0/0\n R/S/I: 0/0/1\n' ;;
'diag lag') printf 'LAG ID: 1 members: 1\n  Member ID | Global port | Active\n'
  printf '          0 |  0x04000021 | Y\n' ;;
esac)");
    tool("node_id_convert", "echo 0x1000000");
    tool("ssh", R"(case "$7" in
lagport) echo 'lagport element 0 pending(cr/up/dl):0/0/0'
  echo '  @dpa_intf_t intf => 0x3000120'; echo '  uint16_t lag_id => 0x1'
  echo '  0:dpa_intf_t mifh => 0x60'; echo '  0:uint8_t mbr_npu_id => 0'
  echo '  0:uint16_t weight => 1'; echo '  0:uint16_t port_class_id => 16' ;;
l1port) printf 'l1port element 0\n  @dpa_intf_t intf => 0x60\n  uint8_t device => 1\n'
  printf '  char intf_name => HundredGigE0_0_0_1\n  uint32_t pp_port_id => 5\n'
  printf '  uint8_t core => 0\n  uint32_t mtu => 1514\n' ;;
l2port) printf 'l2port element 0\n  @dpa_intf_t intf => 0x3000120\n  rif_t rif => 0x21\n'
  printf '  lif_t lif => 0x00010077\n  mac_t bia_mac => 00:11:22:33:44:55\n' ;;
l2intf) printf 'l2intf element 0\n  @dpa_intf_t intf => 0x3000120\n  uint16_t vlan_domain => 16\n'
  printf '  gport_t gport_id_lif => 0x00010077\n  uint8_t l2_intf_type => 0\n' ;;
l3intf) printf 'l3intf element 0\n  @dpa_intf_t intf => 0x3000120\n'
  printf '  uint16_t l3a_intf_id => 0x21\n' ;;
esac)");
    tool_prints("iface_show", "HundredGigE0/0/0/1 is up, line protocol is up\n  MTU 1514 bytes\n");
    tool_prints("ifmgr_show", "");
    tool_prints("cfg_render",
                "Tarmac OS Configuration\n!\ninterface Bundle-Ether12\n!\n"
                "interface HundredGigE0/0/0/1\n bundle id 12 mode active\n!\nend\n");
    tool_prints("lagmgr_table_show",
                "Bundle-Ether12\nBundle interface handle BE12 (0x3000120)\n"
                "Local MAC address 0011.2233.4455\nOperational MTU 1514\n"
                "Member interface Hu0/0/0/1 (0x60)\n");
    tool_prints("lagmgr_agent_show",
                "\nBundle-Ether12\n\n\n0/0/CPU0 0x1 0x4c000001 0x1\nNode: 0/0/CPU0\n\n\n\n"
                "1 0 0x21 Hu0/0/0/1\n");
    tool_prints("lagmgr_health", "");
  }

  static std::string completed_run() {
    return output_of([] { EXPECT_THROW(run_tessel_with(4096), exit_request); });
  }
};

TEST_F(
    later_phases_test,
    a_false_programming_check_prints_not_done_and_the_run_still_reaches_the_others_and_the_table) {
  EXPECT_THAT(completed_run(), StartsWith("Dumping Data............................ Done\n"
                                          "Parsing Data............................ Done\n"
                                          "Bundle Consistency Check................ Done\n"
                                          "Bundle Programming Check................ Not Done\n"
                                          "Stale Entry Check....................... Done\n"
                                          "Bundle Health Check..................... Done\n"
                                          "\n\nOverall Results:\n"));
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION),
              Contains("no key '1': Bundle programming verification failed"));
  EXPECT_EQ(messages(LOG_FILE_BUNDLE_HEALTH), std::vector<std::string>{"   "});
}

TEST_F(later_phases_test,
       a_false_health_check_prints_not_done_and_the_run_still_reaches_the_table) {
  // The report goes through a capture without a name of its own. The last command before it that
  // has one puts a folder in its place.
  tool("cfg_render",
       "rm -f /tmp/tessel_0.log; mkdir /tmp/tessel_0.log\n"
       "printf 'Tarmac OS Configuration\n!\ninterface Bundle-Ether12\n!\n"
       "interface HundredGigE0/0/0/1\n bundle id 12 mode active\n!\nend\n'");
  EXPECT_THAT(completed_run(), HasSubstr("\nBundle Health Check..................... Not Done\n"
                                         "\n\nOverall Results:\n"));
  EXPECT_EQ(::rmdir("/tmp/tessel_0.log"), 0) << "nothing could be captured there";
}

TEST_F(later_phases_test,
       a_false_consistency_check_prints_not_done_and_the_table_and_skips_the_later_checks) {
  // Collection skips a node without an address before it reads whether the node takes part.
  st().nodeinfo.get().as_map().set("x", map_of({{"nodeip", "None"}}));
  const std::string output = completed_run();
  EXPECT_THAT(output, StartsWith("Dumping Data............................ Done\n"
                                 "Parsing Data............................ Done\n"
                                 "Bundle Consistency Check................ Not Done\n"
                                 "\n\nOverall Results:\n"));
  EXPECT_THAT(output, HasSubstr("Info/Error/Module Exception : 1 "));
  for (const char* later : {"Programming Check", "Stale Entry Check", "Bundle Health Check"}) {
    EXPECT_THAT(output, Not(HasSubstr(later)));
  }
  EXPECT_THAT(output, EndsWith(std::string(33, '*') + "Done" + std::string(33, '*') + "\n"));
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION), Contains("no key 'dump': Consistency check failed"));
  EXPECT_EQ(st().printed_results, 1);
}

TEST_F(later_phases_test, a_false_stale_entry_check_prints_not_done_and_the_run_goes_on) {
  // The inventory knows this node, but it takes no part, and the tables of its chip are missing.
  st().BCM.get().as_map().set("0/9/CPU0", map_of({{"0", make_map()}}));
  EXPECT_THAT(completed_run(), HasSubstr("\nStale Entry Check....................... Not Done\n"
                                         "Bundle Health Check..................... Done\n"
                                         "\n\nOverall Results:\n"));
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION),
              Contains(AllOf(HasSubstr("no key '"),
                             EndsWith(": Stale entry verification failed in 0/9/CPU0"))));
}

}  // namespace
}  // namespace tessel
