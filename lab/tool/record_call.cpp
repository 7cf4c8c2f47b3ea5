#include "lab/tool/record_call.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <optional>

#include "lab/base/child.h"
#include "lab/capture/answer_list.h"
#include "lab/tool/ended_call.h"
#include "lab/tool/serve.h"

namespace lab {
namespace {

constexpr int not_found = 127;
constexpr int not_started = 126;
constexpr std::size_t pipe_size = std::size_t{1} << 20;

std::string setting(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? std::string{} : std::string{value};
}

// The real tool --------------------------------------------------------------------------

// Into the mounts of the process that does not see the stand-ins. The working folder would be lost.
bool go_back_to(const std::string& pid) {
  std::array<char, 4096> folder{};
  if (getcwd(folder.data(), folder.size()) == nullptr) folder = {"/"};
  const int fd = open(fmt::format("/proc/{}/ns/mnt", pid).c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  const bool went = setns(fd, CLONE_NEWNS) == 0;
  close(fd);
  return went && (chdir(folder.data()) == 0 || chdir("/") == 0);
}

[[noreturn]] void become_real_tool(const std::vector<std::string>& command) {
  const std::string work = setting(record_folder_variable);
  const std::string pid = setting(record_pid_variable);
  std::vector<std::string> words = command;
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);

  setenv("PATH", setting(record_path_variable).c_str(), 1);
  if (!pid.empty()) {
    if (!go_back_to(pid)) {
      fmt::print(stderr, "{}: the recording cannot reach the real tool: {}\n", words.front(),
                 std::strerror(errno));
      _exit(not_started);
    }
    for (const char* own : {record_folder_variable, record_pid_variable, record_path_variable})
      unsetenv(own);
    execvp(arguments.front(), arguments.data());
  } else {
    setenv(record_inner_variable, "1", 1);
    const bool has_folder = words.front().find('/') != std::string::npos;
    const std::string real =
        real_tool_path(work, has_folder, words.front().substr(words.front().rfind('/') + 1));
    execvp(real.c_str(), arguments.data());
  }
  const int cause = errno;
  fmt::print(stderr, "{}: {}\n", words.front(), std::strerror(cause));
  _exit(cause == ENOENT ? not_found : not_started);
}

// Keeping --------------------------------------------------------------------------------

class kept_file {
 public:
  ~kept_file() { end(); }
  kept_file() = default;
  kept_file(const kept_file&) = delete;
  kept_file& operator=(const kept_file&) = delete;

  bool create(const std::string& file) {
    fd_ = open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    return fd_ >= 0;
  }
  bool is_open() const { return fd_ >= 0; }
  void end() {
    if (fd_ >= 0) close(fd_);
    fd_ = -1;
  }
  // What goes wrong here must not harm the audit; it is told at the end of the recording.
  void write_all(const char* data, std::size_t size) {
    while (size > 0 && problem_ == 0) {
      const ssize_t written = write(fd_, data, size);
      if (written < 0 && errno == EINTR) continue;
      if (written < 0) {
        problem_ = errno;
        return;
      }
      data += written;
      size -= static_cast<std::size_t>(written);
      total_ += static_cast<std::size_t>(written);
    }
  }
  void set_problem(int problem) { problem_ = problem; }
  int problem() const { return problem_; }
  std::size_t total() const { return total_; }

 private:
  int fd_ = -1;
  int problem_ = 0;
  std::size_t total_ = 0;
};

std::int64_t now_in_microseconds() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return std::int64_t{now.tv_sec} * 1'000'000 + now.tv_nsec / 1000;
}

// One call of a tool: where its output goes, when it began.
struct kept_call {
  std::string work;
  call what;
  unsigned number = 0;
  std::int64_t begin = now_in_microseconds();
  kept_file out;
  kept_file complaint;

