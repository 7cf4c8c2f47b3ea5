#include "run/run_tessel.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "base/findings.h"
#include "base/text.h"
#include "base/worker.h"
#include "support/fake_router.h"
#include "support/hung_disk.h"
#include "support/limited_memory.h"
#include "tessel/tessel.h"

namespace tessel {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

const std::string dumping = "Dumping Data............................";
const std::string parsing = "Parsing Data............................";
const std::string consistency = "Bundle Consistency Check................";
constexpr std::string_view no_router_type = "ERROR: Not able to get router type\n";

// One line card whose chip is not supported, and one bundle with one member.
constexpr std::string_view remote = R"(case "$7" in
lagport) echo 'lagport element 0 pending(cr/up/dl):0/0/0'
  echo '  @dpa_intf_t intf => 0x3000120'; echo '  uint16_t lag_id => 0x1'
  echo '  0:dpa_intf_t mifh => 0x60'; echo '  0:uint8_t mbr_npu_id => 0'
  echo '  0:uint16_t weight => 1'; echo '  0:uint16_t port_class_id => 16' ;;
l1port) echo 'l1port element 0'; echo '  @dpa_intf_t intf => 0x60'
  echo '  char intf_name => HundredGigE0_0_0_1'; echo '  uint32_t pp_port_id => 5'
  echo '  uint8_t device => 0'; echo '  uint8_t core => 0'; echo '  uint32_t mtu => 1514' ;;
l2port) printf 'l2port element 0\n  @dpa_intf_t intf => 0x3000120\n  rif_t rif => 0x21\n'
  printf '  lif_t lif => 0x00012345\n  mac_t bia_mac => 00:11:22:33:44:55\n' ;;
l2intf) printf 'l2intf element 0\n  @dpa_intf_t intf => 0x3000120\n  uint16_t vlan_domain => 16\n'
  printf '  gport_t gport_id_lif => 0x00012345\n  uint8_t l2_intf_type => 0\n' ;;
l3intf) printf 'l3intf element 0\n  @dpa_intf_t intf => 0x3000120\n'
  printf '  uint16_t l3a_intf_id => 0x21\n' ;;
esac)";

class run_tessel_test : public router_test {
 protected:
  void SetUp() override {
    router_test::SetUp();
    tool_prints("sw_version_show", "Tarmac TR-BIRCH processor with 32 G of memory\n");
    tool_prints("plat_nodes_show",
                "Node Type Card State Band Software Address\n"
                "0/0/CPU0 LC TC-36H ACTIVE FINAL 7.3.2 192.0.0.9\n");
    tool_prints("asic_shell_show", "Node ID: 0/0/CPU0\nUnit 0 chip BCM1234_A0\n R/S/I: 0/0/0\n");
    tool("node_id_convert", "echo 0x1000000");
    tool("ssh", remote);
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
                "0 0 0x21 Hu0/0/0/1\n");
    tool_prints("lagmgr_health", "");
  }
  // The operator's view of a run that ends with an exit request.
  static std::string completed_run() {
    return output_of([] { EXPECT_THROW(run_tessel_with(4096), exit_request); });
  }
  // The operator's view of a run that returns to its host.
  static std::string returned_run() {
    return output_of([] { EXPECT_EQ(run_tessel_with(4096), ERROR); });
  }
};

TEST_F(run_tessel_test, without_a_known_model_the_run_says_so_and_returns) {
  tool_prints("sw_version_show", "Tarmac TR-OAK () processor\n");
  EXPECT_EQ(returned_run(), no_router_type);
  EXPECT_EQ(st().router, invalid);
  EXPECT_FALSE(st().nodeinfo.get().as_map().empty()) << "the inventory was set up all the same";
  EXPECT_THAT(calls(), ElementsAre("sw_version_show", "asic_shell_show -c show unit -u all -n A"));
  EXPECT_TRUE(file_exists("/tmp/tessel_show_unit_all_A.log")) << "no exit handling";
  EXPECT_EQ(file_text(LOG_FILE_DEBUG), "") << "no snapshot";
  EXPECT_NE(st().dl_fd.get(), nullptr);
}

