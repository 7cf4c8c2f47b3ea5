#include "base/journal.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <condition_variable>
#include <csignal>
#include <cstdlib>
#include <mutex>
#include <system_error>
#include <utility>
#include <vector>

#include "base/held_signals.h"
#include "base/journal_line.h"
#include "base/log_file.h"
#include "base/worker.h"

namespace tessel {

namespace {

constexpr const char* variable = "TESSEL_JOURNAL";
constexpr int format = 1;
constexpr const char* timeout_key = ",\"timeout\":true";

// Of one text in a line, in bytes. With them every line fits, whatever the texts are.
constexpr std::size_t longest_command = 2048;
constexpr std::size_t longest_failure = 1024;
constexpr std::size_t longest_name = 256;
constexpr std::size_t longest_rest = 256;  // keys and numbers
static_assert(longest_command + longest_failure + 2 * longest_name + longest_rest <=
              longest_journal_line);

// The lines that wait while a disk is slow. More are lost.
constexpr std::size_t waiting_bytes = std::size_t{64} * 1024;

// How long the end of a run waits for another thread that is writing.
constexpr std::chrono::seconds patience_at_end{1};

// The longest time that a host may give a command, a day.
constexpr int longest_timeout = 24 * 60 * 60;

std::optional<int> read_number(std::string_view text) {
  int number = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc{} || stop != end) return std::nullopt;
  return number;
}

std::optional<asked_journal> read_asked(std::string_view text) {
  constexpr std::string_view limit = " timeout=";
  asked_journal asked;
  const std::size_t descriptor_end = text.find(limit);
  if (descriptor_end != text.npos) {
    const auto timeout = read_number(text.substr(descriptor_end + limit.size()));
    if (!timeout || *timeout < 1 || *timeout > longest_timeout) return std::nullopt;
    asked.timeout = std::chrono::seconds(*timeout);
  }
  const auto descriptor = read_number(text.substr(0, descriptor_end));
  if (!descriptor || *descriptor <= STDERR_FILENO) return std::nullopt;
  asked.descriptor = *descriptor;
  return asked;
}

enum class target { none, file, socket, reopened };

target target_of(int descriptor) {
  struct stat state {};
  const int flags = ::fcntl(descriptor, F_GETFL);
  if (flags < 0 || (flags & O_PATH) != 0 || ::fstat(descriptor, &state) != 0) return target::none;
  if (S_ISSOCK(state.st_mode)) return target::socket;
  if ((flags & O_ACCMODE) == O_RDONLY) return target::none;
  if (S_ISREG(state.st_mode)) return target::file;
  return S_ISFIFO(state.st_mode) || S_ISCHR(state.st_mode) ? target::reopened : target::none;
}

int own_descriptor(int given, target kind) {
  if (kind == target::none) return -1;
  if (kind != target::reopened) return ::fcntl(given, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  return open_beside_streams(fmt::format("/proc/self/fd/{}", given),
                             O_WRONLY | O_NONBLOCK | O_NOCTTY, 0);
}

// Numbers, without allocating.
template <class... Numbers>
void add_numbers(journal_line& line, fmt::format_string<Numbers...> form, Numbers... numbers) {
  std::array<char, 96> bytes{};
  const auto done =
      fmt::format_to_n(bytes.data(), bytes.size(), form, std::forward<Numbers>(numbers)...);
  line.add({bytes.data(), static_cast<std::size_t>(done.out - bytes.data())});
}

void add_seconds(journal_line& line, std::string_view key,
                 std::chrono::steady_clock::duration time) {
  constexpr std::int64_t million = 1'000'000;
  const std::int64_t all = std::chrono::duration_cast<std::chrono::microseconds>(time).count();
  line.add(key);
  add_numbers(line, "{}.{:06}", all / million, all % million);
}

// The present time in UTC. By the calendar of the language: the C library's would read files.
void add_time(journal_line& line) {
  using namespace std::chrono;
  const auto now = floor<milliseconds>(system_clock::now());
  const auto today = floor<days>(now);
  const year_month_day date(today);
  const hh_mm_ss clock(now - today);
  add_numbers(line, ",\"time\":\"{:04}-{:02}-{:02}T", static_cast<int>(date.year()),
              static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()));
  add_numbers(line, "{:02}:{:02}:{:02}.{:03}Z\"", clock.hours().count(), clock.minutes().count(),
              clock.seconds().count(), clock.subseconds().count());
}

// `key` with a text, or with null if that is empty.
void add_text(journal_line& line, std::string_view key, std::string_view text, std::size_t most) {
  line.add(key);
  if (text.empty()) {
    line.add("null");
  } else {
    line.add_quoted(text, most);
  }
}

void add_outcome(journal_line& line, std::optional<int> wait_status) {
  if (wait_status && WIFSIGNALED(*wait_status)) {
    add_numbers(line, ",\"signal\":{}", WTERMSIG(*wait_status));
  } else if (wait_status && WIFEXITED(*wait_status)) {
    add_numbers(line, ",\"status\":{}", WEXITSTATUS(*wait_status));
  } else {
    line.add(",\"status\":null");
  }
}

}  // namespace

