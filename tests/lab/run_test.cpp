// The command line and the namespace, with a shell script in the host's place.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "namespace_run.h"
#include "support.h"

namespace {

namespace fs = std::filesystem;
using lab_test::outcome;
using lab_test::read_text;
using lab_test::run_shell;
using lab_test::write_text;

outcome lab_program(const std::string& arguments) {
  return run_shell("TESSEL_LAB_ROUTERS=" LAB_ROUTERS " " LAB_PROGRAM " " + arguments);
}

TEST(CommandLine, ListsRoutersAndFaults) {
  const outcome routers = lab_program("list");
  EXPECT_EQ(routers.status, 0);
  EXPECT_NE(routers.out.find("\nbirch-small "), std::string::npos);
  EXPECT_NE(routers.out.find("\nelm-single "), std::string::npos);
  const outcome faults = lab_program("faults");
  EXPECT_EQ(faults.status, 0);
  EXPECT_NE(faults.out.find("dpa-lag-id"), std::string::npos);
  EXPECT_NE(faults.out.find("Lag ID is not consistent"), std::string::npos);
}

TEST(CommandLine, TellsOfItself) {
  EXPECT_NE(lab_program("--help").out.find("tessel-lab run"), std::string::npos);
  EXPECT_EQ(lab_program("--version").out.find("tessel-lab "), 0U);
}

TEST(CommandLine, RefusesALatencyBeforeItMakesAnything) {
  const lab_test::scratch_folder scratch;
  // Whatever file stands for host and library: none of them is started.
  const outcome refused = run_shell("TMPDIR=" + scratch.path().string() +
                                    " TESSEL_LAB_ROUTERS=" LAB_ROUTERS " " LAB_PROGRAM
                                    " run birch-small --host " LAB_PROGRAM " --library " LAB_PROGRAM
                                    " --latency ssh=5");
  EXPECT_EQ(refused.status, 64);
  EXPECT_EQ(refused.err,
            "tessel-lab: run: latency \"ssh=5\": a time needs its unit, as in 150ms or 0.15s\n");
  EXPECT_TRUE(fs::is_empty(scratch.path()));
}

TEST(CommandLine, FailureIsOneLine) {
  struct row {
    const char* why;
    const char* arguments;
    int status;
    const char* message;
  };
  const row rows[] = {
      {"nothing", "", 64, "tessel-lab: no command; see tessel-lab --help\n"},
      {"unknown command", "audit", 64,
       "tessel-lab: unknown command \"audit\"; see tessel-lab --help\n"},
      {"unknown option", "run birch-small --slow", 64,
       "tessel-lab: run: unknown option --slow; see tessel-lab --help\n"},
      {"an option of another command", "render birch-small out --logs x", 64,
       "tessel-lab: render: unknown option --logs; see tessel-lab --help\n"},
      {"an option without its value", "run birch-small --logs", 64,
       "tessel-lab: run: --logs needs a value\n"},
      {"no router", "run", 64, "tessel-lab: run: expected ROUTER or CAPTURE, got 0 operands\n"},
      {"no folder", "render birch-small", 64,
       "tessel-lab: render: expected ROUTER OUT, got 1 operands\n"},
      {"an unknown router", "run willow-huge", 1,
       "tessel-lab: there is no router \"willow-huge\" in " LAB_ROUTERS "\n"},
      {"an unknown fault", "run birch-small --fault rust", 1,
       "tessel-lab: there is no fault \"rust\"; `tessel-lab faults` lists them\n"},
      {"no such host", "run birch-small --host /nowhere", 1,
       "tessel-lab: /nowhere: there is no such file; name it with --host\n"},
      {"a folder that is no capture", "run /usr", 1,
       "tessel-lab: /usr: no capture, there is no manifest in it\n"},
  };
  for (const row& r : rows) {
    const outcome refused = lab_program(r.arguments);
    EXPECT_EQ(refused.status, r.status) << r.why;
    EXPECT_EQ(refused.err, r.message) << r.why;
    EXPECT_EQ(refused.out, "") << r.why;
  }
}

// A script runs as the host; the library is any file.
class Namespace : public testing::Test {
 protected:
  void SetUp() override {
    write_text(scratch_.path() / "library", "no library");
    const outcome probe = host("exit 0", "birch-small");
    if (probe.status != lab::missing_privileges) return;
    EXPECT_NE(probe.err, "") << "the missing privilege is named";
    if (std::getenv("CI") != nullptr) FAIL() << probe.err;
    GTEST_SKIP() << probe.err;
  }