TEST_F(run_tessel_test, if_the_chips_fail_first_the_model_is_not_mentioned) {
  tool_prints("sw_version_show", "Tarmac TR-OAK () processor\n");
  tool_prints("asic_shell_show", "Node ID: 0/99/CPU0\nUnit 0 chip BCM8868_A0\n");
  EXPECT_EQ(returned_run(), "\nno key '0/99/CPU0': Not able to get ASIC information\n");
  EXPECT_EQ(st().exception, 1);
}

TEST_F(run_tessel_test, logs_that_cannot_be_opened_return_to_the_host) {
  std::filesystem::create_directory(LOG_FILE_DEBUG);
  EXPECT_EQ(returned_run(),
            "\ncannot open /var/log/tessel_debug.log: Is a directory: Log init failed\n");
  EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(run_tessel_test, channels_that_cannot_be_opened_end_the_process_with_status_0) {
  std::filesystem::create_directory(LOG_FILE_EXCEPTION);
  const std::string output = output_of([] {
    EXPECT_EQ(status_in_child([] {
                tessel_init();
                tessel_run(4096);
                return 99;
              }),
              0);
  });
  EXPECT_EQ(output, "Log ERROR: No space left on device/Not able to access file system\n");
  EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(run_tessel_test, an_inventory_failure_goes_to_the_exit_handling_with_no_title) {
  tool_prints("plat_nodes_show", "0/99/CPU0 LC x ACTIVE FINAL 7.3.2 192.0.0.9\n");
  const std::string output = completed_run();
  EXPECT_EQ(st().nodeinfo.get(), 0);
  EXPECT_THAT(output, StartsWith("\nTESSEL Stopped: Found 2 info/exceptions/errors\n\n"));
  EXPECT_THAT(output, Not(HasSubstr("Dumping Data")));
  EXPECT_THAT(file_text(LOG_FILE_DEBUG), HasSubstr("'Start of VM information entries...'\n0\n"));
}

TEST_F(run_tessel_test, a_false_collection_ends_the_run_behind_its_title) {
  tool("node_id_convert", "echo none");
  const std::string output = completed_run();
  EXPECT_THAT(output, StartsWith(dumping + " Not Done\n\nTESSEL Stopped: Found 2 info"));
  EXPECT_THAT(output, Not(HasSubstr("Overall Results")));
  EXPECT_THAT(output, Not(HasSubstr("Parsing Data")));
}

TEST_F(run_tessel_test, a_failure_counted_during_collection_ends_the_run_behind_the_parsing) {
  tool_prints("lagmgr_table_show", "");
  const std::string output = completed_run();
  EXPECT_THAT(output, StartsWith(dumping + " Done\n" + parsing + " Not Done\n" +
                                 "\nTESSEL Stopped: Found 2 info/exceptions/errors\n\n"));
  EXPECT_THAT(output, Not(HasSubstr("Overall Results")));
  EXPECT_EQ(st().tesselDb.as_map().size(), 2U) << "the parsing itself succeeded";
}

// The seventh column of the listing, where no blank can stand.
TEST_F(run_tessel_test, an_address_of_the_listing_never_becomes_a_command) {
  constexpr std::string_view marker = "/tmp/planted";
  for (const char* address :
       {"$(>/tmp/planted)", "`>/tmp/planted`", "1;>/tmp/planted;", "1>/tmp/planted",
        "1&>/tmp/planted&", "1|>/tmp/planted", "1||>/tmp/planted||", "-oProxyCommand=>/tmp/planted",
        "'", "\"$(>/tmp/planted)\"", "1\"", "1${IFS}2"}) {
    SCOPED_TRACE(address);
    SetUp();
    tool("ssh", "for word; do case $word in -oProxyCommand=*) eval \"${word#*=}\" ;; esac; done");
    tool_prints("plat_nodes_show", "0/0/CPU0 LC TC-36H ACTIVE FINAL 7.3.2 " + std::string(address) +
                                       "\n0/1/CPU0 LC TC-36H DOWN - 7.3.2 192.0.0.10\n");
    const std::string output = completed_run();
    EXPECT_FALSE(file_exists(marker));
    EXPECT_THAT(calls(), Not(Contains(StartsWith("ssh"))));
    EXPECT_THAT(output, HasSubstr("\nTESSEL Stopped: Found 13 info/exceptions/errors\n"));
    EXPECT_THAT(file_text(LOG_FILE_EXCEPTION), HasSubstr("the address of 0/0/CPU0 is "));
  }
}

TEST_F(run_tessel_test, a_router_without_bundles_ends_behind_the_parsing) {
  tool_prints("cfg_render", "Tarmac OS Configuration\n!\nend\n");
  EXPECT_THAT(completed_run(), StartsWith(dumping + " Done\n" + parsing + " Not Done\n" +
                                          "\nTESSEL Stopped: Found 2 info/exceptions/errors\n\n"));
}

TEST_F(run_tessel_test, a_parser_that_complains_behind_the_title_is_set_off_by_one_blank) {
  tool_prints("cfg_render", "nothing\n");
  EXPECT_THAT(completed_run(), StartsWith(dumping +
                                          " PARSE-ERROR: Not able to find the start of the running "
                                          "config\nDone\n" +
                                          parsing + " Not Done\n"));
}

TEST_F(run_tessel_test, a_completed_run_ends_with_the_table) {
  const std::string output = completed_run();
  EXPECT_THAT(output,
              StartsWith(dumping + " Done\n" + parsing + " Done\n" + consistency + " Done\n"));
  EXPECT_THAT(output, HasSubstr("\n\nOverall Results:\n\n\n"
                                "Inconsistencies             : 0 "));
  EXPECT_THAT(output, EndsWith(std::string(33, '*') + "Done" + std::string(33, '*') + "\n"));
  EXPECT_EQ(st().inconsistent, 0);
  EXPECT_EQ(st().programming_error, 0);
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION),
              Contains(StartsWith("INFO: Found unsupported ASIC BCM1234x.")));
}

