// Nodes behind OpenSSH servers, with a shell script as the host: which node answers what, and that
// nothing remains however the run ends.
#include "lab/run/real_ssh.h"
#include "lab/base/error.h"
#include "lab/base/namespaces.h"
#include "lab/base/processes.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <set>
#include <sstream>
#include <thread>

#include "lab/faults/ssh_faults.h"
#include "support.h"

namespace {

namespace fs = std::filesystem;
using lab_test::outcome;
using lab_test::read_text;
using lab_test::run_shell;
using lab_test::write_text;

// Faults ----------------------------------------------------------------------------------------

TEST(ssh_faults, are_separated_from_the_others) {
  std::vector<std::string> faults{"dpa-mac", "node-down=192.0.0.6", "tool-empty=lagmgr_health",
                                  "node-closes=0/1/CPU0"};
  const auto taken = lab::take_ssh_faults(faults);
  EXPECT_EQ(faults, (std::vector<std::string>{"dpa-mac", "tool-empty=lagmgr_health"}));
  ASSERT_EQ(taken.size(), 2U);
  EXPECT_EQ(taken[0].name, "node-down");
  EXPECT_EQ(taken[0].answer, lab::node_answer::none);
  EXPECT_EQ(taken[0].node, "192.0.0.6");
  EXPECT_EQ(taken[1].answer, lab::node_answer::half);
}

TEST(ssh_faults, find_their_node_by_name_or_address) {
  const lab::capture c = lab_test::rendered_router("birch-small").c;
  const auto nodes = lab::nodes_behind_ssh(c, {{"node-down", lab::node_answer::none, "0/0/CPU0"},
                                               {"x", lab::node_answer::half, "192.0.0.7"}});
  ASSERT_EQ(nodes.size(), 4U);
  EXPECT_EQ(nodes[1].answer, lab::node_answer::whole);
  EXPECT_EQ(nodes[2].name, "0/0/CPU0");
  EXPECT_EQ(nodes[2].answer, lab::node_answer::none);
  EXPECT_EQ(nodes[3].answer, lab::node_answer::half);
}

TEST(ssh_faults, failure_is_one_line) {
  struct row {
    const char* why;
    const char* arguments;
    int status;
    const char* message;
  };
  const row rows[] = {
      {"no real ssh", "--fault node-down=0/0/CPU0", 64,
       "tessel-lab: run: fault node-down needs --real-ssh; see tessel-lab run --help\n"},
      {"no node named", "--real-ssh --fault node-refuses", 1,
       "tessel-lab: fault node-refuses needs a node: --fault node-refuses=NAME or =ADDRESS\n"},
      {"no such node", "--real-ssh --fault node-closes=0/9/CPU0", 1,
       "tessel-lab: fault node-closes=0/9/CPU0: birch-small has no such node\n"},
  };
  for (const row& r : rows) {
    const outcome refused =
        run_shell("TESSEL_LAB_ROUTERS=" LAB_ROUTERS " " LAB_PROGRAM " run birch-small " +
                  std::string{r.arguments});
    EXPECT_EQ(refused.status, r.status) << r.why;
    EXPECT_EQ(refused.err, r.message) << r.why;
  }
}

TEST(ssh_faults, are_listed) {
  const std::string faults = run_shell(LAB_PROGRAM " faults").out;
  for (const lab::ssh_fault& one : lab::ssh_faults())
    EXPECT_NE(faults.find("\n" + std::string{one.name} + " "), std::string::npos) << one.name;
}

TEST(ssh_nodes, need_ipv4_addresses) {
  lab::capture c;
  c.nodes = {{"../../etc", "0/0/CPU0"}};
  EXPECT_THROW(lab::nodes_behind_ssh(c, {}), lab::lab_error);
}

// Runs --------------------------------------------------------------------------------------------

// Namespaces that processes are in: links such as "net:[4026532541]".
using links = std::set<std::string>;

std::vector<pid_t> processes() {
  std::vector<pid_t> all;
  for (const auto& entry : fs::directory_iterator("/proc")) {
    const std::string name = entry.path().filename();
    if (name.find_first_not_of("0123456789") == std::string::npos) all.push_back(std::stoi(name));
  }
  return all;
}

// A process may end while its file is read; then there is no text.
std::string text_of(pid_t process, const char* file) {
  std::ifstream in(fmt::format("/proc/{}/{}", process, file));
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

pid_t parent_of(pid_t process) {
  const std::string stat = text_of(process, "stat");
  const std::size_t name_end = stat.rfind(") ");  // a name may contain blanks and brackets
  return name_end == std::string::npos ? 0 : std::stoi(stat.substr(name_end + 4));
}

links links_of(pid_t process) {
  links found;
  for (const char* kind : {"mnt", "net", "pid", "uts"}) {
    std::error_code gone;
    const fs::path link = fs::read_symlink(fmt::format("/proc/{}/ns/{}", process, kind), gone);
    if (!gone) found.insert(link.string());
  }
  return found;
}

bool descends_from(pid_t process, pid_t ancestor) {
  for (int depth = 0; process > 1 && depth < 100; ++depth) {
    process = parent_of(process);
    if (process == ancestor) return true;
  }
  return false;
}

// The namespaces of a process and its descendants, without our own.
links made_by(pid_t ancestor) {
  links made;
  for (const pid_t process : processes())
    if (descends_from(process, ancestor)) made.merge(links_of(process));
  for (const std::string& own : links_of(getpid())) made.erase(own);
  return made;
}

// The remains of a run: processes in its mount namespaces, each of which has the folder of its logs
// mounted, and processes that keep one of its namespaces open or mounted. A namespace number alone
// proves nothing: the number of a closed namespace is soon reused by another run.
std::set<std::string> left_of(const links& made, const std::string& folder) {
  std::set<std::string> left;
  for (const pid_t process : processes()) {
    const std::string mounts = text_of(process, "mountinfo");
    if (mounts.find(folder) != std::string::npos) left.insert(fmt::format("process {}", process));
    for (const std::string& one : made)
      if (mounts.find(one) != std::string::npos) left.insert(one + " mounted");
    std::error_code gone;
    for (fs::directory_iterator fd(fmt::format("/proc/{}/fd", process), gone), end;
         !gone && fd != end; fd.increment(gone)) {
      std::error_code closed;
      const std::string open = fs::read_symlink(fd->path(), closed).string();
      if (made.contains(open)) left.insert(fmt::format("{} open in {}", open, process));
    }
  }
  return left;
}

bool comes_true(const std::function<bool()>& condition) {
  const auto patience = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > patience) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return true;
}

std::set<std::string> names_in(const fs::path& folder) {
  std::set<std::string> names;
  std::error_code none;
  for (const auto& entry : fs::directory_iterator(folder, none))
    names.insert(entry.path().filename());
  return names;
}

class real_ssh_test : public testing::Test {
 protected:
  void SetUp() override {
    write_text(scratch_.path() / "library", "no library");
    const outcome probe = host("exit 0", "birch-small");
    if (probe.status != lab::missing_privileges) return;
    EXPECT_EQ(std::count(probe.err.begin(), probe.err.end(), '\n'), 1) << probe.err;
    if (std::getenv("CI") != nullptr) FAIL() << probe.err;
    GTEST_SKIP() << probe.err;
  }

