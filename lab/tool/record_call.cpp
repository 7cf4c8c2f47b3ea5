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
#include <string_view>
#include <utility>

#include "lab/base/complain.h"
#include "lab/base/descriptors.h"
#include "lab/base/processes.h"
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

// Enters the mounts of the process that does not see the stand-ins. That would lose the working
// folder, and the root of a chroot, so sets both again.
bool go_back_to(const std::string& pid) {
  std::array<char, 4096> folder{};
  if (getcwd(folder.data(), folder.size()) == nullptr) folder = {"/"};
  const descriptor mounts = open_file(fmt::format("/proc/{}/ns/mnt", pid), O_RDONLY);
  const std::string root_name = fmt::format("/proc/{}/root", pid);
  const descriptor root = open_file(root_name, O_PATH | O_DIRECTORY);
  if (!mounts.is_open() || setns(mounts.number(), CLONE_NEWNS) != 0) return false;
  // There may have been no second descriptor.
  const bool has_root = root.is_open() ? fchdir(root.number()) == 0 && chroot(".") == 0
                                       : chroot(root_name.c_str()) == 0;
  return has_root && (chdir(folder.data()) == 0 || chdir("/") == 0);
}

[[noreturn]] void become_real_tool(const std::vector<std::string>& command) {
  const std::string work = setting(record_folder_variable);
  const std::string pid = setting(record_pid_variable);
  std::vector<std::string> words = command;
  const std::vector<char*> arguments = argument_list(words);

  signal(SIGTTOU, SIG_DFL);  // lead_group() ignores it
  setenv("PATH", setting(record_path_variable).c_str(), 1);
  if (!pid.empty()) {
    if (!go_back_to(pid)) {
      complain(fmt::format("{}: the recording cannot reach the real tool: {}", words.front(),
                           std::strerror(errno)));
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
  complain(fmt::format("{}: {}", words.front(), std::strerror(cause)));
  _exit(cause == ENOENT ? not_found : not_started);
}

// Keeping --------------------------------------------------------------------------------

// A failure to keep output must not harm the audit; the end of the recording reports it.
struct kept_file {
  descriptor file;
  int problem = 0;  // an errno
  std::size_t total = 0;

  bool create(const std::string& name) {
    file = open_file(name, O_WRONLY | O_CREAT | O_EXCL, 0600);
    return file.is_open();
  }
  void keep(std::string_view text) {
    if (problem != 0) return;
    const std::size_t written = write_all(file.number(), text);
    if (written < text.size()) problem = errno;
    total += written;
  }
};

std::int64_t now_in_microseconds() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return std::int64_t{now.tv_sec} * 1'000'000 + now.tv_nsec / 1000;
}

// One call of a tool: the place of its output, and when it began.
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
  // Takes the first free number, so that the calls are numbered in the order of their beginnings.
  void open_output() {
    do {
      ++number;
      if (out.create(file())) return;
      if (errno == ENOENT) {
        mkdir((work + "/capture/" + what.place).c_str(), 0700);
        if (out.create(file())) return;
      }
    } while (errno == EEXIST);
    out.problem = errno;
  }
  void keep_complaint(std::string_view text) {
    if (!complaint.file.is_open() && !complaint.create(file() + std::string{complaint_suffix}))
      complaint.problem = errno;
    complaint.keep(text);
  }
};

// One write, so that lines of simultaneous calls do not mix.
void note_end(const kept_call& kept, int status) {
  const int problem = kept.out.problem != 0 ? kept.out.problem : kept.complaint.problem;
  const std::string line =
      call_line({kept.what.place, kept.what.file, kept.number, kept.begin,
                 now_in_microseconds() - kept.begin, status, kept.out.total, problem});
  const descriptor ended = open_file(kept.work + "/ended", O_WRONLY | O_APPEND | O_CREAT, 0600);
  // Without this line the call counts as one without an end. Standard error belongs to the tool, so
  // nothing is reported here.
  if (!ended.is_open()) return;
  [[maybe_unused]] const ssize_t written = write(ended.number(), line.data(), line.size());
}

// Passing on -----------------------------------------------------------------------------

struct stream {
  descriptor from;
  int to = -1;
  bool reader_is_gone = false;
};

