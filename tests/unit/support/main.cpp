// The tests write where the audit does: /tmp, /var/log and /opt. So each test process runs in its
// own mount namespace, in which these folders are empty and in memory.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace {

bool is_forked = false;

constexpr int skipped = 77;  // the exit status that ctest takes for a skipped test

[[noreturn]] void missing(const std::string& what) {
  throw std::runtime_error(what + ": " + std::strerror(errno));
}

void write_map(const char* path, const std::string& content) {
  std::ofstream file(path);
  file << content << std::flush;
  if (!file) missing(std::string("cannot write ") + path);
}

// Starts an ordinary user's test again as root of a user namespace. That needs a new process: one
// that already runs threads, as a sanitizer's runtime does, cannot enter a user namespace.
int run_as_namespace_root(char** arguments) {
  const uid_t user = ::getuid();
  const gid_t group = ::getgid();
  const auto child =
      static_cast<pid_t>(::syscall(SYS_clone, CLONE_NEWUSER | SIGCHLD, nullptr, 0, 0, 0));
  if (child < 0) missing("cannot enter a user namespace");
  if (child == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    write_map("/proc/self/setgroups", "deny");
    write_map("/proc/self/uid_map", "0 " + std::to_string(user) + " 1");
    write_map("/proc/self/gid_map", "0 " + std::to_string(group) + " 1");
    ::execv("/proc/self/exe", arguments);
    missing("cannot start over");
  }
  int status = 0;
  while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

void mount_memory(const char* folder) {
  if (::mount("tmpfs", folder, "tmpfs", MS_NOSUID | MS_NODEV, "mode=0755") != 0) {
    missing(std::string("cannot mount a tmpfs on ") + folder);
  }
}

void make_folder(const char* folder) {
  if (::mkdir(folder, 0755) != 0) missing(std::string("cannot create ") + folder);
}

void enter_private_folders() {
  if (::unshare(CLONE_NEWNS) != 0) missing("cannot enter a mount namespace");
  // A command that reaches a real ssh by mistake must not reach any address.
  if (::unshare(CLONE_NEWNET) != 0) missing("cannot enter a network namespace");
  if (::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
    missing("cannot make the mounts private");
  }
  for (const char* folder : {"/tmp", "/var/log", "/opt"}) mount_memory(folder);
  for (const char* folder : {"/opt/nos", "/opt/nos/bin", "/opt/nos/path"}) make_folder(folder);
  const char* path = std::getenv("PATH");
  const std::string searched = std::string("/opt/nos/path:") + (path ? path : "/usr/bin:/bin");
  ::setenv("PATH", searched.c_str(), 1);
}

// The report may belong below one of the folders that are about to be covered; its own folder stays
// reachable through a descriptor.
void keep_report_reachable() {
  const char* wanted = std::getenv("GTEST_OUTPUT");
  constexpr std::string_view kind = "xml:";
  if (wanted == nullptr || !std::string_view(wanted).starts_with(kind)) return;
  const std::filesystem::path report = wanted + kind.size();
  if (!report.has_parent_path()) return;
  std::filesystem::create_directories(report.parent_path());
  const int folder = ::open(report.parent_path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
  if (folder < 0) missing("cannot open " + report.parent_path().string());
  const std::string reachable = std::string(kind) + "/proc/self/fd/" + std::to_string(folder) +
                                "/" + report.filename().string();
  // The variable itself was read before main.
  ::testing::GTEST_FLAG(output) = reachable;
}

}  // namespace

#ifdef TESSEL_UNDER_SANITIZER
// The leak checker asks this when a process ends. A test's forked child has none of its parent's
// threads, so what only they referred to would look lost.
extern "C" int __lsan_is_turned_off() {
  return is_forked ? 1 : 0;
}
#endif

int main(int count, char** arguments) {
  try {
    // Copied before gtest removes its own options from the list.
    const std::vector<char*> given(arguments, arguments + count + 1);
    if (::geteuid() == 0) keep_report_reachable();
    ::testing::InitGoogleMock(&count, arguments);
    if (::testing::GTEST_FLAG(list_tests)) return RUN_ALL_TESTS();
    if (::geteuid() != 0) return run_as_namespace_root(std::vector<char*>(given).data());
    enter_private_folders();
    ::pthread_atfork(nullptr, nullptr, [] { is_forked = true; });
  } catch (const std::exception& error) {
    std::fprintf(stderr, "unit_tests: missing privilege: %s\n", error.what());
    return std::getenv("CI") != nullptr ? 1 : skipped;
  }
  return RUN_ALL_TESTS();
}
