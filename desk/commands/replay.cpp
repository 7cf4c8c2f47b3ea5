#include "desk/commands/replay.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <vector>

#include "desk/commands/load.h"
#include "desk/read/line_reader.h"

namespace desk {

namespace {

namespace fs = std::filesystem;

// The lab of the same build or installation, else the one on the path.
std::string lab_program() {
  std::error_code error;
  const fs::path self = fs::read_symlink("/proc/self/exe", error);
  const fs::path beside = self.parent_path() / "tessel-lab";
  return !error && fs::exists(beside, error) ? beside.string() : "tessel-lab";
}

// Runs a program with its output and its complaints to files. Returns its exit status, or -1 if a
// signal ended it.
int run_program(std::vector<std::string> words, const std::string& output,
                const std::string& complaints) {
  std::vector<char*> arguments;
  arguments.reserve(words.size() + 1);
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  constexpr mode_t owner_only = 0600;
  constexpr int written = O_WRONLY | O_CREAT | O_TRUNC;
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, output.c_str(), written, owner_only);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, complaints.c_str(), written,
                                   owner_only);
  pid_t child = 0;
  const int refused =
      posix_spawnp(&child, arguments.front(), &actions, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (refused != 0)
    throw no_run(
        fmt::format("cannot start {}, which audits captures: {}; put it beside "
                    "tessel-report, or read logs with --logs",
                    words.front(), std::strerror(refused)));
  int status = 0;
  while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string first_line_of(const std::string& path) {
  std::string line;
  try {
    byte_source bytes(path);
    line_reader lines(bytes);
    (void)lines.next(line);
  } catch (const read_error&) {
    line.clear();
  }
  return line;
}

// "type        birch" among the lines of tessel-lab info.
std::string type_in(const std::string& path) {
  constexpr std::string_view word = "type ";
  std::string line;
  byte_source bytes(path);
  line_reader lines(bytes);
  while (lines.next(line)) {
    if (!line.starts_with(word)) continue;
    const std::size_t at = line.find_first_not_of(' ', word.size());
    return at == std::string::npos ? std::string() : line.substr(at);
  }
  return {};
}

// Empty if the lab does not say it.
std::string type_of(const std::string& capture, const std::string& logs) {
  const std::string facts = logs + ".info";
  try {
    const int status = run_program({lab_program(), "info", capture}, facts, "/dev/null");
    return status == 0 ? type_in(facts) : std::string();
  } catch (const read_error&) {
    return {};
  }
}

}  // namespace

temporary_folder::temporary_folder() {
  std::error_code error;
  path_ = (fs::temp_directory_path(error) / "desk-replay.XXXXXX").string();
  if (::mkdtemp(path_.data()) == nullptr)
    throw no_run(fmt::format("cannot make a folder {}: {}", path_, std::strerror(errno)));
}

temporary_folder::~temporary_folder() {
  std::error_code ignored;
  fs::remove_all(path_, ignored);
}

std::string replay(const std::string& capture, const std::string& logs) {
  const std::string complaints = logs + ".complaints";
  const std::string journal = logs + "/tessel_journal.jsonl";
  std::error_code ignored;
  fs::create_directory(logs, ignored);
  const int status =
      run_program({lab_program(), "run", capture, "--logs", logs, "--", "--journal", journal},
                  "/dev/null", complaints);
  if (!file_exists(logs + "/tessel_exception.log")) {
    const std::string why = first_line_of(complaints);
    throw no_run(fmt::format("cannot audit the capture {}: {}", capture,
                             why.empty() ? fmt::format("tessel-lab ended with {}", status) : why));
  }
  const fs::path recorded = fs::path(capture) / "journal";
  if (fs::is_regular_file(recorded, ignored))
    fs::copy_file(recorded, journal, fs::copy_options::overwrite_existing, ignored);
  return type_of(capture, logs);
}

}  // namespace desk
