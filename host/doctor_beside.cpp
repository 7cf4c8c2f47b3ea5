#include "doctor_beside.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <exception>
#include <thread>

#include "audit_files.h"
#include "doctor.h"
#include "ending_signals.h"
#include "programs.h"

namespace tessel_host {

namespace {

using namespace std::chrono_literals;

constexpr auto patience_for_one = 5s;
constexpr auto patience_for_all = 10s;

extern "C" void end_group(int /*number*/) {
  ::kill(0, SIGKILL);
}

// Without the host nobody ends the tools.
void end_with(pid_t host) {
  struct sigaction end {};
  end.sa_handler = end_group;
  ::sigaction(SIGTERM, &end, nullptr);
  sigset_t ends{};
  sigemptyset(&ends);
  sigaddset(&ends, SIGTERM);
  ::sigprocmask(SIG_UNBLOCK, &ends, nullptr);
  ::prctl(PR_SET_PDEATHSIG, SIGTERM);
  if (::getppid() != host) ::_exit(1);
}

// A group of its own, so that its tools can be ended with it. Nothing of the host's stays open,
// such as the lock or its standard output: a doctor that waits for a device outlives the host.
[[noreturn]] void be_doctor(int output, pid_t host) {
  ::setpgid(0, 0);
  end_with(host);
  ::close_range(STDERR_FILENO + 1, static_cast<unsigned>(output) - 1, 0);
  ::close_range(static_cast<unsigned>(output) + 1, ~0U, 0);
  const int nothing = ::open("/dev/null", O_RDWR | O_CLOEXEC);
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) ::dup2(nothing, stream);
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

}  // namespace

doctor_beside::doctor_beside() : began_(std::chrono::steady_clock::now()) {
  ::sigprocmask(SIG_BLOCK, nullptr, &before_);
  const pid_t host = ::getpid();
  output_ = ::memfd_create("doctor", MFD_CLOEXEC);
  if (output_ >= 0) process_ = ::fork();
  if (process_ < 0) error_ = errno;
  if (process_ == 0) be_doctor(output_, host);
  if (process_ > 0) ::setpgid(process_, process_);
}

// While the doctor is not reaped, its number belongs to its group and to nobody else. A tool that
// it gave up may have left others there.
doctor_beside::~doctor_beside() {
  if (process_ > 0) {
    ::kill(-process_, SIGKILL);
    for (int looks = 0; looks < 20 && !has_ended(); ++looks) std::this_thread::sleep_for(5ms);
    ::waitpid(process_, nullptr, WNOHANG);
  }
  if (output_ >= 0) ::close(output_);
}

bool doctor_beside::has_ended() const {
  siginfo_t ended{};
  return process_ <= 0 ||
         ::waitid(P_PID, static_cast<id_t>(process_), &ended, WEXITED | WNOHANG | WNOWAIT) != 0 ||
         ended.si_pid == process_;
}

std::string doctor_beside::lines() {
  if (error_ != 0) return "fail doctor: it cannot be started: " + cause_of(error_) + "\n";
  while (!has_ended()) {
    const bool is_late = std::chrono::steady_clock::now() - began_ > patience_for_all;
    if (is_end_held_back(before_))
      return content_of(output_) + "fail doctor: a signal ends the host\n";
    if (is_late)
      return content_of(output_) + "fail doctor: it was ended after " +
             std::to_string(patience_for_all.count()) + " s; call it: tessel-host doctor\n";
    std::this_thread::sleep_for(5ms);
  }
  return content_of(output_);
}

}  // namespace tessel_host