  std::string command(const std::string& script, const std::string& arguments) {
    const fs::path file = scratch_.path() / "host.sh";
    write_text(file, "#!/bin/sh\nfetch() { ssh  -q -o 'StrictHostKeyChecking=no' \"$@\"; }\n" +
                         script + "\n");
    fs::permissions(file, fs::perms::owner_all);
    return "env TESSEL_LAB_ROUTERS=" LAB_ROUTERS " " LAB_PROGRAM " run --real-ssh --host " +
           file.string() + " --library " + (scratch_.path() / "library").string() + " --logs " +
           logs().string() + " " + arguments;
  }
  outcome host(const std::string& script, const std::string& arguments) {
    return run_shell(command(script, arguments));
  }
  fs::path logs() const { return scratch_.path() / "logs"; }

  std::set<std::string> left(const links& made) const {
    return left_of(made, scratch_.path().filename().string());
  }

  // Starts the lab beside the test; returns its process.
  pid_t start(const std::string& script, const std::string& more = {}) {
    const std::string line = "exec " + command(script, "birch-small " + more);
    return lab::start([&]() -> int {
      prctl(PR_SET_PDEATHSIG, SIGTERM);  // so that a failed test leaves nothing running
      lab::execute_program({"/bin/sh", "-c", line});
    });
  }

