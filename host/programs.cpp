#include "programs.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
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

running start(const std::vector<std::string>& words) {
  running started;
  started.out = ::memfd_create("output", MFD_CLOEXEC);
  started.err = ::memfd_create("complaints", MFD_CLOEXEC);
  const std::vector<char*> arguments = argument_list(words);
  posix_spawn_file_actions_t streams;
  if (::posix_spawn_file_actions_init(&streams) != 0) return started;
  ::posix_spawn_file_actions_addopen(&streams, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  ::posix_spawn_file_actions_adddup2(&streams, started.out, STDOUT_FILENO);
  ::posix_spawn_file_actions_adddup2(&streams, started.err, STDERR_FILENO);
  if (::posix_spawnp(&started.id, arguments[0], &streams, nullptr, arguments.data(), environ) != 0)
    started.id = -1;
  ::posix_spawn_file_actions_destroy(&streams);
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
  const std::string line = err.substr(begin, std::min(err.find('\n', begin) - begin, longest));
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
  const std::vector<char*> arguments = argument_list(words);
  posix_spawn_file_actions_t streams;
  if (::posix_spawn_file_actions_init(&streams) != 0) return false;
  const int complaints = ::memfd_create("complaints", MFD_CLOEXEC);
  if (complaints >= 0)
    ::posix_spawn_file_actions_adddup2(&streams, complaints, STDERR_FILENO);
  else
    ::posix_spawn_file_actions_addopen(&streams, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  pid_t child = 0;
  const bool is_started =
      ::posix_spawnp(&child, arguments[0], &streams, nullptr, arguments.data(), environ) == 0;
  ::posix_spawn_file_actions_destroy(&streams);
  int status = 0;
  while (is_started && ::waitpid(child, &status, 0) < 0 && errno == EINTR) continue;
  err = content_of(complaints);
  if (complaints >= 0) ::close(complaints);
  return is_started && WIFEXITED(status);
}

}  // namespace tessel_host