TEST_F(run_tessel_test, findings_do_not_turn_a_phase_to_not_done) {
  tool_prints("lagmgr_agent_show",
              "\nBundle-Ether12\n\n\n0/0/CPU0 0x7 0x4c000001 0x1\nNode: 0/0/CPU0\n\n\n\n"
              "0 0 0x21 Hu0/0/0/1\n");
  const std::string output = completed_run();
  EXPECT_THAT(output, HasSubstr(consistency + " Done\n"));
  st().pid_list.join_all();
  EXPECT_GT(st().inconsistent, 0);
  EXPECT_THAT(messages(LOG_FILE_INCONSISTENT), Contains(StartsWith("Inconsistency 1")));
}

TEST_F(run_tessel_test, completed_runs_with_findings_and_without_look_the_same_to_the_host) {
  const auto status_of_run = [] {
    int status = -1;
    output_of([&] {
      status = status_in_child([] {
        tessel_init();
        tessel_run(4096);
        return 99;  // a completed run does not return
      });
    });
    return status;
  };
  EXPECT_EQ(status_of_run(), 0);
  tool_prints("lagmgr_agent_show",
              "\nBundle-Ether12\n\n\n0/0/CPU0 0x7 0x4c000001 0x1\nNode: 0/0/CPU0\n\n\n\n"
              "0 0 0x21 Hu0/0/0/1\n");
  EXPECT_EQ(status_of_run(), 0);
  EXPECT_THAT(messages(LOG_FILE_INCONSISTENT), Not(IsEmpty()));
}

// The end of the child whose host calls in again while the process ends, and what it complains.
std::pair<int, std::string> calling_in_again(void (*handler)()) {
  int status = -1;
  const std::string complaint = error_output_of([&] {
    output_of([&] {
      status = status_in_child([handler] {
        std::atexit(handler);
        tessel_init();
        tessel_run(4096);
        return 99;
      });
    });
  });
  return {status, complaint};
}

TEST_F(run_tessel_test, an_atexit_handler_that_calls_in_again_comes_back_at_once) {
  constexpr const char* complaint = "tessel: the process is ending, no audit starts any more\n";
  EXPECT_EQ(calling_in_again([] { ::_exit(tessel_run(4096) == TESSEL_ABORTED ? 7 : 98); }),
            std::pair(7, std::string(complaint)));
  const std::size_t of_one_run = calls().size();
  EXPECT_EQ(calling_in_again([] {
              tessel_finalize();
              tessel_init();
              ::_exit(run_tessel(4096) == TESSEL_ABORTED ? 7 : 98);
            }),
            std::pair(7, std::string(complaint)));
  EXPECT_EQ(calls().size(), 2 * of_one_run) << "no tool ran for the second audit";
}

