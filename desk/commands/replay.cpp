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

// "2026-11-22 17:47:18,000" of "2026-11-22T17:47:18Z".
std::string as_in_logs(std::string_view time) {
  constexpr std::string_view form = "0000-00-00T00:00:00Z";
  if (time.size() != form.size() || time[10] != 'T') return {};
  return fmt::format("{} {},000", time.substr(0, 10), time.substr(11, 8));
}

// Lines of tessel-lab info, such as "type        birch".
recorded facts_in(const std::string& path) {
  recorded made;
  std::string line;
  byte_source bytes(path);
  line_reader lines(bytes);
  while (lines.next(line)) {
    const std::string_view all = line;
    const std::string_view name = all.substr(0, all.find(' '));
    const std::size_t at = std::min(all.find_first_not_of(' ', name.size()), all.size());
    if (name == "type") made.type = all.substr(at);
    if (name == "begin") made.began = as_in_logs(all.substr(at));
  }
  return made;
}

recorded facts_of(const std::string& capture, const std::string& logs) {
  const std::string facts = logs + ".info";
  try {
    const int status = run_program({lab_program(), "info", capture}, facts, "/dev/null");
    return status == 0 ? facts_in(facts) : recorded();
  } catch (const read_error&) {
    return {};
  }
}

// Runs the lab; throws with its words if it does not leave the file.
void run_lab(const std::vector<std::string>& words, const std::string& capture,
             const std::string& complaints, const std::string& result) {
  std::vector<std::string> all = {lab_program()};
  all.insert(all.end(), words.begin(), words.end());
  const int status = run_program(std::move(all), "/dev/null", complaints);
  if (file_exists(result)) return;
  const std::string why = first_line_of(complaints);
  throw no_run(fmt::format("cannot audit the capture {}: {}", capture,
                           why.empty() ? fmt::format("tessel-lab ended with {}", status) : why));
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

recorded replay(const std::string& capture, const std::string& logs) {
  const std::string complaints = logs + ".complaints";
  const std::string journal = logs + "/tessel_journal.jsonl";
  std::error_code ignored;
  // The lab takes a name without a file for one of its own routers.
  if (!fs::exists(capture, ignored))
    throw no_run(
        fmt::format("there is no capture {}; name the folder or the file that tessel-lab "
                    "record or pack made",
                    capture));
  fs::create_directory(logs, ignored);
  std::string folder = capture;
  if (!fs::is_directory(capture, ignored)) {
    folder = logs + ".capture";
    run_lab({"unpack", capture, folder}, capture, complaints, folder + "/manifest");
  }
  run_lab({"run", folder, "--logs", logs, "--", "--journal", journal}, capture, complaints,
          logs + "/tessel_exception.log");
  const fs::path recorded_journal = fs::path(folder) / "journal";
  if (fs::is_regular_file(recorded_journal, ignored))
    fs::copy_file(recorded_journal, journal, fs::copy_options::overwrite_existing, ignored);
  recorded made = facts_of(folder, logs);
  made.folder = folder;
  return made;
}

}  // namespace desk