  static int status_of(pid_t lab) {
    int status = 0;
    lab::collect(lab, status);
    return lab::status_of(status);
  }

  // A host that runs until it is ended, with a login open on a node.
  pid_t start_long_run() {
    const pid_t lab = start(
        "fetch 192.0.0.6 'echo on the node; sleep 600' >/var/log/login & "
        "until [ -s /var/log/login ]; do sleep 0.02; done\n"
        "echo x >/var/log/started\nwait");
    EXPECT_TRUE(comes_true([&] { return fs::exists(logs() / "started"); }));
    return lab;
  }

  lab_test::scratch_folder scratch_;
};

TEST_F(real_ssh_test, every_node_answers_as_itself) {
  auto router = lab_test::rendered_router("birch-small");
  const outcome result = host(
      "fetch 192.0.0.6 /opt/nos/bin/fwd_object_show -t lagport -D >/var/log/six\n"
      "fetch 192.0.0.7 /opt/nos/bin/fwd_object_show -t lagport -D >/var/log/seven\n"
      "fetch 192.0.0.7 hostname\n"
      "command -v ssh",
      "birch-small");
  EXPECT_EQ(result.out, "0-1-CPU0\n/usr/bin/ssh\n");
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(read_text(logs() / "six"), router.on("0/0/CPU0", "fwd_object_show -t lagport -D"));
  EXPECT_EQ(read_text(logs() / "seven"), router.on("0/1/CPU0", "fwd_object_show -t lagport -D"));
}

TEST_F(real_ssh_test, serves_a_capture_folder_and_keeps_the_calls) {
  const std::string folder = (scratch_.path() / "capture").string();
  const std::string calls = (scratch_.path() / "calls").string();
  ASSERT_EQ(
      run_shell("TESSEL_LAB_ROUTERS=" LAB_ROUTERS " " LAB_PROGRAM " render elm-single " + folder)
          .status,
      0);
  const outcome result =
      host("sw_version_show >/dev/null; fetch 192.0.0.4 /opt/nos/bin/fwd_object_show -t l1port -D",
           folder + " --keep-calls " + calls);
  EXPECT_EQ(result.out, read_text(folder + "/192.0.0.4/fwd_object_show,-t,l1port,-D"));
  EXPECT_NE(result.out, "");
  EXPECT_EQ(read_text(calls), "sw_version_show\nfwd_object_show -t l1port -D\n");
}

// The answers that a script as the host gets are recorded unchanged, and replayed without ssh.
TEST_F(real_ssh_test, is_recorded) {
  const std::string cap = (scratch_.path() / "cap").string();
  const std::string script =
      "fetch 192.0.0.6 /opt/nos/bin/fwd_object_show -t lagport -D; echo $?\n"
      "fetch 192.0.0.7 /opt/nos/bin/fwd_object_show -t lagport -D; echo $?\n"
      "fetch 192.0.0.4 /opt/nos/bin/fwd_object_show -t lagport -D | wc -c; "
      "/opt/nos/bin/lagmgr_health";
  const outcome recorded = host(
      script, "birch-small --fault node-closes=0/0/CPU0 --fault node-refuses=0/1/CPU0 --record " +
                  cap + "/");
  auto router = lab_test::rendered_router("birch-small");
  const std::string whole = router.on("0/0/CPU0", "fwd_object_show -t lagport -D");
  EXPECT_EQ(recorded.out.find(whole.substr(0, whole.size() / 2) + "255\n255\n"), 0U)
      << recorded.out << recorded.err;
  EXPECT_THAT(read_text(cap + "/192.0.0.6/fwd_object_show,-t,lagport,-D;answers"),
              testing::StartsWith("255 1"));
  EXPECT_EQ(lab::read_manifest(cap).missing_tools, std::vector<std::string>{});
  std::string replay = command(script, cap);
  replay.erase(replay.find("--real-ssh "), sizeof("--real-ssh ") - 1);
  EXPECT_EQ(run_shell(replay).out, recorded.out);
}

TEST_F(real_ssh_test, recorded_audit_is_replayed_with_its_findings) {
  const fs::path beside = fs::path{LAB_PROGRAM}.parent_path();
  if (!fs::exists(beside / "tessel-host") || !fs::exists(beside / "libtessel.so")) {
    if (std::getenv("CI") != nullptr) FAIL() << "host and library are not built";
    GTEST_SKIP() << "host and library are not built";
  }
  const outcome compared =
      run_shell("export TESSEL_LAB_ROUTERS=" LAB_ROUTERS "; cd " + scratch_.path().string() +
                "\n"
                // Without times and numbers and in a fixed order, as threads wrote them
                // simultaneously.
                "lines_of() { (cd $1; for f in *.log; do sed \"s/^/$f: /\" $f; done) | sed -E "
                "'s/[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9:]{8},[0-9]{3}//g;"
                " s/((Inconsistency|Programming Error) )[0-9]+/\\1/' | LC_ALL=C sort; }\n"
                "audit() { mkdir $1; " LAB_PROGRAM
                " run $2 --logs $1 >$1/console.log; echo $1 $?; lines_of $1 >$1.lines; }\n"
                "router='birch-small --real-ssh --fault dpa-lag-id --fault chip-mtu'\n"
                "audit plain \"$router\"\n"
                "audit recorded \"$router --record cap\"\n"
                "audit replayed cap\n"
                "audit crossed 'cap --real-ssh'\n"
                "grep -c -e 'MTU verification failed' -e 'Lag ID is not consistent' "
                "plain/tessel_inconsistencies.log\n"
                "for logs in recorded replayed crossed; do diff plain.lines $logs.lines; done");
  EXPECT_EQ(compared.out, "plain 0\nrecorded 0\nreplayed 0\ncrossed 0\n2\n") << compared.err;
}

TEST_F(real_ssh_test, none_of_many_logins_is_refused) {
  const outcome result =
      host("for i in $(seq 40); do fetch 192.0.0.6 echo in & done; wait", "birch-small");
  EXPECT_EQ(std::count(result.out.begin(), result.out.end(), '\n'), 40);
}

TEST_F(real_ssh_test, only_the_nodes_can_be_reached) {
  const outcome result = host(
      "ip -4 route show default\n"
      "ip -o link | grep -vc -e ': lo:' -e ': node[0-3]@'\n"
      "fetch 192.0.0.99 true; echo $?",
      "birch-small");
  EXPECT_EQ(result.out, "0\n255\n");
}

TEST_F(real_ssh_test, node_that_refuses) {
  const outcome result =
      host("ssh -o StrictHostKeyChecking=no 192.0.0.6 true; echo $?\nfetch 192.0.0.7 echo well",
           "birch-small --fault node-refuses=0/0/CPU0");
  EXPECT_EQ(result.out, "255\nwell\n");
  EXPECT_THAT(result.err, testing::HasSubstr("Connection refused"));
}

TEST_F(real_ssh_test, node_that_is_down_costs_no_time) {
  const outcome result = host(
      "timeout 60 ssh -o StrictHostKeyChecking=no 192.0.0.7 true; echo $?\n"
      "fetch 192.0.0.6 echo well",
      "birch-small --fault node-down=192.0.0.7");
  EXPECT_EQ(result.out, "255\nwell\n");
  EXPECT_THAT(result.err, testing::HasSubstr("No route to host"));
}

TEST_F(real_ssh_test, node_that_closes_gives_half_of_every_output) {
  auto router = lab_test::rendered_router("birch-small");
  const outcome result = host(
      "for i in 1 2 3 4 5; do\n"
      "  fetch 192.0.0.6 /opt/nos/bin/fwd_object_show -t l2port -D >/var/log/half$i &\n"
      "done; wait\n"
      "fetch 192.0.0.6 /opt/nos/bin/board_api_probe >/dev/null; echo $?",
      "birch-small --fault node-closes=0/0/CPU0");
  EXPECT_EQ(result.out, "255\n");
  const std::string whole = router.on("0/0/CPU0", "fwd_object_show -t l2port -D");
  for (int i = 1; i <= 5; ++i)
    EXPECT_EQ(read_text(logs() / fmt::format("half{}", i)), whole.substr(0, whole.size() / 2));
}

// Remains -----------------------------------------------------------------------------------------

TEST_F(real_ssh_test, the_machines_own_files_are_neither_read_nor_written) {
  const std::string accounts = read_text("/etc/passwd");
  const auto ssh_settings = names_in("/etc/ssh");
  const auto runtime = names_in("/run/sshd");
  const std::string own_home = run_shell("getent passwd root | cut -d: -f6").out;
  const fs::path own_ssh = fs::path(own_home.substr(0, own_home.size() - 1)) / ".ssh";
  const auto own_keys = names_in(own_ssh);
  const bool had_ssh = fs::exists(own_ssh);
  const outcome result =
      host("fetch 192.0.0.6 true\necho ~root $HOME; ls /etc/ssh | wc -l; ls ~/.ssh", "birch-small");
  EXPECT_EQ(result.out,
            "/opt/nos/home /opt/nos/home\n0\nid_ed25519\nid_ed25519.log\nid_ed25519.pub\n"
            "known_hosts\n");
  EXPECT_EQ(read_text("/etc/passwd"), accounts);
  EXPECT_EQ(names_in("/etc/ssh"), ssh_settings);
  EXPECT_EQ(names_in("/run/sshd"), runtime);
  EXPECT_EQ(names_in(own_ssh), own_keys);
  EXPECT_EQ(fs::exists(own_ssh), had_ssh);
  EXPECT_FALSE(fs::exists("/opt/nos"));
}

TEST_F(real_ssh_test, nothing_remains_after_an_ordinary_end) {
  const auto interfaces = names_in("/sys/class/net");
  const pid_t lab = start(
      "fetch 192.0.0.6 true\necho x >/var/log/started\n"
      "n=0; until [ -e /var/log/go ] || [ $n -gt 3000 ]; do sleep 0.02; n=$((n+1)); done; exit 3");
  ASSERT_TRUE(comes_true([&] { return fs::exists(logs() / "started"); }));
  const links made = made_by(lab);
  // One process id namespace; a mount and a network namespace for the audit and each of four nodes.
  EXPECT_GE(made.size(), 1U + 5U + 5U + 4U);
  EXPECT_GE(left(made).size(), 6U) << "the first process, the host and four servers";
  write_text(logs() / "go", "");
  EXPECT_EQ(status_of(lab), 3);
  EXPECT_THAT(left(made), testing::IsEmpty());
  EXPECT_EQ(names_in("/sys/class/net"), interfaces);
}

TEST_F(real_ssh_test, nothing_remains_after_a_signal) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    fs::remove_all(logs());
    const pid_t lab = start_long_run();
    const links made = made_by(lab);
    EXPECT_GE(made.size(), 15U);
    kill(lab, signal);
    EXPECT_EQ(status_of(lab), 128 + signal);
    EXPECT_THAT(left(made), testing::IsEmpty());
  }
}

