#include "support_file.h"

#include <fcntl.h>
#include <gnu/libc-version.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <new>
#include <string_view>
#include <system_error>
#include <utility>

#include "audit_files.h"
#include "command_line/one_line.h"
#include "ending_signals.h"
#include "packing/sha256.h"
#include "packing/tar_writer.h"

namespace tessel_host {

namespace {

namespace fs = std::filesystem;

constexpr const char* top_folder = "tessel-support/";
constexpr int compression_level = 3;  // the logs of a large router are packed in a second or two

[[noreturn]] void refuse(const std::string& path, const std::string& cause,
                         const char* remedy = "name another one with --support-file FILE") {
  throw support_error("cannot write the support file '" + command_line::one_line(path) +
                      "': " + cause + "; " + remedy);
}

// What is replaced must be a file of this user and of this name alone.
void refuse_what_is_there(const std::string& path) {
  struct stat state {};
  if (::lstat(path.c_str(), &state) != 0) {
    if (errno != ENOENT) refuse(path, cause_of(errno));
    return;
  }
  if (S_ISLNK(state.st_mode)) refuse(path, "it is a link");
  if (S_ISDIR(state.st_mode)) refuse(path, cause_of(EISDIR));
  if (!S_ISREG(state.st_mode)) refuse(path, "it is not a file");
  if (state.st_uid != ::geteuid()) refuse(path, "it belongs to another user");
  if (state.st_nlink > 1) refuse(path, "it has a second name, a hard link");
}

// Holds back the signals that would end the process, so that no half file stays.
class delayed_end {
 public:
  delayed_end() {
    sigemptyset(&ending_);
    for (const int number : ending_signals) sigaddset(&ending_, number);
    ::sigprocmask(SIG_BLOCK, &ending_, &before_);
    struct sigaction ignore {};
    ignore.sa_handler = SIG_IGN;
    ::sigaction(SIGXFSZ, &ignore, &size_before_);
  }
  ~delayed_end() {
    ::sigaction(SIGXFSZ, &size_before_, nullptr);
    ::sigprocmask(SIG_SETMASK, &before_, nullptr);
  }
  delayed_end(const delayed_end&) = delete;
  delayed_end& operator=(const delayed_end&) = delete;

  // True if the process would have ended by now.
  bool is_due() const { return is_end_held_back(before_); }

 private:
  sigset_t ending_{};
  sigset_t before_{};
  struct sigaction size_before_ {};
};

// A new file beside the target, which goes away unless it is put in its place. It has no name until
// then, so that nothing stays of it even if the process is killed; only where the file system or a
// missing /proc does not allow that, it has one beginning with a dot.
class file_beside {
 public:
  explicit file_beside(const std::string& path) : path_(path) {
    const fs::path whole(path);
    const fs::path folder = whole.has_parent_path() ? whole.parent_path() : fs::path(".");
    hidden_ = whole.parent_path() / ("." + whole.filename().string() + ".");
    descriptor_ = ::open(folder.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0600);
    if (descriptor_ >= 0 && ::access(in_proc().c_str(), F_OK) == 0) return;
    if (descriptor_ >= 0) ::close(descriptor_);
    name_ = hidden_ + "XXXXXX";
    descriptor_ = ::mkostemp(name_.data(), O_CLOEXEC);
    if (descriptor_ < 0) refuse(path_, cause_of(errno));
  }
  ~file_beside() {
    ::close(descriptor_);
    if (!name_.empty()) ::unlink(name_.c_str());
  }
  file_beside(const file_beside&) = delete;
  file_beside& operator=(const file_beside&) = delete;

  // Also for nothing: what is packed may be much before any of it is to be written.
  void write(std::string_view bytes) {
    if (end_.is_due()) refuse(path_, "a signal ends the host", "start it again");
    while (!bytes.empty()) {
      const ssize_t count = ::write(descriptor_, bytes.data(), bytes.size());
      if (count < 0 && errno == EINTR) continue;
      if (count < 0) fail();
      size_ += static_cast<std::uint64_t>(count);
      bytes.remove_prefix(static_cast<std::size_t>(count));
    }
  }

  void put_in_place() {
    if (::fsync(descriptor_) != 0) fail();
    refuse_what_is_there(path_);
    if (name_.empty() && !give_name()) return;
    if (::rename(name_.c_str(), path_.c_str()) != 0) fail();
    name_.clear();
  }

  std::uint64_t size() const { return size_; }

 private:
  std::string in_proc() const { return "/proc/self/fd/" + std::to_string(descriptor_); }