asked_journal take_asked_journal() noexcept {
  const char* const set = std::getenv(variable);
  if (set == nullptr) return {};
  const std::optional<asked_journal> asked = read_asked(set);
  ::unsetenv(variable);
  if (!asked) return {};
  const int flags = ::fcntl(asked->descriptor, F_GETFD);
  if (flags < 0 || ::fcntl(asked->descriptor, F_SETFD, flags | FD_CLOEXEC) != 0) return {};
  return *asked;
}

struct run_journal::room {
  explicit room(target what) : kind(what) {
    waiting.reserve(waiting_bytes);
    writing.reserve(waiting_bytes);
  }

  // Writes a line that `fill` completes, or leaves it to the thread that is writing.
  template <class Fill>
  void add(std::string_view event, Fill fill, bool is_last = false) noexcept;

  std::uint64_t next_id() noexcept {
    const std::lock_guard lock(mutex);
    return ++ids;
  }
  std::chrono::steady_clock::duration now() const {
    return std::chrono::steady_clock::now() - begun;
  }

  void keep(std::string_view line);
  void write_waiting(std::unique_lock<std::mutex>& lock);
  void write_lines();
  void write_line(std::string_view line);
  ssize_t write_part(std::string_view part) const;
  void end() noexcept;

  const target kind;
  std::mutex mutex;
  std::condition_variable idle;
  int descriptor = -1;  // closed under the mutex, when nobody writes
  // Guarded by the mutex.
  std::uint64_t number = 0;
  std::uint64_t ids = 0;
  std::chrono::steady_clock::time_point begun = std::chrono::steady_clock::now();
  std::vector<char> waiting;  // lines, each between two line feeds
  bool is_writing = false;
  bool is_complete = false;  // no more lines are taken
  bool is_ended = false;
  // Used only by the thread that has set is_writing.
  std::vector<char> writing;
  bool is_torn = false;
};

template <class Fill>
void run_journal::room::add(std::string_view event, Fill fill, bool is_last) noexcept {
  try {
    std::unique_lock lock(mutex);
    if (is_complete) return;
    // Not behind the writing, which opens the mutex: a late worker must not come after this line.
    is_complete = is_last;
    journal_line line;
    add_numbers(line, "{{\"n\":{},\"event\":", ++number);
    line.add_quoted(event, longest_name);
    fill(line);
    if (line.is_cut()) line.add(",\"cut\":true");
    line.add("}");
    keep(line.text());
    write_waiting(lock);
  } catch (const std::exception&) {
    // Nothing above throws; whatever it was, it does not cost the run.
  }
}

void run_journal::room::keep(std::string_view line) {
  if (waiting.size() + line.size() + 2 > waiting_bytes) return;
  waiting.push_back('\n');
  waiting.insert(waiting.end(), line.begin(), line.end());
  waiting.push_back('\n');
}

// One thread writes at a time, without the lock, also what the others add meanwhile: so the lines
// stay in order and nobody else waits for the disk.
void run_journal::room::write_waiting(std::unique_lock<std::mutex>& lock) {
  if (is_writing) return;
  is_writing = true;
  while (!waiting.empty()) {
    std::swap(waiting, writing);
    lock.unlock();
    write_lines();
    lock.lock();
  }
  is_writing = false;
  idle.notify_all();
  if (is_ended) end();
}

void run_journal::room::write_lines() {
  std::string_view left(writing.data(), writing.size());
  while (!left.empty()) {
    const std::size_t size = left.find('\n', 1) + 1;
    write_line(left.substr(0, size));
    left.remove_prefix(size);
  }
  writing.clear();
}

