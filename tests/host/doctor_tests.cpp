// Tests of what the doctor reads, and of the programs that it runs.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "audit_files.h"
#include "doctor.h"
#include "doctor_beside.h"
#include "platform.h"
#include "programs.h"

namespace {

using namespace tessel_host;
namespace fs = std::filesystem;

std::string content_of(const fs::path& file) {
  std::ifstream in(file);
  EXPECT_TRUE(in) << file;
  return {std::istreambuf_iterator<char>(in), {}};
}

std::string library_sources() {
  std::string all;
  for (const auto& entry : fs::recursive_directory_iterator(PROJECT_SOURCES "/src"))
    if (entry.path().extension() == ".cpp" || entry.path().extension() == ".h")
      all += content_of(entry.path());
  return all;
}

// The first group of each match.
std::vector<std::string> found_in(const std::string& text, const std::string& form) {
  std::vector<std::string> found;
  const std::regex pattern(form);
  for (std::sregex_iterator at(text.begin(), text.end(), pattern), end; at != end; ++at)
    found.push_back((*at)[1]);
  return found;
}

// The host shares no source with the library, so its lists may grow apart.
TEST(platform, has_the_models_of_the_library_in_their_order) {
  const std::string source = content_of(PROJECT_SOURCES "/src/platform/router_type.cpp");
  const std::size_t begin = source.find("models = {{");
  const std::string table = source.substr(begin, source.find("}};", begin) - begin);
  std::vector<std::string> names;
  names.reserve(std::size(router_models));
  for (const router_model& model : router_models) names.emplace_back(model.name);
  EXPECT_EQ(found_in(table, R"rx(\{"([^"]+)", \w+\})rx"), names);
  const std::string inventory = content_of(PROJECT_SOURCES "/src/platform/node_inventory.cpp");
  EXPECT_NE(inventory.find("\"" + std::string(address_of_single_node) + "\""), std::string::npos);
  EXPECT_NE(inventory.find("st().router == cedarl || st().router == elm || st().router == gorse"),
            std::string::npos);
  for (const router_model& model : router_models) {
    const auto type = found_in(
        table, "\\{\"" +
                   std::regex_replace(std::string(model.name), std::regex(R"([()])"), R"(\$&)") +
                   "\", (\\w+)\\}");
    ASSERT_EQ(type.size(), 1U) << model.name;
    EXPECT_EQ(std::set<std::string>({"cedarl", "elm", "gorse"}).contains(type[0]),
              model.is_single_node)
        << model.name;
  }
}

TEST(platform, has_the_tools_of_the_library_and_no_others) {
  const std::string sources = library_sources();
  const auto places = found_in(sources, "/opt/nos/bin/([a-z_]+)");
  const std::set<std::string> in_folder(places.begin(), places.end());
  std::set<std::string> expected;
  for (const platform_tool& tool : platform_tools) {
    if (tool.place != tool_place::search_path) expected.emplace(tool.name);
    const bool is_called =
        std::regex_search(sources, std::regex("[\"( /]" + std::string(tool.name) + "[ \"]"));
    EXPECT_TRUE(is_called) << tool.name;
  }
  EXPECT_EQ(in_folder, expected);
  // The simulated router has every tool that an audit calls.
  const auto simulated =
      found_in(content_of(PROJECT_SOURCES "/lab/tool/tool_names.cpp"), R"rx("([a-z_]+)"[,}])rx");
  std::vector<std::string> names;
  names.reserve(std::size(platform_tools));
  for (const platform_tool& tool : platform_tools) names.emplace_back(tool.name);
  EXPECT_EQ(simulated, names);
}

TEST(audit_files, have_the_names_of_the_library) {
  const auto named = found_in(library_sources(), R"rx((tessel_[a-z_]+\.log))rx");
  std::set<std::string> names(named.begin(), named.end());
  std::set<std::string> expected(log_names.begin(), log_names.end());
  EXPECT_EQ(names, expected);
  EXPECT_TRUE(expected.contains(fs::path(debug_log).filename()));
  EXPECT_TRUE(expected.contains(fs::path(exception_log).filename()));
}

// In the child: no memory becomes writable and executable.
void refuse_compiled_code() {
  constexpr unsigned both = PROT_WRITE | PROT_EXEC;
  std::array<sock_filter, 7> rules = {{
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_mmap, 0, 3),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args[2])),
      BPF_STMT(BPF_ALU | BPF_AND | BPF_K, both),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, both, 1, 0),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM),
  }};
  const sock_fprog program{static_cast<unsigned short>(rules.size()), rules.data()};
  if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
      ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0)
    ::_exit(126);
}