TEST_F(run_tessel_test, a_worker_whose_disk_hangs_does_not_hold_the_process) {
  // The run goes on when the disk hangs.
  tool("lagmgr_health",
       "tries=0\nuntil [ -e /tmp/hangs ] || [ $tries -gt 3000 ]; do\n"
       "  tries=$((tries + 1))\n  sleep 0.02\ndone");
  const std::string output = output_of([] {
    EXPECT_EQ(status_in_child([] {
                tessel_init();
                start_worker([] {
                  while (!st().stale_fd.opened_once()) {
                    std::this_thread::sleep_for(std::chrono::milliseconds(1));
                  }
                  static hung_disk disk(LOG_FILE_INCONSISTENT);
                  std::thread([] {
                    disk.wait_for_a_writer();
                    write_file("/tmp/hangs", "");
                  }).detach();
                  inconsistency("Inconsistency {}: found late");
                });
                tessel_run(4096);
                return 99;
              }),
              0);
  });
  EXPECT_THAT(output, HasSubstr("Inconsistencies             : 1 "));
  EXPECT_THAT(output, EndsWith("*Done*********************************\n"));
  EXPECT_THAT(file_text(LOG_FILE_DEBUG), HasSubstr("'End of VM information entries...'"));
}

TEST_F(run_tessel_test, the_end_of_a_run_flushes_what_the_host_has_printed) {
  const std::string output = output_of([] {
    EXPECT_EQ(status_in_child([] {
                std::setvbuf(stdout, nullptr, _IOFBF, 1 << 16);
                std::fputs("the host's own line\n", stdout);
                tool("node_id_convert", "echo none");
                tessel_init();
                tessel_run(4096);
                return 99;
              }),
              0);
  });
  EXPECT_THAT(output, StartsWith("the host's own line\n" + dumping + " Not Done\n"));
}

TEST_F(run_tessel_test, a_failure_that_no_phase_absorbs_returns_minus_2_with_a_traceback) {
  // Only the preview at the end misses a log that has vanished, and it has no handler of its own.
  tool("ifmgr_show", "rm /var/log/tessel_exception.log");
  std::string output;
  const std::string complaint = error_output_of([&] {
    output = output_of([] {
      EXPECT_EQ(status_in_child([] {
                  tessel_init();
                  return tessel_run(4096) == TESSEL_ABORTED ? 7 : 99;
                }),
                7);
    });
  });
  EXPECT_THAT(output, EndsWith("\nLogs Preview:\n\n\n")) << "no closing line";
  EXPECT_THAT(complaint, StartsWith("Traceback (most recent call last):\n"));
  EXPECT_THAT(
      complaint,
      EndsWith("failure: cannot open /var/log/tessel_exception.log: No such file or directory\n"));
  EXPECT_TRUE(file_exists("/tmp/tessel_IM_PI.log")) << "no exit handling";
}

TEST_F(run_tessel_test, a_failure_behind_a_title_ends_its_line_first) {
  std::string output;
  const std::string complaint = error_output_of([&] {
    output = output_of([] {
      EXPECT_EQ(status_in_child([] {
                  tessel_init();
                  st().tesselDb = value();  // the parse stage reads its size outside of any handler
                  return tessel_run(4096) == TESSEL_ABORTED ? 7 : 99;
                }),
                7);
    });
  });
  EXPECT_EQ(output, dumping + " Done\n" + parsing + "\n");
  EXPECT_THAT(complaint, EndsWith("failure: a map expected, found nothing\n"));
}

TEST_F(run_tessel_test, a_failure_within_a_phases_own_handler_comes_out_with_a_traceback) {
  std::string output;
  const std::string complaint = error_output_of([&] {
    output = output_of([] {
      EXPECT_EQ(status_in_child([] {
                  tessel_init();
                  // The stale entry check is the first to read this, and its handler has no node to
                  // name.
                  st().BCM.set(ERROR);
                  return tessel_run(4096) == TESSEL_ABORTED ? 7 : 99;
                }),
                7);
    });
  });
  EXPECT_THAT(output, EndsWith("\nStale Entry Check.......................\n"))
      << "neither a word nor a table";
  EXPECT_THAT(complaint, StartsWith("Traceback (most recent call last):\n"));
  EXPECT_THAT(complaint, HasSubstr(", in check_stale_entries\n"));
  EXPECT_THAT(complaint, HasSubstr("\nfailure: no node to name: "));
}

