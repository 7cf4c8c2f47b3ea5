#include "doctor_beside.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <exception>
#include <thread>

#include "audit_files.h"
#include "doctor.h"
#include "programs.h"

namespace tessel_host {

namespace {

using namespace std::chrono_literals;

constexpr auto patience_for_one = 5s;
constexpr auto patience_for_all = 10s;

// A group of its own, so that its tools can be ended with it. Nothing of the host's stays open, such
// as the lock: a doctor that waits for a device outlives the host.
[[noreturn]] void be_doctor(int output) {
  ::setpgid(0, 0);
  ::close_range(STDERR_FILENO + 1, static_cast<unsigned>(output) - 1, 0);
  ::close_range(static_cast<unsigned>(output) + 1, ~0U, 0);
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  const int nothing = ::open("/dev/null", O_RDWR | O_CLOEXEC);
  ::dup2(nothing, STDIN_FILENO);
  ::dup2(nothing, STDERR_FILENO);
  std::FILE* const lines = ::fdopen(output, "w");
  if (lines == nullptr) ::_exit(1);
  try {
    // The lock of this audit is held still.
    ::_exit(examine_machine({lines, patience_for_one, patience_for_one, false}));
  } catch (const std::exception& failure) {
    std::fprintf(lines, "fail doctor: %s\n", failure.what());
    std::fflush(lines);
  }
  ::_exit(1);
}

bool is_signal_held_back() {
  sigset_t pending{};
  ::sigpending(&pending);
  for (const int number : {SIGHUP, SIGINT, SIGQUIT, SIGTERM})
    if (sigismember(&pending, number) == 1) return true;
  return false;
}

}  // namespace

doctor_beside::doctor_beside() : began_(std::chrono::steady_clock::now()) {
  output_ = ::memfd_create("doctor", MFD_CLOEXEC);
  if (output_ >= 0) process_ = ::fork();
  if (process_ < 0) error_ = errno;
  if (process_ == 0) be_doctor(output_);
  if (process_ > 0) ::setpgid(process_, process_);
}

doctor_beside::~doctor_beside() {
  if (!has_ended()) ::kill(-process_, SIGKILL);
  for (int looks = 0; looks < 20 && !has_ended(); ++looks) std::this_thread::sleep_for(5ms);
  if (output_ >= 0) ::close(output_);
}

bool doctor_beside::has_ended() {
  if (process_ > 0 && ::waitpid(process_, nullptr, WNOHANG) != 0) process_ = -1;
  return process_ < 0;
}

std::string doctor_beside::lines() {
  if (error_ != 0) return "fail doctor: it cannot be started: " + cause_of(error_) + "\n";
  while (!has_ended()) {
    const bool is_late = std::chrono::steady_clock::now() - began_ > patience_for_all;
    if (is_late || is_signal_held_back())
      return content_of(output_) + "fail doctor: it was ended after " +
             std::to_string(patience_for_all.count()) + " s; call it: tessel-host doctor\n";
    std::this_thread::sleep_for(5ms);
  }
  return content_of(output_);
}

}  // namespace tessel_host
