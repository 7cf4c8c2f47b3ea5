#include "lab/base/child.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "lab/base/mounts.h"

namespace lab {
namespace {

void write_setting(const char* file, const std::string& text) {
  const int fd = open(file, O_WRONLY | O_CLOEXEC);
  if (fd < 0) throw no_privileges{fmt::format("{}: {}", file, std::strerror(errno))};
  const ssize_t written = write(fd, text.data(), text.size());
  const int error = errno;
  close(fd);
  if (written != static_cast<ssize_t>(text.size()))
    throw no_privileges{fmt::format("{}: {}", file, std::strerror(error))};
}

}  // namespace

bool enter_namespace(int others) {
  const uid_t user = geteuid();
  const gid_t group = getegid();
  const bool as_root = user == 0 && unshare(CLONE_NEWNS | others) == 0;
  if (!as_root) {
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS | others) != 0)
      throw no_privileges{
          fmt::format("no mount namespace: unshare: {}; run as root or allow user namespaces",
                      std::strerror(errno))};
    write_setting("/proc/self/setgroups", "deny");
    write_setting("/proc/self/uid_map", fmt::format("{} {} 1", user, user));
    write_setting("/proc/self/gid_map", fmt::format("{} {} 1", group, group));
  }
  mount_or_fail("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr);
  return as_root;
}

void insist_on_namespace() {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) fail("pipe");
  const pid_t child = fork();
  if (child < 0) fail("fork");
  if (child == 0) {
    try {
      enter_namespace(0);
    } catch (const no_privileges& missing) {
      _exit(write(ends[1], missing.what.data(), missing.what.size()) < 0 ? EXIT_FAILURE
                                                                         : EXIT_SUCCESS);
    } catch (const std::exception&) {
      _exit(EXIT_FAILURE);  // the run itself tells of it
    }
    _exit(EXIT_SUCCESS);
  }
  close(ends[1]);
  std::array<char, 1024> text{};
  ssize_t got = 0;
  do {
    got = read(ends[0], text.data(), text.size());
  } while (got < 0 && errno == EINTR);
  close(ends[0]);
  while (waitpid(child, nullptr, 0) < 0 && errno == EINTR) continue;
  if (got > 0) throw no_privileges{std::string(text.data(), static_cast<std::size_t>(got))};
}

bool names_option(const std::vector<std::string>& arguments, const std::string& option) {
  return std::any_of(arguments.begin(), arguments.end(), [&](const std::string& argument) {
    return argument == option || argument.starts_with(option + "=");
  });
}

void execute_program(std::vector<std::string> words) {
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  execv(arguments.front(), arguments.data());
  fail(words.front());
}

sigset_t awaited_signals() {
  sigset_t set;
  sigemptyset(&set);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGCHLD}) sigaddset(&set, signal);
  return set;
}

int status_of(int wait_status) {
  constexpr int signal_base = 128;
  return WIFSIGNALED(wait_status) ? signal_base + WTERMSIG(wait_status) : WEXITSTATUS(wait_status);
}

int wait_for_child(pid_t child, const sigset_t& awaited, int& passed_on) {
  constexpr timespec patience{5, 0};
  passed_on = 0;
  for (;;) {
    int wait_status = 0;
    const pid_t ended = waitpid(child, &wait_status, WNOHANG);
    if (ended == child) {
      kill(-child, SIGKILL);  // tools that the host left behind
      return status_of(wait_status);
    }
    if (ended < 0 && errno != EINTR) fail("waiting for the host");
    const int signal = passed_on != 0 ? sigtimedwait(&awaited, nullptr, &patience)
                                      : sigwaitinfo(&awaited, nullptr);
    if (signal < 0 && errno == EAGAIN) kill(-child, SIGKILL);
    if (signal <= 0 || signal == SIGCHLD) continue;
    kill(-child, signal);
    if (passed_on == 0) passed_on = signal;
  }
}

}  // namespace lab
