#include "after_audit.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <string_view>
#include <system_error>
#include <vector>

#include "audit_files.h"
#include "command_line/one_line.h"
#include "programs.h"
#include "standard_error.h"

namespace tessel_host {

namespace {

namespace fs = std::filesystem;

constexpr std::chrono::hours patience{1};

std::vector<std::string> command(const std::string& program, const std::string& word,
                                 const std::string& journal) {
  std::vector<std::string> words = {program, word};
  if (!journal.empty()) words.insert(words.end(), {"--journal", journal});
  return words;
}

bool has_report(const program_result& made) {
  constexpr int no_run = 2;
  return made.is_started && !made.is_timed_out && WIFEXITED(made.wait_status) &&
         WEXITSTATUS(made.wait_status) != no_run &&
         WEXITSTATUS(made.wait_status) <= status_not_judged;
}

// As much of the report as says how the run has ended.
std::string head_of(const std::string& file) {
  std::string text(65536, '\0');
  std::ifstream in(file, std::ios::binary);
  in.read(text.data(), static_cast<std::streamsize>(text.size()));
  text.resize(static_cast<std::size_t>(in.gcount()));
  return text;
}

// Returns the status of the check.
int check(const program_result& made, std::size_t timed_out) {
  if (!has_report(made) || !is_of_complete_run(made.out)) return status_not_complete;
  const int status = WEXITSTATUS(made.wait_status);
  return timed_out > 0 ? std::max(status, status_not_judged) : status;
}

// Its complaints come behind the summary, and wait for a reader no longer than a message does.
bool show_summary(const std::string& program, const std::string& journal) {
  std::string complaints;
  const bool is_shown = run_in_front(command(program, "summary", journal), complaints);
  if (!complaints.empty()) write_text(complaints);
  return is_shown;
}

// True for the own streams by the name of a descriptor, such as /dev/stdout. The report program has
// others.
bool is_standard_stream(fs::path path) {
  if (path == "-") return true;
  const fs::path own = "/proc/" + std::to_string(::getpid()) + "/fd";
  std::error_code error;
  for (int links = 0; links < 8 && !error; ++links) {
    const fs::path folder = fs::weakly_canonical(fs::absolute(path).parent_path(), error);
    const fs::path name = path.filename();
    if (folder == own) return name == "0" || name == "1" || name == "2";
    path = fs::read_symlink(path, error);
    if (path.is_relative()) path = folder / path;
  }
  return false;
}

// What the shell has opened for the output would lose its name to the report.
bool is_file_of_standard_stream(const struct stat& file) {
  for (const int stream : {STDOUT_FILENO, STDERR_FILENO}) {
    struct stat open {};
    if (::fstat(stream, &open) == 0 && open.st_dev == file.st_dev && open.st_ino == file.st_ino)
      return true;
  }
  return false;
}

bool is_pipe_without_reader(const std::string& path) {
  struct stat state {};
  if (::stat(path.c_str(), &state) != 0 || !S_ISFIFO(state.st_mode)) return false;
  const int opened = ::open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
  const bool is_unread = opened < 0 && errno == ENXIO;
  if (opened >= 0) ::close(opened);
  return is_unread;
}

// A pipe, or a device, does not give back what was written.
std::string written_report(const std::string& program, const std::string& journal,
                           const std::string& file) {
  std::error_code error;
  if (fs::is_regular_file(file, error)) return head_of(file);
  return run_programs({command(program, "json", journal)}, patience).front().out;
}

[[noreturn]] void refuse(const std::string& path, const std::string& cause) {
  throw report_file_error("cannot write the report in JSON '" + command_line::one_line(path) +
                          "': " + cause + "; name another file with --json FILE");
}

// Whoever opens a pipe without a reader waits for one. The reader waits for the report as long as
// somebody has the pipe open: to be closed again, it would be at its end.
void keep_open_for_reader(const std::string& path) {
  const int opened = ::open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
  if (opened < 0) refuse(path, errno == ENXIO ? "nobody reads it" : cause_of(errno));
  if (opened > STDERR_FILENO) return;
  // The library takes no standard stream, not even where the host was started without them.
  const int kept = ::fcntl(opened, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  const int error = errno;
  ::close(opened);
  if (kept < 0) refuse(path, cause_of(error));
}

}  // namespace

debug_log_state::debug_log_state() : is_there_(::stat(debug_log, &found_) == 0) {}

bool debug_log_state::was_written_until(const debug_log_state& now) const {
  if (!now.is_there_) return false;
  const auto same_time = [](const timespec& a, const timespec& b) {
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
  };
  return !is_there_ || !now.is_file() || found_.st_dev != now.found_.st_dev ||
         found_.st_ino != now.found_.st_ino || found_.st_size != now.found_.st_size ||
         !same_time(found_.st_mtim, now.found_.st_mtim) ||
         !same_time(found_.st_ctim, now.found_.st_ctim);
}

void check_report_target(const std::string& path, const std::optional<std::string>& journal) {
  constexpr const char* for_what_is_printed = "the standard streams are for what the audit prints";
  if (is_standard_stream(path)) refuse(path, for_what_is_printed);
  if (journal && is_same_file(path, *journal)) refuse(path, "--journal names the same file");
  struct stat state {};
  const bool is_there = ::stat(path.c_str(), &state) == 0;
  if (!is_there && errno != ENOENT) refuse(path, cause_of(errno));
  if (is_there && S_ISDIR(state.st_mode)) refuse(path, cause_of(EISDIR));
  const bool is_pipe = is_there && S_ISFIFO(state.st_mode);
  const bool can_be_mixed = is_pipe || (is_there && S_ISREG(state.st_mode));
  if (can_be_mixed && is_file_of_standard_stream(state)) refuse(path, for_what_is_printed);
  if (is_pipe) keep_open_for_reader(path);
  if (is_there && !S_ISREG(state.st_mode)) return;  // a pipe or a device
  if (const std::string cause = why_not_ours(path); !cause.empty()) refuse(path, cause);
  if (!is_there && ::lstat(path.c_str(), &state) == 0)
    refuse(path, "it is a link to a file that does not exist");
  // A link's file is replaced where that is.
  std::error_code error;
  const fs::path place = is_there ? fs::canonical(path, error) : fs::path(path);
  const fs::path folder = place.has_parent_path() ? place.parent_path() : fs::path(".");
  if (::access(folder.c_str(), W_OK | X_OK) != 0) refuse(path, cause_of(errno));
}

std::string find_report_program() {
  constexpr const char* name = "tessel-report";
  std::error_code error;
  const fs::path self = fs::read_symlink("/proc/self/exe", error);
  if (!error && ::access((self.parent_path() / name).c_str(), X_OK) == 0)
    return self.parent_path() / name;
  if (std::string found = find_on_path(name); !found.empty()) return found;
  throw report_error(
      "--report, --check and --json need tessel-report, which is neither beside this program nor "
      "on the search path; copy it there");
}

bool is_of_complete_run(const std::string& json) {
  constexpr std::string_view key = "\"end\":";
  const std::size_t at = json.find(key);
  if (at == json.npos) return false;
  const std::size_t value = json.find_first_not_of(' ', at + key.size());
  return value != json.npos && json.compare(value, 10, "\"complete\"") == 0;
}

int report_audit(const std::string& program, const report_wishes& wishes,
                 const std::string& journal, std::size_t timed_out, complainer complain) {
  if (wishes.shows_summary && !show_summary(program, journal))
    complain("the summary cannot be shown, because " + program +
             " does not start or did not end by itself; call it: tessel-report summary");
  std::optional<std::string> file = wishes.json;
  if (file && is_pipe_without_reader(*file)) {
    complain("the report in JSON was not written, because nobody reads '" +
             command_line::one_line(*file) + "' any more; make it again: tessel-report json");
    file.reset();
  }
  std::vector<std::string> words = command(program, "json", journal);
  if (file) words.insert(words.end(), {"--output", *file});
  if (!file && !wishes.checks) return 0;
  program_result made = run_programs({words}, patience).front();
  if (!has_report(made))
    complain("the report in JSON cannot be made: " + made.complaint() +
             "; look at what it says of the run: tessel-report json");
  if (has_report(made) && file && wishes.checks) made.out = written_report(program, journal, *file);
  return check(made, timed_out);
}

}  // namespace tessel_host