TEST(doctor, warns_if_patterns_cannot_be_compiled) {
  std::array<int, 2> ends{};
  ASSERT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
  const pid_t child = ::fork();
  if (child == 0) {
    ::dup2(ends[1], STDOUT_FILENO);
    refuse_compiled_code();
    ::execl(TESSEL_HOST, "tessel-host", "doctor", nullptr);
    ::_exit(127);
  }
  ::close(ends[1]);
  std::string text;
  std::array<char, 4096> block{};
  for (ssize_t count = 0; (count = ::read(ends[0], block.data(), block.size())) > 0;)
    text.append(block.data(), static_cast<std::size_t>(count));
  ::close(ends[0]);
  int status = 0;
  ::waitpid(child, &status, 0);
  EXPECT_EQ(WIFEXITED(status) ? WEXITSTATUS(status) : -1, 2) << "this is no router";
  EXPECT_NE(text.find("warn patterns: the system allows no compiled ones; allow this program "
                      "writable and executable memory, or let the audit take longer\n"),
            std::string::npos)
      << text;
}

TEST(model_in, looks_only_before_the_word_processor_in_its_first_line) {
  EXPECT_EQ(model_in("x\nmade of TR-BIRCH (x) processor with\n"), "TR-BIRCH");
  EXPECT_EQ(model_in("TRCEDARX processor"), "TRCEDARX");
  EXPECT_EQ(model_in("TRCEDAR processor"), "TRCEDAR");
  EXPECT_EQ(model_in("TR-CEDAR () processor"), "TR-CEDAR ()");
  EXPECT_EQ(model_in("TR-OAK processor of TR-BIRCH\nTR-BIRCH processor\n"), "");
  EXPECT_EQ(model_in("TR-BIRCH\n"), "");
  EXPECT_EQ(model_in("processor\nTR-ELM1 processor"), "TR-ELM1") << "nothing is before the first";
  EXPECT_EQ(model_in(""), "");
}

TEST(nodes_in, takes_those_that_the_audit_takes) {
  const std::string listing =
      "Node name        Type  Card           State        Band   Software  Address        Uptime\n"
      "---------------------------------------------------------------------------------------\n"
      "0/RP0/CPU0       RP    TC-RP-E        ACTIVE       FINAL  7.3.2     192.0.0.4      12w3d\n"
      "0/RP1/CPU0       RP    TC-RP-E        STANDBY      FINAL  7.3.2     192.0.0.5      12w3d\n"
      "0/0/CPU0         LC    TC-LC-24H      ACTIVE       EARLY  7.3.2     192.0.0.6      12w3d\n"
      "0/FT0            FT    TC-FAN         OPERATIONAL  N/A    N/A       N/A            12w3d\n"
      "0/1/CPU0         LC    ACTIVE\n";
  const auto birch = nodes_in(listing, "TR-BIRCH");
  ASSERT_EQ(birch.size(), 1U);
  EXPECT_EQ(birch[0].name, "0/RP0/CPU0");
  EXPECT_EQ(birch[0].address, "192.0.0.4");
  const auto aspen = nodes_in(listing, "TR-ASPEN");
  ASSERT_EQ(aspen.size(), 2U);
  EXPECT_EQ(aspen[1].address, "192.0.0.5");
}

