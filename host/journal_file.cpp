#include "journal_file.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <new>
#include <string_view>
#include <system_error>

#include "audit_files.h"
#include "command_line/one_line.h"

namespace tessel_host {

namespace {

[[noreturn]] void refuse(const std::string& path, const std::string& cause) {
  throw journal_error("cannot write the journal '" + command_line::one_line(path) + "': " + cause +
                      "; name another file with --journal FILE");
}

constexpr int longest_timeout = 24 * 60 * 60;

std::optional<int> whole_number(std::string_view text) {
  int number = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  return error == std::errc{} && stop == end ? std::optional(number) : std::nullopt;
}

// A descriptor that is closed unless it is kept.
class opened {
 public:
  explicit opened(int number) : number_(number) {}
  ~opened() {
    if (number_ >= 0) ::close(number_);
  }
  opened(const opened&) = delete;
  opened& operator=(const opened&) = delete;
  int number() const { return number_; }

 private:
  int number_;
};

}  // namespace

int open_journal_file(const std::string& path) {
  // The audit removes /tmp/tessel*, and its logs hold the findings of earlier runs.
  if (const std::string cause = why_not_ours(path); !cause.empty()) refuse(path, cause);
  // Not emptied before it is known to be a file. Appending, so that whoever empties it meanwhile
  // does not get a gap.
  const opened first(::open(
      path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC,
      S_IRUSR | S_IWUSR));
  struct stat state {};
  if (first.number() < 0 || ::fstat(first.number(), &state) != 0) refuse(path, cause_of(errno));
  if (!S_ISREG(state.st_mode)) refuse(path, "it is not a file");
  if (state.st_uid != ::geteuid()) refuse(path, "it belongs to another user");
  if (state.st_nlink > 1) refuse(path, "it has a second name, a hard link");
  if (::fchmod(first.number(), S_IRUSR | S_IWUSR) != 0 || ::ftruncate(first.number(), 0) != 0)
    refuse(path, cause_of(errno));
  // The library takes no standard stream, not even where the host was started without them.
  const int kept = ::fcntl(first.number(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  if (kept < 0) refuse(path, cause_of(errno));
  return kept;
}

int open_journal_in_memory() {
  const opened first(::memfd_create("tessel_journal", MFD_CLOEXEC));
  const opened nowhere(::open("/dev/null", O_WRONLY | O_CLOEXEC));
  const int chosen = first.number() >= 0 ? first.number() : nowhere.number();
  return ::fcntl(chosen, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
}

inherited_wish inherited_journal() {
  constexpr std::string_view limit = " timeout=";
  const char* const set = std::getenv("TESSEL_JOURNAL");
  if (set == nullptr) return {};
  const std::string_view text(set);
  const std::size_t at = text.find(limit);
  inherited_wish wish;
  const auto number = whole_number(text.substr(0, at));
  if (!number || *number <= STDERR_FILENO || ::fcntl(*number, F_GETFD) < 0) return {};
  if (at != text.npos) {
    const auto seconds = whole_number(text.substr(at + limit.size()));
    if (!seconds || *seconds < 1 || *seconds > longest_timeout) return {};
    wish.command_timeout = std::chrono::seconds(*seconds);
  }
  wish.descriptor = *number;
  return wish;
}

std::unique_ptr<journal_tail> follow_journal(int descriptor, bool is_kept) {
  struct stat state {};
  if (descriptor < 0 || ::fstat(descriptor, &state) != 0 || !S_ISREG(state.st_mode)) return nullptr;
  // Beside the one for writing. A file in memory has no other name.
  const bool is_nameless = state.st_nlink == 0;
  const std::string path = "/proc/self/fd/" + std::to_string(descriptor);
  const int reading = ::open(path.c_str(), (is_nameless ? O_RDWR : O_RDONLY) | O_CLOEXEC);
  if (reading < 0) return nullptr;
  const bool appends = (::fcntl(descriptor, F_GETFL) & O_APPEND) != 0;
  const off_t from = appends ? state.st_size : ::lseek(descriptor, 0, SEEK_CUR);
  return std::make_unique<journal_tail>(reading, from, is_nameless && !is_kept);
}

void offer_journal(int descriptor, std::optional<std::chrono::seconds> command_timeout) {
  std::string value = std::to_string(descriptor);
  if (command_timeout) value += " timeout=" + std::to_string(command_timeout->count());
  if (::setenv("TESSEL_JOURNAL", value.c_str(), 1) != 0) throw std::bad_alloc();
}

}  // namespace tessel_host
