#include "audit_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string_view>
#include <system_error>
#include <thread>

#include "audit_files.h"
#include "command_line/one_line.h"
#include "standard_error.h"

namespace tessel_host {

namespace {

int open_folder() {
  return ::open(log_folder, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
}

bool is_locked_by(int descriptor, int operation) {
  int result = -1;
  do {
    result = ::flock(descriptor, operation);
  } while (result != 0 && errno == EINTR);
  return result == 0;
}

// As in /proc/locks: 08:02:131073.
std::string place_of(int descriptor) {
  struct stat state {};
  if (::fstat(descriptor, &state) != 0) return {};
  char text[64];
  std::snprintf(text, sizeof text, "%02x:%02x:%llu", major(state.st_dev), minor(state.st_dev),
                static_cast<unsigned long long>(state.st_ino));
  return text;
}

// "1: FLOCK  ADVISORY  WRITE 4711 08:02:131073 0 EOF"; who waits for a lock has "->" before FLOCK.
long holder_of(const std::string& place) {
  std::ifstream locks("/proc/locks");
  for (std::string line; std::getline(locks, line);) {
    std::istringstream words(line);
    std::string number;
    std::string kind;
    std::string ignored;
    std::string where;
    long process = 0;
    words >> number >> kind >> ignored >> ignored >> process >> where;
    if (kind == "FLOCK" && where == place && process > 0) return process;
  }
  return 0;
}

std::string first_line_of(const std::string& file) {
  std::ifstream in(file);
  std::string line;
  std::getline(in, line);
  return line;
}

// Both names of a process must differ from that of the host: a debugger or a shell may have changed
// the one, a package that was replaced the other. A process that has ended, or that is hidden, is
// no stranger.
std::string name_of_stranger(long process) {
  constexpr std::string_view host = "tessel-host";
  const std::string folder = "/proc/" + std::to_string(process);
  const std::string name = first_line_of(folder + "/comm");
  std::error_code unseen;
  const auto program = std::filesystem::read_symlink(folder + "/exe", unseen).filename().string();
  const bool is_host = name.empty() || name == host || program == host ||
                       program == std::string(host) + " (deleted)";
  return is_host ? std::string() : command_line::one_line(name);
}

lock_holder find_holder(int descriptor) {
  lock_holder found;
  found.process = holder_of(place_of(descriptor));
  if (found.process > 0) found.stranger = name_of_stranger(found.process);
  return found;
}

std::string named(const lock_holder& holder) {
  return holder.process > 0 ? " (process " + std::to_string(holder.process) + ")" : "";
}

std::string describe_refusal(const lock_holder& holder) {
  if (!holder.stranger.empty())
    return describe_stranger(holder) + "; end it, or start this one with --wait to run it when " +
           "the lock is free";
  return "another audit is running" + named(holder) +
         "; start this one with --wait to run it afterwards";
}

std::string describe_wait(const lock_holder& holder) {
  if (!holder.stranger.empty()) return "waiting for the lock: " + describe_stranger(holder);
  return "waiting for the end of another audit" + named(holder);
}

std::string describe_lost_wait(const lock_holder& holder, std::chrono::seconds asked) {
  const std::string head =
      "no audit was begun within " + std::to_string(asked.count()) + " s (--deadline), because ";
  if (!holder.stranger.empty()) return head + describe_stranger(holder) + "; end it";
  return head + "another audit" + named(holder) +
         " had not ended; run this one later, or give it more time";
}

// The system has no limit for the time in which a process waits for a lock.
bool is_locked_before(int descriptor, std::chrono::steady_clock::time_point end) {
  constexpr std::chrono::milliseconds often{50};
  while (!is_locked_by(descriptor, LOCK_EX | LOCK_NB)) {
    const auto left = end - std::chrono::steady_clock::now();
    if (left.count() <= 0) return false;
    std::this_thread::sleep_for(std::min<std::chrono::steady_clock::duration>(left, often));
  }
  return true;
}

}  // namespace

void take_audit_lock(bool waits, const std::optional<lock_deadline>& deadline) {
  // Stays open: the lock is on what was opened here, and a child of fork(2) shares it.
  const int descriptor = open_folder();
  if (descriptor < 0 || is_locked_by(descriptor, LOCK_EX | LOCK_NB)) return;
  if (errno != EWOULDBLOCK) return;  // a file system without locks
  const lock_holder holder = find_holder(descriptor);
  if (!waits) {
    ::close(descriptor);
    throw audit_running(describe_refusal(holder));
  }
  write_message(describe_wait(holder));
  if (!deadline) {
    is_locked_by(descriptor, LOCK_EX);
  } else if (!is_locked_before(descriptor, deadline->end)) {
    const lock_holder last = find_holder(descriptor);
    ::close(descriptor);
    throw audit_waited_too_long(describe_lost_wait(last, deadline->asked));
  }
}

lock_holder find_lock_holder() {
  const int descriptor = open_folder();
  if (descriptor < 0) return {};
  lock_holder holder = find_holder(descriptor);
  ::close(descriptor);
  return holder;
}

std::string describe_stranger(const lock_holder& holder) {
  return "process " + std::to_string(holder.process) + " (" + holder.stranger +
         ") holds the lock on " + log_folder + " and may be no audit";
}

}  // namespace tessel_host