  std::string file() const {
    return work + "/capture/" + what.place + "/" + numbered_file(what.file, number);
  }
  // Takes the first free number, so that calls are numbered in the order in which they began.
  void open_output() {
    do {
      ++number;
      if (out.create(file())) return;
      if (errno == ENOENT) {
        mkdir((work + "/capture/" + what.place).c_str(), 0700);
        if (out.create(file())) return;
      }
    } while (errno == EEXIST);
    out.set_problem(errno);
  }
  void keep_complaint(const char* data, std::size_t size) {
    if (!complaint.is_open() && !complaint.create(file() + std::string{complaint_suffix}))
      complaint.set_problem(errno);
    complaint.write_all(data, size);
  }
};

// One write, so that the lines of calls that run side by side stay whole.
void note_end(const kept_call& kept, int status) {
  const int problem = kept.out.problem() != 0 ? kept.out.problem() : kept.complaint.problem();
  const std::string line =
      call_line({kept.what.place, kept.what.file, kept.number, kept.begin,
                 now_in_microseconds() - kept.begin, status, kept.out.total(), problem});
  const int fd =
      open((kept.work + "/ended").c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
  // Without its line it counts as a call without an end. What the tool complains of is the audit's.
  if (fd < 0) return;
  [[maybe_unused]] const ssize_t written = write(fd, line.data(), line.size());
  close(fd);
}

// Passing on -----------------------------------------------------------------------------

struct stream {
  int from = -1;
  int to = -1;
  bool reader_is_gone = false;
};

void pass_on(stream& s, const char* data, std::size_t size) {
  while (size > 0 && !s.reader_is_gone) {
    const ssize_t written = write(s.to, data, size);
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) {
      s.reader_is_gone = true;
      return;
    }
    data += written;
    size -= static_cast<std::size_t>(written);
  }
}

// Moves what has come. Returns false at the end of the stream: the tool has closed it, or whoever
// reads ours has; the tool then meets the same end.
template <typename Keep>
bool move_some(stream& s, std::vector<char>& buffer, const Keep& keep) {
  const ssize_t got = read(s.from, buffer.data(), buffer.size());
  if (got < 0 && errno == EINTR) return true;
  if (got > 0) {
    pass_on(s, buffer.data(), static_cast<std::size_t>(got));
    keep(buffer.data(), static_cast<std::size_t>(got));
    if (!s.reader_is_gone) return true;
  }
  close(s.from);
  s.from = -1;
  return false;
}

// Returns nothing if it has not ended yet and `options` say not to wait.
std::optional<int> wait_for_tool(pid_t tool, int options) {
  int status = 0;
  pid_t ended = 0;
  do {
    ended = waitpid(tool, &status, options);
  } while (ended < 0 && errno == EINTR);
  return ended == 0 ? std::nullopt : std::optional{status};
}

// Until the tool has closed both streams. A process that it left behind may hold the second one for
// ever (ssh's shared connections do): then the tool's own end counts. Returns its wait status.
int move_all(stream& out, stream& err, pid_t tool, kept_call& kept) {
  constexpr int interval = 20;  // milliseconds
  std::vector<char> buffer(std::size_t{1} << 17);
  std::optional<int> ended;
  while (out.from >= 0 || err.from >= 0) {
    std::array<pollfd, 2> ready{{{out.from, POLLIN, 0}, {err.from, POLLIN, 0}}};
    const int count = poll(ready.data(), ready.size(), out.from >= 0 ? -1 : ended ? 0 : interval);
    if (count < 0) continue;
    if (ready[1].revents != 0)
      move_some(err, buffer,
                [&](const char* data, std::size_t size) { kept.keep_complaint(data, size); });
    if (ready[0].revents != 0)
      move_some(out, buffer,
                [&](const char* data, std::size_t size) { kept.out.write_all(data, size); });
    if (count == 0 && ended) break;
    if (count == 0) ended = wait_for_tool(tool, WNOHANG);
  }
  return ended ? *ended : *wait_for_tool(tool, 0);
}

// A reader that goes away and a file that may not grow must not end the stand-in.
class signal_actions {
 public:
  signal_actions() {
    struct sigaction ignored {};
    ignored.sa_handler = SIG_IGN;
    sigaction(SIGPIPE, &ignored, &pipe_);
    sigaction(SIGXFSZ, &ignored, &file_size_);
  }
  void restore() const {
    sigaction(SIGPIPE, &pipe_, nullptr);
    sigaction(SIGXFSZ, &file_size_, nullptr);
  }

 private:
  struct sigaction pipe_ {};
  struct sigaction file_size_ {};
};

// The tool must find its streams and signals as if it had been called itself.
[[noreturn]] void be_tool(const std::vector<std::string>& command, int out, int err,
                          const signal_actions& actions) {
  actions.restore();
  dup2(out, STDOUT_FILENO);
  dup2(err, STDERR_FILENO);
  become_real_tool(command);
}

// Nothing is kept of this call, which the end of the recording tells; the audit must not suffer.
[[noreturn]] void give_up(const std::vector<std::string>& command, kept_call& kept,
                          const signal_actions& actions) {
  if (kept.out.problem() == 0) kept.out.set_problem(errno);
  if (kept.out.is_open()) unlink(kept.file().c_str());
  kept.out.end();
  note_end(kept, 0);
  actions.restore();
  become_real_tool(command);
}

// As the shell would have seen the tool itself.
int end_like(int wait_status) {
  if (!WIFSIGNALED(wait_status)) return WEXITSTATUS(wait_status);
  const int number = WTERMSIG(wait_status);
  const rlimit no_core{0, 0};
  setrlimit(RLIMIT_CORE, &no_core);
  signal(number, SIG_DFL);
  raise(number);
  return status_of(wait_status);
}

}  // namespace

bool is_recording() {
  const char* work = std::getenv(record_folder_variable);
  if (work == nullptr) return false;
  // In the lab this program is the real tool as well, which has the same environment where there is
  // no way back; only its place tells.
  std::error_code ignored;
  const std::string self = std::filesystem::read_symlink("/proc/self/exe", ignored).string();
  return !self.starts_with(fmt::format("{}/real/", work));
}

int record_call(const std::vector<std::string>& command) {
  kept_call kept;
  kept.work = setting(record_folder_variable);
  kept.what = resolve(command);
  // A tool that a tool calls is part of the one that the audit called.
  if (!kept.what.problem.empty() || std::getenv(record_inner_variable) != nullptr)
    become_real_tool(command);
  kept.open_output();

  const signal_actions actions;
  std::array<int, 2> out{};
  std::array<int, 2> err{};
  if (pipe2(out.data(), O_CLOEXEC) != 0 || pipe2(err.data(), O_CLOEXEC) != 0)
    give_up(command, kept, actions);
  fcntl(out[0], F_SETPIPE_SZ, static_cast<int>(pipe_size));
  const pid_t tool = fork();
  if (tool < 0) give_up(command, kept, actions);
  if (tool == 0) be_tool(command, out[1], err[1], actions);
  close(out[1]);
  close(err[1]);
  stream from_out{out[0], STDOUT_FILENO};
  stream from_err{err[0], STDERR_FILENO};
  const int wait_status = move_all(from_out, from_err, tool, kept);
  note_end(kept, status_of(wait_status));
  return end_like(wait_status);
}

}  // namespace lab