  bool link_to(const std::string& name) const {
    return ::linkat(AT_FDCWD, in_proc().c_str(), AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) == 0;
  }

  // Only a rename replaces a file. Returns false if there is none to replace: then it is in place.
  bool give_name() {
    if (link_to(path_)) return false;
    for (int number = 0; errno == EEXIST; ++number) {
      name_ = hidden_ + std::to_string(::getpid()) + "-" + std::to_string(number);
      if (link_to(name_)) return true;
    }
    name_.clear();
    fail();
  }

  [[noreturn]] void fail() const {
    refuse(path_, cause_of(errno),
           "make room there or name another place with --support-file FILE");
  }

  delayed_end end_;
  std::string path_;
  std::string hidden_;  // how a name for it begins
  std::string name_;    // empty while it has none, and when it is in place
  int descriptor_ = -1;
  std::uint64_t size_ = 0;
};

// A descriptor for reading; closed at its end.
class source {
 public:
  explicit source(const std::string& file, int more_flags = O_NOFOLLOW)
      : descriptor_(
            ::open(file.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC | more_flags)) {
    struct stat state {};
    if (descriptor_ < 0 || ::fstat(descriptor_, &state) != 0) {
      cause_ = cause_of(errno);
    } else if (!S_ISREG(state.st_mode)) {
      cause_ = "it is not a file";
    }
    size_ = static_cast<std::uint64_t>(state.st_size);
  }
  ~source() {
    if (descriptor_ >= 0) ::close(descriptor_);
  }
  source(const source&) = delete;
  source& operator=(const source&) = delete;

  const std::string& cause() const { return cause_; }  // empty if it can be read
  std::uint64_t size() const { return size_; }

  // The next piece, at most `most` bytes. Empty at the end; an error is one.
  std::string_view next(std::uint64_t most) {
    const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(most, buffer_.size()));
    ssize_t count = 0;
    do {
      count = ::pread(descriptor_, buffer_.data(), wanted, at_);
    } while (count < 0 && errno == EINTR);
    at_ += std::max<ssize_t>(count, 0);
    return {buffer_.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0))};
  }

 private:
  int descriptor_;
  off_t at_ = 0;
  std::uint64_t size_ = 0;
  std::string cause_;
  std::vector<char> buffer_ = std::vector<char>(std::size_t{1} << 17);
};

std::string sha256_of(source& file) {
  packing::sha256 sum;
  for (std::string_view piece; !(piece = file.next(file.size())).empty();) sum.add(piece);
  return sum.digits();
}

class support_archive {
 public:
  explicit support_archive(file_beside& to)
      : tar_([&to](std::string_view bytes) { to.write(bytes); }, compression_level) {}

  // What cannot be read is left out, and noted.
  void add_file(const std::string& name, const std::string& file, int more_flags = O_NOFOLLOW) {
    source from(file, more_flags);
    if (!from.cause().empty()) return leave_out(file, from.cause());
    begin(name, from.size());
    std::uint64_t left = from.size();
    for (std::string_view piece; left > 0 && !(piece = from.next(left)).empty();
         left -= piece.size())
      put(piece);
    if (left > 0) notes_.push_back(file + ": its last " + std::to_string(left) + " bytes");
    // The size is in the head already.
    for (const std::string zeros(4096, '\0'); left > 0; left -= std::min<std::uint64_t>(left, 4096))
      put(std::string_view(zeros).substr(0, static_cast<std::size_t>(left)));
    end(name, from.size());
  }

  void add_text(const std::string& name, std::string_view text) {
    begin(name, text.size());
    put(text);
    end(name, text.size());
  }

  void leave_out(const std::string& file, const std::string& cause) {
    notes_.push_back(file + ": " + cause);
  }

  void finish() {
    const std::string manifest = std::move(manifest_);
    add_text("manifest", manifest);
    tar_.finish();
  }

  const std::vector<std::string>& left_out() const { return notes_; }
  std::size_t files() const { return files_; }

 private:
  void begin(const std::string& name, std::uint64_t size) {
    sum_ = {};
    tar_.begin_entry(top_folder + name, size);
  }
  void put(std::string_view piece) {
    sum_.add(piece);
    tar_.put(piece);
  }
  void end(const std::string& name, std::uint64_t size) {
    tar_.end_entry();
    ++files_;
    manifest_ += sum_.digits() + " " + std::to_string(size) + " " + command_line::one_line(name);
    manifest_ += '\n';
  }

  packing::tar_writer tar_;
  packing::sha256 sum_;
  std::string manifest_;
  std::vector<std::string> notes_;
  std::size_t files_ = 0;
};

