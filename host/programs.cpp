#include "programs.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <sstream>
#include <thread>

#include "command_line/one_line.h"

namespace tessel_host {

namespace {

using clock = std::chrono::steady_clock;

// One program while it runs. Its output goes to files in memory, so that it never waits.
struct running {
  pid_t id = -1;
  int out = -1;
  int err = -1;
};

// A parent that ignores the end of its children hides how they ended, and its programs inherit
// that.
void see_how_children_end() {
  ::signal(SIGCHLD, SIG_DFL);
}

std::vector<char*> argument_list(const std::vector<std::string>& words) {
  std::vector<char*> arguments;
  arguments.reserve(words.size() + 1);
  for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  return arguments;
}

constexpr int nothing = -1;   // in the place of a descriptor: /dev/null
constexpr int as_it_is = -2;  // that of this process

using three_streams = std::array<int, 3>;

// Whoever starts the host may have closed its streams, and their numbers are given anew.
int above_streams(int descriptor) {
  return ::fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
}

// In the child. Nobody else would end a program whose host is gone.
[[noreturn]] void become(const std::vector<char*>& arguments, const three_streams& streams,
                         pid_t host, int failed) {
  ::prctl(PR_SET_PDEATHSIG, SIGTERM);
  if (::getppid() != host) ::_exit(1);
  failed = above_streams(failed);
  three_streams used = streams;
  for (int& each : used) {
    if (each == nothing) each = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    if (each != as_it_is) each = above_streams(each);
  }
  for (int at = 0; at < 3; ++at) {
    const int each = used[static_cast<std::size_t>(at)];
    if (each != as_it_is && ::dup2(each, at) < 0) ::_exit(1);
  }
  ::execvp(arguments[0], arguments.data());
  const char cause = 1;
  [[maybe_unused]] const ssize_t written = ::write(failed, &cause, 1);
  ::_exit(127);
}

// Starts a program that ends with this process. Returns -1 if it cannot be started.
pid_t start_bound(const std::vector<std::string>& words, const three_streams& streams) {
  const std::vector<char*> arguments = argument_list(words);
  std::array<int, 2> failed{};  // closed by the program's start
  if (::pipe2(failed.data(), O_CLOEXEC) != 0) return -1;
  const pid_t host = ::getpid();
  const pid_t child = ::fork();
  if (child == 0) become(arguments, streams, host, failed[1]);
  ::close(failed[1]);
  char cause = 0;
  ssize_t count = 0;
  do count = ::read(failed[0], &cause, 1);
  while (count < 0 && errno == EINTR);
  ::close(failed[0]);
  if (child > 0 && count != 0) ::waitpid(child, nullptr, 0);
  return count == 0 ? child : -1;
}

running start(const std::vector<std::string>& words) {
  running started;
  started.out = ::memfd_create("output", MFD_CLOEXEC);
  started.err = ::memfd_create("complaints", MFD_CLOEXEC);
  started.id = start_bound(words, {nothing, started.out, started.err});
  return started;
}

void finish(running& program, program_result& result) {
  result.out = content_of(program.out);
  result.err = content_of(program.err);
  for (const int each : {program.out, program.err})
    if (each >= 0) ::close(each);
  program.id = -1;
}

// Returns true when the program has ended.
bool look_after(running& program, program_result& result, clock::time_point began,
                std::chrono::seconds limit) {
  if (program.id < 0) return true;
  const auto age = clock::now() - began;
  if (age > limit && !result.is_timed_out) {
    result.is_timed_out = true;
    ::kill(program.id, SIGKILL);
  }
  if (::waitpid(program.id, &result.wait_status, WNOHANG) == 0) return false;
  result.seconds = std::chrono::duration<double>(age).count();
  finish(program, result);
  return true;
}

}  // namespace

bool program_result::is_good() const {
  return is_started && !is_timed_out && WIFEXITED(wait_status) && WEXITSTATUS(wait_status) == 0;
}

std::string program_result::complaint() const {
  constexpr std::size_t longest = 160;
  if (!is_started) return "it cannot be started";
  if (is_timed_out) return "no answer after " + std::to_string(static_cast<int>(seconds)) + " s";
  const std::size_t begin = std::min(err.find_first_not_of(" \t\r\n"), err.size());
  const std::string line =
      err.substr(begin, std::min(err.find_first_of("\r\n", begin) - begin, longest));
  const std::string end = WIFSIGNALED(wait_status)
                              ? "signal " + std::to_string(WTERMSIG(wait_status))
                              : "status " + std::to_string(WEXITSTATUS(wait_status));
  return line.empty() ? end : end + ", " + command_line::one_line(line);
}

std::string find_on_path(std::string_view name) {
  const char* const path = std::getenv("PATH");
  std::istringstream folders(path == nullptr ? "/usr/bin:/bin" : path);
  for (std::string folder; std::getline(folders, folder, ':');) {
    std::string file = (folder.empty() ? "." : folder) + "/" + std::string(name);
    if (::access(file.c_str(), X_OK) == 0) return file;
  }
  return {};
}

std::string content_of(int descriptor) {
  constexpr off_t most = off_t{16} * 1024 * 1024;
  std::string text;
  struct stat state {};
  if (descriptor < 0 || ::fstat(descriptor, &state) != 0) return text;
  text.resize(static_cast<std::size_t>(std::min(state.st_size, most)));
  const ssize_t count = ::pread(descriptor, text.data(), text.size(), 0);
  text.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
  return text;
}

std::vector<program_result> run_programs(const std::vector<std::vector<std::string>>& lines,
                                         std::chrono::seconds limit) {
  using namespace std::chrono_literals;
  see_how_children_end();
  std::vector<running> programs;
  std::vector<program_result> results(lines.size());
  const auto began = clock::now();
  for (std::size_t at = 0; at < lines.size(); ++at) {
    programs.push_back(start(lines[at]));
    results[at].is_started = programs[at].id >= 0;
    if (!results[at].is_started) finish(programs[at], results[at]);
  }
  for (bool have_ended = false; !have_ended;) {
    have_ended = true;
    for (std::size_t at = 0; at < lines.size(); ++at)
      have_ended = look_after(programs[at], results[at], began, limit) && have_ended;
    if (!have_ended) std::this_thread::sleep_for(2ms);
  }
  return results;
}

bool run_in_front(const std::vector<std::string>& words, std::string& err) {
  see_how_children_end();
  const int complaints = ::memfd_create("complaints", MFD_CLOEXEC);
  const pid_t child = start_bound(words, {as_it_is, as_it_is, complaints});
  int status = 0;
  while (child > 0 && ::waitpid(child, &status, 0) < 0 && errno == EINTR) continue;
  err = content_of(complaints);
  if (complaints >= 0) ::close(complaints);
  return child > 0 && WIFEXITED(status);
}

}  // namespace tessel_host
