#include "base/log_file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <utility>

#include "base/failure.h"
#include "base/held_signals.h"
#include "base/worker.h"

namespace tessel {

namespace {

[[noreturn]] void cannot(std::string_view action, const std::string& path) {
  throw failure(fmt::format("cannot {} {}: {}", action, path, std::strerror(errno)));
}

[[noreturn]] void refuse(const std::string& path, std::string_view why) {
  throw failure(fmt::format("cannot open {}: {}", path, why));
}

std::string folder_of(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == path.npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

// Where the link at `path` leads. Nothing if there is no link.
std::optional<std::string> target_of(const std::string& path) {
  std::string target(PATH_MAX, '\0');
  const ssize_t length = ::readlink(path.c_str(), target.data(), target.size());
  if (length < 0) return std::nullopt;
  target.resize(static_cast<std::size_t>(length));
  return target.starts_with('/') ? target : folder_of(path) + "/" + target;
}

bool is_of_root_alone(const std::string& link) {
  struct stat itself {};
  struct stat folder {};
  if (::lstat(link.c_str(), &itself) != 0 || ::stat(folder_of(link).c_str(), &folder) != 0) {
    return false;
  }
  const bool group_writes = (folder.st_mode & S_IWGRP) != 0 && folder.st_gid != 0;
  const bool all_write = (folder.st_mode & S_IWOTH) != 0;
  return itself.st_uid == 0 && folder.st_uid == 0 && !group_writes && !all_write;
}

// Where the links at `path` lead in the end; nothing if others than root may have made one of them.
// The audit has all rights, so a link may lead only where root wants: an administrator sends a log
// to /dev/null, but nobody else sends it into a file of the system.
std::optional<std::string> end_of_links(std::string path) {
  constexpr int most_links = 40;  // the system follows no more
  for (int links = 0; links < most_links; ++links) {
    const auto target = target_of(path);
    if (!target) return path;
    if (!is_of_root_alone(path)) return std::nullopt;
    path = *target;
  }
  return path;
}

// Throws for a kind of file that would block, or keep no entry for the report.
void refuse_unfit(const std::string& path, mode_t mode) {
  const char* kind = nullptr;
  if (S_ISFIFO(mode)) kind = "a FIFO";
  if (S_ISSOCK(mode)) kind = "a socket";
  if (S_ISBLK(mode)) kind = "a block device";
  if (kind == nullptr) return;
  refuse(path, fmt::format("it is {}, and the audit keeps its logs in files; remove it", kind));
}

// The descriptor was opened so that a FIFO would not block; writes to a device may.
void let_block(int descriptor) {
  const int flags = ::fcntl(descriptor, F_GETFL);
  if (flags >= 0) ::fcntl(descriptor, F_SETFL, flags & ~O_NONBLOCK);
}

// Closes a descriptor and keeps errno.
void give_up(int descriptor) {
  const int cause = errno;
  if (descriptor >= 0) ::close(descriptor);
  errno = cause;
}

// Empties the file if `mode` asks for it, now that it is known to be one. Returns false and sets
// errno if that fails.
bool is_prepared(int descriptor, file_mode mode, readers allowed) {
  struct stat state {};
  if (::fstat(descriptor, &state) != 0) return false;
  if (!S_ISREG(state.st_mode)) return true;
  // A file system without permissions refuses; the log is needed all the same.
  if (allowed == readers::owner) static_cast<void>(::fchmod(descriptor, S_IRUSR | S_IWUSR));
  if (mode == file_mode::append) return true;
  while (::ftruncate(descriptor, 0) != 0) {
    if (errno != EINTR) return false;
  }
  return true;
}

// True if the last line has no end: a full disk or the end of its writer has cut it off.
bool ends_within_line(int descriptor) {
  struct stat state {};
  char last = '\n';
  return ::fstat(descriptor, &state) == 0 && S_ISREG(state.st_mode) && state.st_size > 0 &&
         ::pread(descriptor, &last, 1, state.st_size - 1) == 1 && last != '\n';
}

}  // namespace

int open_beside_streams(const std::string& path, int flags, mode_t mode) {
  int first = -1;
  do {
    first = ::open(path.c_str(), flags | O_CLOEXEC, mode);
  } while (first < 0 && errno == EINTR);
  if (first < 0 || first > STDERR_FILENO) return first;
  const int moved = ::fcntl(first, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  const int cause = errno;
  ::close(first);
  errno = cause;
  return moved;
}

int open_log(const std::string& path, int flags, mode_t mode) {
  const int careful = flags | O_NONBLOCK | O_NOCTTY;
  int descriptor = open_beside_streams(path, careful | O_NOFOLLOW, mode);
  if (descriptor < 0 && errno == ELOOP) {
    const auto end = end_of_links(path);
    if (!end) {
      refuse(path,
             "it is a link that others than root may have made; remove it, or let root own it in a "
             "folder that only root may write");
    }
    // No link that somebody puts there meanwhile is followed.
    descriptor = open_beside_streams(*end, careful | O_NOFOLLOW, mode);
  }
  struct stat state {};
  if (descriptor < 0) {
    // A socket cannot be opened.
    if (errno == ENXIO && ::stat(path.c_str(), &state) == 0) refuse_unfit(path, state.st_mode);
    return -1;
  }
  const bool is_known = ::fstat(descriptor, &state) == 0;
  let_block(descriptor);
  try {
    if (is_known) refuse_unfit(path, state.st_mode);
  } catch (const std::exception&) {
    give_up(descriptor);
    throw;
  }
  return descriptor;
}

log_file::log_file(std::string path, file_mode mode, readers allowed)
    : path_(std::move(path)), descriptor_(-1) {
  const mode_t permissions = allowed == readers::owner ? 0600 : 0644;
  const int descriptor = open_log(path_, O_RDWR | O_CREAT | O_APPEND, permissions);
  if (descriptor < 0 || !is_prepared(descriptor, mode, allowed)) {
    give_up(descriptor);
    cannot("open", path_);
  }
  descriptor_ = descriptor;
  is_torn_ = ends_within_line(descriptor_);
}

log_file::~log_file() {
  const int descriptor = descriptor_.exchange(-1);
  if (descriptor >= 0) ::close(descriptor);
}

void log_file::close() {
  const int descriptor = descriptor_.exchange(-1);
  // A close that was interrupted has still closed the descriptor.
  if (descriptor >= 0 && ::close(descriptor) != 0 && errno != EINTR) cannot("close", path_);
}

void log_file::write(std::string_view text) {
  const blocking while_the_disk_is_slow(blocking::length::brief);
  // What an earlier write has cut off must not swallow the line that follows.
  if (is_torn_) {
    write_whole("\n");
    is_torn_ = false;
  }
  write_whole(text);
}

void log_file::write_whole(std::string_view text) {
  const held_signals held({SIGXFSZ});
  const std::size_t size = text.size();
  while (!text.empty()) {
    const ssize_t done = ::write(descriptor_, text.data(), text.size());
    if (done < 0 && errno == EINTR) continue;
    if (done < 0) {
      held.take();
      if (text.size() < size) is_torn_ = true;
      cannot("write", path_);
    }
    text.remove_prefix(static_cast<std::size_t>(done));
  }
}

std::int64_t log_file::size() const {
  struct stat state {};
  if (::fstat(descriptor_, &state) != 0) cannot("read the size of", path_);
  return state.st_size + (is_torn_ ? 1 : 0);
}

bool log_file::is_gone() const {
  struct stat state {};
  return ::fstat(descriptor_, &state) == 0 && state.st_nlink == 0;
}

log_reader::~log_reader() {
  if (descriptor_ >= 0) ::close(descriptor_);
}

std::optional<std::string> log_reader::text() const {
  std::string text;
  struct stat state {};
  if (::fstat(descriptor_, &state) != 0) return std::nullopt;
  if (S_ISCHR(state.st_mode)) return text;
  for (;;) {
    constexpr std::size_t part = std::size_t{1} << 16;
    const std::size_t before = text.size();
    text.resize(before + part);
    const ssize_t count = ::read(descriptor_, text.data() + before, part);
    text.resize(before + static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    if (count < 0 && errno != EINTR) return std::nullopt;
    if (count == 0) return text;
  }
}

void log_file_slot::open(std::string_view path, file_mode mode, readers allowed) {
  auto file = std::make_shared<log_file>(std::string(path), mode, allowed);
  const std::lock_guard lock(mutex_);
  file_ = std::move(file);
  opened_once_ = true;
}

void log_file_slot::close() {
  const std::lock_guard lock(mutex_);
  const std::shared_ptr<log_file> file = std::exchange(file_, nullptr);
  // Workers take their share under the lock, so with a count of one nobody else uses the file.
  if (file.use_count() == 1) file->close();
}

bool log_file_slot::opened_once() const {
  const std::lock_guard lock(mutex_);
  return opened_once_;
}

std::shared_ptr<log_file> log_file_slot::get() const {
  const std::lock_guard lock(mutex_);
  return file_;
}

std::shared_ptr<log_file> log_file_slot::require() const {
  auto file = get();
  if (!file) throw failure("the log file is not open");
  return file;
}

}  // namespace tessel