// The logs and their backups.
void add_logs(support_archive& archive) {
  std::vector<std::string> names;
  std::error_code error;
  for (fs::directory_iterator at(log_folder, error), end; !error && at != end; at.increment(error))
    if (is_name_of_log(at->path().filename().string()))
      names.push_back(at->path().filename().string());
  if (error) archive.leave_out(log_folder, error.message());
  std::sort(names.begin(), names.end());
  for (const std::string& name : names)
    archive.add_file("logs/" + name, std::string(log_folder) + "/" + name);
}

std::string utc(std::time_t time) {
  std::tm parts{};
  char text[32] = "";
  if (::gmtime_r(&time, &parts) != nullptr)
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
  return text;
}

std::string library_shown(const std::string& file) {
  source library(file, 0);
  if (!library.cause().empty()) return command_line::one_line(file) + ", " + library.cause();
  return command_line::one_line(file) + ", " + std::to_string(library.size()) + " bytes, SHA-256 " +
         sha256_of(library);
}

std::string machine_shown() {
  utsname names{};
  if (::uname(&names) != 0) return cause_of(errno);
  return std::string(names.nodename) + ", " + names.sysname + " " + names.release + " " +
         names.version + " " + names.machine + ", C library " + ::gnu_get_libc_version();
}

// "MemAvailable:    1234 kB" of /proc/meminfo.
std::string memory_shown() {
  std::ifstream lines("/proc/meminfo");
  std::string shown;
  for (std::string line; std::getline(lines, line);)
    if (line.starts_with("MemTotal:") || line.starts_with("MemAvailable:"))
      shown += (shown.empty() ? "" : ", ") + line;
  return shown;
}

std::string space_shown(const char* folder) {
  constexpr unsigned long long mebibyte = 1024ULL * 1024;
  struct statvfs state {};
  if (::statvfs(folder, &state) != 0) return std::string(folder) + " " + cause_of(errno);
  return std::string(folder) + " " + std::to_string(state.f_bavail * state.f_frsize / mebibyte) +
         " of " + std::to_string(state.f_blocks * state.f_frsize / mebibyte) + " MiB free";
}

std::string about(const run_facts& facts, const std::vector<std::string>& left_out) {
  std::string text = "format     1\n";
  const auto add = [&text](std::string_view key, const std::string& value) {
    text +=
        std::string(key) + std::string(11 - key.size(), ' ') + command_line::one_line(value) + "\n";
  };
  add("program", facts.program);
  add("library", library_shown(facts.library));
  add("command", facts.command_line);
  add("node id", std::to_string(facts.node_id));
  add("began", utc(facts.began));
  add("packed", utc(std::time(nullptr)));
  add("end", facts.end);
  add("machine", machine_shown());
  add("processors", std::to_string(::sysconf(_SC_NPROCESSORS_ONLN)));
  add("memory", memory_shown());
  add("space", space_shown(log_folder) + ", " + space_shown(capture_folder));
  for (const std::string& each : left_out) add("left out", each);
  return text;
}

}  // namespace

void check_support_target(const std::string& path, const std::vector<std::string>& others) {
  // One beside it has a longer name for a moment.
  constexpr std::size_t longest_name = NAME_MAX - 20;
  if (fs::path(path).filename().string().size() > longest_name)
    refuse(path, cause_of(ENAMETOOLONG));
  if (const std::string cause = why_not_ours(path); !cause.empty()) refuse(path, cause);
  for (const std::string& other : others)
    if (is_same_file(path, other)) refuse(path, "another option names the same file");
  refuse_what_is_there(path);
  const file_beside tried(path);
}

support_contents make_support_file(const std::string& path, const std::string& journal,
                                   const std::vector<std::string>& captures, const run_facts& facts,
                                   const std::function<std::string()>& doctor) try {
  file_beside file(path);
  support_archive archive(file);
  add_logs(archive);
  // A journal in memory has a name in /proc, which is a link.
  const bool is_in_memory = journal.starts_with("/proc/");
  if (!journal.empty()) archive.add_file("journal.jsonl", journal, is_in_memory ? 0 : O_NOFOLLOW);
  for (const std::string& capture : captures)
    archive.add_file("captures/" + fs::path(capture).filename().string(), capture);
  if (doctor) archive.add_text("doctor.txt", doctor());
  archive.add_text("about", about(facts, archive.left_out()));
  archive.finish();
  file.put_in_place();
  return {archive.files(), file.size()};
} catch (const packing::packing_error& error) {
  refuse(path, error.what());
} catch (const std::bad_alloc&) {
  refuse(path, "out of memory", "end what needs memory and start again");
}

}  // namespace tessel_host