// Replaces standard output with a device that accepts no byte.
void fill_standard_output(int) {
  const int full = ::open("/dev/full", O_WRONLY | O_CLOEXEC);
  ::dup2(full, STDOUT_FILENO);
  ::close(full);
}

TEST_F(run_tessel_test, a_word_that_cannot_be_printed_comes_out_with_a_traceback) {
  // Runs after the phase's title is printed and before its "Done".
  tool("ifmgr_show", "kill -USR1 $(cat /opt/nos/host)");
  std::string output;
  const std::string complaint = error_output_of([&] {
    output = output_of([] {
      EXPECT_EQ(status_in_child([] {
                  write_file("/opt/nos/host", std::to_string(::getpid()));
                  ::signal(SIGUSR1, fill_standard_output);
                  tessel_init();
                  return tessel_run(4096) == TESSEL_ABORTED ? 7 : 99;
                }),
                7);
    });
  });
  EXPECT_EQ(output, dumping);
  EXPECT_THAT(complaint, StartsWith("Traceback (most recent call last):\n"));
  EXPECT_THAT(complaint,
              EndsWith("failure: cannot write standard output: No space left on device\n"));
}

TEST_F(run_tessel_test, the_driver_alone_comes_back_with_the_abort_code) {
  output_of([] {
    EXPECT_EQ(status_in_child([] {
                tessel_init();
                return run_tessel(4096) == TESSEL_ABORTED ? 7 : 99;
              }),
              7);
  });
}

TEST_F(run_tessel_test, the_early_returns_come_out_of_the_entry_point) {
  tool_prints("sw_version_show", "");
  output_of([] {
    EXPECT_EQ(status_in_child([] {
                tessel_init();
                const bool stopped = tessel_run(4096) == TESSEL_STOPPED_EARLY;
                const bool had_state = m != nullptr;
                tessel_finalize();
                return stopped && had_state && m == nullptr ? 7 : 99;
              }),
              7);
  });
}

TEST_F(run_tessel_test, without_tessel_init_nothing_is_run) {
  const std::string complaint = error_output_of([] {
    EXPECT_EQ(status_in_child([] {
                tessel_finalize();
                return tessel_run(4096) == TESSEL_ABORTED ? 7 : 99;
              }),
              7);
  });
  EXPECT_EQ(complaint, "tessel: tessel_init has not been called\n");
  EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(run_tessel_test, a_textual_node_id_is_a_failure) {
  EXPECT_EQ(failure_of([] { run_tessel_with("4096"); }), "an integer is required");
  EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(run_tessel_test, the_node_id_is_kept_as_an_unsigned_number) {
  tool_prints("sw_version_show", "");
  output_of([] {
    EXPECT_EQ(status_in_child([] {
                tessel_init();
                tessel_run(-1);
                return st().my_node_id == std::int64_t{4294967295} && st().start_time > 0 ? 7 : 99;
              }),
              7);
  });
}

#if MEMORY_CAN_BE_LIMITED
// Leaves no block of memory that is large enough for a run state, but enough for an error message.
void use_up_memory() {
  constexpr std::size_t largest = 1024;
  static_assert(sizeof(run_state) > largest);
  std::vector<void*> for_words;
  for (std::size_t size = 16; size <= largest; size += 16) for_words.push_back(std::malloc(size));
  const rlimit none = {0, 0};
  ::setrlimit(RLIMIT_AS, &none);
  while (std::malloc(largest) != nullptr) {
  }
  for (void* each : for_words) std::free(each);
}

TEST_F(run_tessel_test, without_memory_for_the_state_the_process_ends_by_an_assertion) {
  const std::string complaint = error_output_of([] {
    EXPECT_EQ(status_in_child([] {
                const rlimit no_core = {0, 0};
                ::setrlimit(RLIMIT_CORE, &no_core);
                use_up_memory();
                tessel_init();
                return 99;
              }),
              128 + SIGABRT);
  });
  EXPECT_THAT(complaint, HasSubstr(": void tessel_init(): Assertion `0' failed.\n"));
}
#endif

}  // namespace
}  // namespace tessel