// Passes on the bytes that have arrived. Closes the stream at its end: the tool has closed it, or
// our reader has; in that case the tool meets the same end.
template <typename Keep>
void move_some(stream& s, std::vector<char>& buffer, const Keep& keep) {
  const ssize_t got = read_some(s.from.number(), buffer.data(), buffer.size());
  if (got > 0) {
    const std::string_view text{buffer.data(), static_cast<std::size_t>(got)};
    s.reader_is_gone = write_all(s.to, text) < text.size();
    keep(text);
    if (!s.reader_is_gone) return;
  }
  s.from.close();
}

// Waits until the tool has closed both streams. A process that it left behind may hold the second
// one for ever (ssh's shared connections do): then the tool's own end counts. Returns its wait
// status.
int move_all(stream& out, stream& err, pid_t tool, kept_call& kept) {
  constexpr int interval = 20;  // milliseconds
  std::vector<char> buffer(std::size_t{1} << 17);
  int wait_status = 0;
  bool has_ended = false;
  while (out.from.is_open() || err.from.is_open()) {
    std::array<pollfd, 2> ready{{{out.from.number(), POLLIN, 0}, {err.from.number(), POLLIN, 0}}};
    const int patience = out.from.is_open() ? -1 : has_ended ? 0 : interval;
    const int count = poll(ready.data(), ready.size(), patience);
    if (count < 0) continue;
    if (ready[1].revents != 0)
      move_some(err, buffer, [&](std::string_view text) { kept.keep_complaint(text); });
    if (ready[0].revents != 0)
      move_some(out, buffer, [&](std::string_view text) { kept.out.keep(text); });
    if (count == 0 && has_ended) break;
    if (count == 0) has_ended = collect(tool, wait_status, WNOHANG) != 0;
  }
  if (!has_ended) collect(tool, wait_status);
  return wait_status;
}

// Neither a reader that goes away nor a file that may not grow must end the stand-in.
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

// The tool must find its streams and signals as if it had been called directly.
[[noreturn]] void be_tool(const std::vector<std::string>& command, int out, int err,
                          const signal_actions& actions) {
  actions.restore();
  dup2(out, STDOUT_FILENO);
  dup2(err, STDERR_FILENO);
  become_real_tool(command);
}

// Nothing of this call is kept, and the end of the recording reports that; the audit goes on.
[[noreturn]] void give_up(const std::vector<std::string>& command, kept_call& kept,
                          const signal_actions& actions) {
  if (kept.out.problem == 0) kept.out.problem = errno;
  if (kept.out.file.is_open()) unlink(kept.file().c_str());
  kept.out.file.close();
  note_end(kept, 0);
  actions.restore();
  become_real_tool(command);
}

// Ends as the tool itself would have ended for the shell.
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
  // In the lab this program is also the real tool, and with a user namespace it has the same
  // environment; only its path shows the difference.
  std::error_code ignored;
  const std::string self = std::filesystem::read_symlink("/proc/self/exe", ignored).string();
  return !self.starts_with(fmt::format("{}/real/", work));
}

int record_call(const std::vector<std::string>& command) {
  kept_call kept;
  kept.work = setting(record_folder_variable);
  kept.what = resolve(command);
  // A tool that another tool calls is part of the audit's call.
  if (!kept.what.problem.empty() || std::getenv(record_inner_variable) != nullptr)
    become_real_tool(command);
  kept.open_output();

  const signal_actions actions;
  std::optional<pipe_ends> out = try_pipe();
  std::optional<pipe_ends> err = out ? try_pipe() : std::nullopt;
  if (!out || !err) give_up(command, kept, actions);
  fcntl(out->out.number(), F_SETPIPE_SZ, static_cast<int>(pipe_size));
  const pid_t tool =
      try_start([&]() -> int { be_tool(command, out->in.number(), err->in.number(), actions); });
  if (tool < 0) give_up(command, kept, actions);
  out->in.close();
  err->in.close();
  stream from_out{std::move(out->out), STDOUT_FILENO};
  stream from_err{std::move(err->out), STDERR_FILENO};
  const int wait_status = move_all(from_out, from_err, tool, kept);
  note_end(kept, status_of(wait_status));
  return end_like(wait_status);
}

}  // namespace lab