TEST(run_programs, runs_all_at_once_and_keeps_what_each_prints) {
  const auto began = std::chrono::steady_clock::now();
  const auto results =
      run_programs({{"sh", "-c", "echo out; echo err >&2; sleep 0.2"},
                    {"/bin/sh", "-c", "sleep 0.2; printf '\\n\\033x\\r\\ny\\n' >&2; exit 3"},
                    {"no-such-program"},
                    {"sh", "-c", "sleep 60"},
                    {"sh", "-c", "kill -TERM $$"},
                    {"cat"}},
                   std::chrono::seconds(4));
  EXPECT_LT(std::chrono::steady_clock::now() - began, std::chrono::seconds(30));
  ASSERT_EQ(results.size(), 6U);
  EXPECT_TRUE(results[0].is_good());
  EXPECT_EQ(results[0].out, "out\n");
  EXPECT_EQ(results[0].err, "err\n");
  EXPECT_GE(results[0].seconds, 0.2);
  EXPECT_FALSE(results[1].is_good());
  EXPECT_EQ(results[1].complaint(), "status 3, \\x1bx");
  EXPECT_EQ(results[2].complaint(), "it cannot be started");
  EXPECT_EQ(results[3].complaint(), "no answer after 4 s");
  EXPECT_EQ(results[4].complaint(), "signal 15");
  EXPECT_TRUE(results[5].is_good()) << "standard input is empty";
}

// Without a router it is done at once.
// The numbers of closed streams go to the files of the outputs.
TEST(run_programs, gives_each_its_streams_though_those_of_the_host_are_closed) {
  const pid_t child = ::fork();
  if (child == 0) {
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) ::close(stream);
    const auto results = run_programs({{"sh", "-c", "cat; echo out; echo err >&2"}, {"/missing"}},
                                      std::chrono::seconds(20));
    const bool is_right = results[0].out == "out\n" && results[0].err == "err\n" &&
                          results[0].is_good() && !results[1].is_started;
    ::_exit(is_right ? 7 : 1);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 7) << status;
}

TEST(doctor_beside, says_what_the_doctor_says) {
  doctor_beside doctor;
  const std::string lines = doctor.lines();
  EXPECT_TRUE(std::regex_search(lines, std::regex("^(ok  |fail) machine: "))) << lines;
  EXPECT_NE(lines.find("patterns: "), lines.npos) << lines;
  EXPECT_EQ(lines.find("audits: "), lines.npos) << "that one is the host's own";
  EXPECT_EQ(doctor.lines(), lines);
}

TEST(doctor_beside, ends_the_doctor) {
  const auto children = [] {
    std::ifstream in("/proc/self/task/" + std::to_string(::getpid()) + "/children");
    return std::string(std::istreambuf_iterator<char>(in), {});
  };
  const std::string before = children();
  {
    const doctor_beside doctor;
    EXPECT_NE(children(), before);
  }
  for (int tries = 0; tries < 6000 && children() != before; ++tries) ::usleep(10'000);
  EXPECT_EQ(children(), before);
}

TEST(doctor_beside, is_hurried_by_no_signal_that_has_no_effect) {
  sigset_t hangup;
  sigset_t before;
  ::sigemptyset(&hangup);
  ::sigaddset(&hangup, SIGHUP);
  ::signal(SIGHUP, SIG_IGN);
  ::sigprocmask(SIG_BLOCK, &hangup, &before);
  std::string lines;
  {
    ::raise(SIGHUP);
    doctor_beside doctor;
    lines = doctor.lines();
  }
  ::sigprocmask(SIG_SETMASK, &before, nullptr);
  ::signal(SIGHUP, SIG_DFL);
  EXPECT_NE(lines.find("patterns: "), lines.npos) << lines;
  EXPECT_EQ(lines.find("fail doctor"), lines.npos) << lines;
}

}  // namespace