TEST_F(real_ssh_test, nothing_remains_after_an_interrupted_recording) {
  const auto beside = [&] {
    auto names = names_in(scratch_.path());
    for (const char* known : {"host.sh", "library", "logs"}) names.erase(known);
    return names;
  };
  for (const int signal : {SIGTERM, SIGHUP, SIGKILL}) {
    fs::remove_all(logs());
    const pid_t lab = start(
        "fetch 192.0.0.6 'echo on the node; sleep 600' >/var/log/login & "
        "until [ -s /var/log/login ]; do sleep 0.02; done\n"
        "echo x >/var/log/started\nwait",
        "--record " + (scratch_.path() / "cap").string());
    EXPECT_TRUE(comes_true([&] { return fs::exists(logs() / "started"); }));
    const links made = made_by(lab);
    EXPECT_EQ(beside().size(), 1U) << signal;
    kill(lab, signal);
    EXPECT_EQ(status_of(lab), 128 + signal);
    EXPECT_TRUE(comes_true([&] { return left(made).empty() && beside().empty(); })) << signal;
  }
}

TEST_F(real_ssh_test, nothing_remains_after_a_killed_lab) {
  const pid_t lab = start_long_run();
  const links made = made_by(lab);
  EXPECT_GE(made.size(), 15U);
  kill(lab, SIGKILL);
  EXPECT_EQ(status_of(lab), 137);
  EXPECT_TRUE(comes_true([&] { return left(made).empty(); }));
}