  outcome host(const std::string& script, const std::string& arguments) {
    const fs::path file = scratch_.path() / "host.sh";
    write_text(file, "#!/bin/sh\n" + script + "\n");
    fs::permissions(file, fs::perms::owner_all);
    return lab_program("run --host " + file.string() + " --library " +
                       (scratch_.path() / "library").string() + " --logs " + logs().string() + " " +
                       arguments);
  }
  fs::path logs() const { return scratch_.path() / "logs"; }

  lab_test::scratch_folder scratch_;
};

TEST_F(Namespace, PassesTheHostsStatusOn) {
  EXPECT_EQ(host("exit 0", "birch-small").status, 0);
  EXPECT_EQ(host("exit 3", "birch-small").status, 3);
  EXPECT_EQ(host("kill -9 $$", "birch-small").status, 137);
}

TEST_F(Namespace, TellsTheHostItsLibraryAndNodeId) {
  const outcome told = host("echo \"$@\"; cat $2", "birch-small");
  EXPECT_EQ(told.out, "--library /opt/nos/lib/libtessel.so --node-id 4096\nno library");
  EXPECT_EQ(host("echo \"$@\"", "birch-small -- --node-id 7 more").out,
            "--library /opt/nos/lib/libtessel.so --node-id 7 more\n");
  EXPECT_EQ(host("echo \"$@\"", "birch-small -- --library=x").out, "--node-id 4096 --library=x\n");
}

TEST_F(Namespace, ToolsAnswerThere) {
  const outcome told = host(
      "/opt/nos/bin/sw_version_show | grep -c processor\n"
      "node_id_convert -I 0/1/CPU0\n"
      "ssh  -q -o 'StrictHostKeyChecking=no' 192.0.0.7 /opt/nos/bin/fwd_object_show -t lagport -D"
      " | grep -c element\n"
      "command -v ssh",
      "birch-small");
  EXPECT_EQ(told.out, "1\n0x1000001\n13\n/opt/nos/bin/ssh\n");
}

TEST_F(Namespace, LeavesTheLogsBehindAndNothingElse) {
  write_text("/tmp/lab-test-mark", "kept");
  const outcome told = host(
      "echo finding >/var/log/tessel_exception.log\n"
      "echo capture >/tmp/tessel_0.log\n"
      "rm -f /tmp/*; rm -f /opt/nos/bin/ssh\n"
      "ls /tmp | wc -l",
      "birch-small");
  EXPECT_EQ(told.out, "0\n");
  EXPECT_EQ(read_text(logs() / "tessel_exception.log"), "finding\n");
  EXPECT_EQ(read_text("/tmp/lab-test-mark"), "kept");
  EXPECT_FALSE(fs::exists("/tmp/tessel_0.log"));
  EXPECT_FALSE(fs::exists("/var/log/tessel_exception.log"));
  EXPECT_FALSE(fs::exists("/opt/nos"));
  fs::remove("/tmp/lab-test-mark");
}

TEST_F(Namespace, KeepsTheCalls) {
  const fs::path calls = scratch_.path() / "calls";
  host("plat_nodes_show -v >/dev/null; lagmgr_health >/dev/null",
       "birch-small --keep-calls " + calls.string());
  EXPECT_EQ(read_text(calls), "plat_nodes_show -v\nlagmgr_health\n");
}

TEST_F(Namespace, RunsACaptureFolder) {
  const fs::path folder = scratch_.path() / "capture";
  ASSERT_EQ(lab_program("render aspen-standby " + folder.string()).status, 0);
  EXPECT_EQ(host("/opt/nos/bin/sw_version_show", folder.string()).out,
            read_text(folder / "local" / "sw_version_show"));
}

TEST_F(Namespace, MissingToolIsNotThere) {
  const outcome told =
      host("command -v lagmgr_agent_show || echo none", "birch-small --fault tool-missing");
  EXPECT_EQ(told.out, "none\n");
  const fs::path folder = scratch_.path() / "capture";
  ASSERT_EQ(lab_program("render birch-small " + folder.string() + " --fault tool-missing").status,
            0);
  EXPECT_EQ(host("command -v lagmgr_agent_show || echo none", folder.string()).out, "none\n");
}

TEST_F(Namespace, CaptureFileLogAndSizeAreDenied) {
  const outcome told = host(
      "test -d /tmp/tessel_BM_PI.log && echo folder\n"
      "echo x 2>/dev/null >/var/log/tessel_debug.log || echo no room\n"
      "head -c 9000 /dev/zero >/tmp/large; stat -c %s /tmp/large",
      "birch-small --fault capture-blocked=BM_PI --fault log-full=debug --fault file-limit=7000");
  EXPECT_EQ(told.out, "folder\nno room\n7000\n");
  EXPECT_EQ(read_text(logs() / "tessel_debug.log"), "");
}

TEST_F(Namespace, SignalEndsTheHostAndItsTools) {
  const fs::path script = scratch_.path() / "host.sh";
  write_text(script,
             "#!/bin/sh\necho $$ >/var/log/host\nsleep 600 & echo $! >/var/log/tool\nwait\n");
  fs::permissions(script, fs::perms::owner_all);
  const std::string log = logs().string();
  const outcome ended = run_shell(
      "export TESSEL_LAB_ROUTERS=" LAB_ROUTERS "\n" LAB_PROGRAM " run birch-small --host " +
      script.string() + " --library " + (scratch_.path() / "library").string() + " --logs " + log +
      " &\nlab=$!\n"
      "n=0; until [ -s " +
      log +
      "/tool ] || [ $n -gt 500 ]; do sleep 0.02; n=$((n+1)); done\n"
      "kill -TERM $lab; wait $lab; echo status $?\n"
      "for f in host tool; do\n"
      "  n=0; while kill -0 $(cat " +
      log +
      "/$f) 2>/dev/null && [ $n -lt 100 ]; do\n"
      "    sleep 0.02; n=$((n+1)); done\n"
      "  kill -0 $(cat " +
      log +
      "/$f) 2>/dev/null && echo $f still runs\n"
      "done; true");
  EXPECT_EQ(ended.out, "status 143\n");
}

TEST_F(Namespace, LogsGoToAFolderOfTheirOwnUnlessNamed) {
  const fs::path script = scratch_.path() / "host.sh";
  write_text(script, "#!/bin/sh\necho x >/var/log/mark\n");
  fs::permissions(script, fs::perms::owner_all);
  const outcome told =
      run_shell("TMPDIR=" + scratch_.path().string() +
                " TESSEL_LAB_ROUTERS=" LAB_ROUTERS " " LAB_PROGRAM " run birch-small --host " +
                script.string() + " --library " + (scratch_.path() / "library").string());
  EXPECT_EQ(told.status, 0);
  const std::string head = "tessel-lab: the logs are in ";
  ASSERT_EQ(told.err.find(head), 0U) << told.err;
  const fs::path folder = told.err.substr(head.size(), told.err.size() - head.size() - 1);
  EXPECT_EQ(read_text(folder / "mark"), "x\n");
}

}  // namespace