// `line` begins with a line feed, which ends the part of an earlier line.
void run_journal::room::write_line(std::string_view line) {
  std::optional<blocking> while_the_disk_is_slow;
  if (kind == target::file) while_the_disk_is_slow.emplace(blocking::length::brief);
  const held_signals held({SIGPIPE, SIGXFSZ});
  if (!is_torn) line.remove_prefix(1);
  while (!line.empty()) {
    const ssize_t done = write_part(line);
    if (done < 0 && errno == EINTR) continue;
    if (done <= 0) return held.take();
    is_torn = line[static_cast<std::size_t>(done) - 1] != '\n';
    line.remove_prefix(static_cast<std::size_t>(done));
  }
}

ssize_t run_journal::room::write_part(std::string_view part) const {
  if (kind != target::socket) return ::write(descriptor, part.data(), part.size());
  return ::send(descriptor, part.data(), part.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
}

void run_journal::room::end() noexcept {
  is_complete = is_ended = true;
  if (is_writing || descriptor < 0) return;
  ::close(descriptor);
  descriptor = -1;
}

run_journal::run_journal() = default;
run_journal::~run_journal() = default;

void run_journal::open(int descriptor) noexcept {
  if (descriptor < 0) return;
  try {
    auto made = std::make_unique<room>(target_of(descriptor));
    made->descriptor = own_descriptor(descriptor, made->kind);
    if (made->descriptor >= 0) room_ = std::move(made);
  } catch (const std::exception&) {
    // No memory: no journal.
  }
}

void run_journal::begin(std::uint32_t node_id) noexcept {
  if (!room_) return;
  {
    const std::lock_guard lock(room_->mutex);
    room_->begun = std::chrono::steady_clock::now();
  }
  room_->add("run", [&](journal_line& line) {
    add_numbers(line, ",\"format\":{}", format);
    line.add(",\"version\":\"" TESSEL_VERSION "\"");
    add_time(line);
    add_numbers(line, ",\"pid\":{},\"node_id\":{}", ::getpid(), node_id);
  });
}

void run_journal::finish() noexcept {
  if (!room_) return;
  room_->add(
      "finished", [this](journal_line& line) { add_seconds(line, ",\"at\":", room_->now()); },
      true);
  close();
}

void run_journal::close() noexcept {
  if (!room_) return;
  std::unique_lock lock(room_->mutex);
  room_->idle.wait_for(lock, patience_at_end, [this] { return !room_->is_writing; });
  room_->end();
}

journaled_command::journaled_command(const run_journal& journal, std::string_view node,
                                     std::string_view npu) noexcept
    : room_(journal.room_.get()), node_(node), npu_(npu) {}

void journaled_command::add_subject(journal_line& line) const {
  if (shell_ != 0) {
    add_numbers(line, ",\"pid\":{}", shell_);
  } else {
    line.add(",\"pid\":null");
  }
  add_text(line, ",\"node\":", node_, longest_name);
  if (!npu_.empty()) add_text(line, ",\"npu\":", npu_, longest_name);
  line.add(",\"command\":");
  line.add_quoted(line_, longest_command);
}

void journaled_command::add_end(journal_line& line) const {
  add_numbers(line, ",\"id\":{}", id_);
  add_seconds(line, ",\"at\":", room_->now());
  add_subject(line);
  if (duration_) {
    add_seconds(line, ",\"seconds\":", *duration_);
  } else {
    line.add(",\"seconds\":null");
  }
}

void journaled_command::start(pid_t shell, std::string_view line) noexcept {
  if (room_ == nullptr) return;
  began_ = clock::now();
  shell_ = shell;
  line_ = line;
  id_ = room_->next_id();
  room_->add("start", [this](journal_line& start) {
    add_numbers(start, ",\"id\":{}", id_);
    add_seconds(start, ",\"at\":", room_->now());
    add_subject(start);
  });
}

void journaled_command::note_status(std::optional<int> wait_status) noexcept {
  if (room_ == nullptr) return;
  duration_ = clock::now() - began_;
  wait_status_ = wait_status;
}

void journaled_command::end(std::size_t bytes) noexcept {
  if (room_ == nullptr) return;
  room_->add("end", [this, bytes](journal_line& line) {
    add_end(line);
    add_outcome(line, wait_status_);
    add_numbers(line, ",\"bytes\":{}", bytes);
    if (is_timed_out_) line.add(timeout_key);
  });
}

void journaled_command::fail(std::string_view line, std::string_view why) noexcept {
  if (room_ == nullptr) return;
  if (id_ == 0) {
    line_ = line;
    id_ = room_->next_id();
  }
  room_->add("end", [this, why](journal_line& end) {
    add_end(end);
    end.add(",\"failed\":");
    end.add_quoted(why, longest_failure);
    if (is_timed_out_) end.add(timeout_key);
  });
}

}  // namespace tessel