TEST_F(real_ssh_test, nothing_remains_after_a_lab_that_ends_while_it_prepares) {
  for (const int signal : {SIGTERM, SIGKILL}) {
    const pid_t lab = start("sleep 600");
    links made;
    // The namespaces of the audit and of a first node are ready.
    ASSERT_TRUE(comes_true([&] {
      made = made_by(lab);
      return made.size() > 3;
    }));
    kill(lab, signal);
    EXPECT_EQ(status_of(lab), 128 + signal);
    EXPECT_TRUE(comes_true([&] { return left(made).empty(); }));
  }
}

TEST_F(real_ssh_test, nothing_remains_after_a_killed_host) {
  const pid_t lab = start_long_run();
  const links made = made_by(lab);
  const auto all = processes();
  const auto host = std::find_if(all.begin(), all.end(), [&](pid_t one) {
    return parent_of(parent_of(one)) == lab &&
           text_of(one, "cmdline").find("/tessel-host") != std::string::npos;
  });
  ASSERT_NE(host, all.end());
  kill(*host, SIGKILL);
  EXPECT_EQ(status_of(lab), 137);
  EXPECT_THAT(left(made), testing::IsEmpty());
}

TEST_F(real_ssh_test, host_that_cannot_be_started_is_one_line) {
  const std::string line = command("exit 0", "birch-small");
  write_text(scratch_.path() / "host.sh", std::string("\0 no program\n", 13));
  const outcome result = run_shell(line);
  EXPECT_EQ(result.status, lab::cannot_prepare);
  EXPECT_EQ(result.err, "tessel-lab: /opt/nos/libexec/tessel-host: Exec format error\n");
}

// Requirements -----------------------------------------------------------------------------------

TEST_F(real_ssh_test, reports_what_is_missing) {
  struct row {
    const char* within;  // what hides it from the lab
    const char* message;
  };
  const row rows[] = {
      {"unshare --user ",
       "tessel-lab: --real-ssh needs root: its nodes are network namespaces whose ssh servers "
       "change users\n"},
      {"unshare --user --map-root-user ",
       "tessel-lab: --real-ssh needs a root that can become another user; in this user namespace "
       "it cannot\n"},
      {"unshare --mount sh -c 'mount --bind /dev/null /usr/sbin/sshd && exec \"$@\"' sh ",
       "tessel-lab: --real-ssh needs sshd, which is not there; install the Debian package "
       "openssh-server\n"},
  };
  for (const row& r : rows) {
    const outcome result = run_shell(r.within + command("echo ran", "birch-small"));
    EXPECT_EQ(result.status, lab::missing_privileges) << r.within;
    EXPECT_EQ(result.err, r.message) << r.within;
    EXPECT_EQ(result.out, "") << r.within;
  }
}

}  // namespace
