#include "base/log_file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "base/failure.h"
#include "base/worker.h"

namespace tessel {

namespace {

[[noreturn]] void cannot(std::string_view action, const std::string& path) {
  throw failure(fmt::format("cannot {} {}: {}", action, path, std::strerror(errno)));
}

}  // namespace

int open_beside_streams(const std::string& path, int flags, mode_t mode) {
  const int first = ::open(path.c_str(), flags | O_CLOEXEC, mode);
  if (first < 0 || first > STDERR_FILENO) return first;
  const int moved = ::fcntl(first, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  const int cause = errno;
  ::close(first);
  errno = cause;
  return moved;
}

log_file::log_file(std::string path, file_mode mode) : path_(std::move(path)), descriptor_(-1) {
  const int emptied = mode == file_mode::truncate ? O_TRUNC : 0;
  descriptor_ = open_beside_streams(path_, O_RDWR | O_CREAT | O_APPEND | emptied, 0644);
  if (descriptor_ < 0) cannot("open", path_);
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
  while (!text.empty()) {
    const ssize_t done = ::write(descriptor_, text.data(), text.size());
    if (done < 0 && errno == EINTR) continue;
    if (done < 0) cannot("write", path_);
    text.remove_prefix(static_cast<std::size_t>(done));
  }
}

std::int64_t log_file::size() const {
  struct stat state {};
  if (::fstat(descriptor_, &state) != 0) cannot("read the size of", path_);
  return state.st_size;
}

bool log_file::is_gone() const {
  struct stat state {};
  return ::fstat(descriptor_, &state) == 0 && state.st_nlink == 0;
}

void log_file_slot::open(std::string_view path, file_mode mode) {
  auto file = std::make_shared<log_file>(std::string(path), mode);
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
