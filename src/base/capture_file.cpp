#include "base/capture_file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <new>
#include <string_view>
#include <system_error>
#include <vector>

#include "base/failure.h"
#include "base/held_signals.h"
#include "base/log_file.h"

namespace tessel {

namespace {

[[noreturn]] void cannot(std::string_view action, int cause) {
  throw failure(fmt::format("cannot {}: {}", action, std::strerror(cause)));
}

// Repeats a call that a signal interrupted. Returns 0 or the cause of its failure.
template <class Call>
int cause_of(Call call) {
  while (call() != 0) {
    if (errno != EINTR) return errno;
  }
  return 0;
}

int reserve(int descriptor, off_t size, off_t page) {
  const held_signals held({SIGXFSZ});
  const int cause =
      cause_of([&] { return ::fallocate(descriptor, FALLOC_FL_KEEP_SIZE, size, page); });
  if (cause == EFBIG) held.take();
  return cause;
}

// Not every file system applies the process's file size limit to a reservation. The command has the
// same limit.
bool is_limited(off_t end) {
  rlimit limit{};
  return ::getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY &&
         static_cast<rlim_t>(end) > limit.rlim_cur;
}

int cause_of_no_free_page(int descriptor, off_t page) {
  struct statvfs state {};
  // Where blocks cannot be counted either, nothing speaks against the output.
  if (cause_of([&] { return ::fstatvfs(descriptor, &state); }) != 0) return 0;
  if (state.f_blocks == 0) return 0;  // a file system without a size limit of its own
  const std::uint64_t blocks = ::geteuid() == 0 ? state.f_bfree : state.f_bavail;
  return blocks * state.f_frsize < static_cast<std::uint64_t>(page) ? ENOSPC : 0;
}

// True if a file system has no reservation, or a sandbox forbids it: that says nothing about room.
bool is_refusal(int cause) {
  return cause == EOPNOTSUPP || cause == ENOSYS || cause == EPERM || cause == EINVAL;
}

// Returns 0, or the reason why one more page might not have fitted after `size`.
//
// The page is reserved, because the number of free blocks does not show quotas and limits. It is
// released at once, so a capture never occupies more than before. A reservation can take the space
// that another worker's command needs at that moment. Therefore only one reservation exists at a
// time, and the check fails unless one more page is free besides the reserved one. Otherwise, with
// the last page reserved, the other command could meet a full file system and find room again when
// its capture is checked. With this rule neither capture counts as whole in that case, and if two
// pages are free neither check fails.
int cause_of_no_room(int descriptor, off_t size) {
  static std::mutex one_reservation;
  const off_t page = ::sysconf(_SC_PAGESIZE);
  const std::lock_guard lock(one_reservation);
  const int reserved = reserve(descriptor, size, page);
  const int counted = cause_of_no_free_page(descriptor, page);
  const int kept = cause_of([&] { return ::ftruncate(descriptor, size); });
  if (reserved != 0 && !is_refusal(reserved)) return reserved;
  if (is_limited(size + page)) return EFBIG;
  return counted != 0 ? counted : kept;
}

}  // namespace

// Everybody may write to the folder, and the audit has all rights. So it must not write through
// whatever somebody has put under this name, above all a link. A new file also makes each of two
// calls with the same name read the output of its own command. The content belongs to the router,
// so no other user may read it. Close-on-exec from the start, because other workers may be starting
// commands at this moment.
int open_capture(const std::string& path) {
  constexpr int most_attempts = 100;  // one fails if another process or a signal was faster
  for (int attempt = 0; attempt < most_attempts; ++attempt) {
    if (::unlink(path.c_str()) != 0) {
      if (errno == EINTR) continue;
      if (errno != ENOENT) return -1;
    }
    const int descriptor = open_beside_streams(path, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW, 0600);
    if (descriptor >= 0 || errno != EEXIST) return descriptor;
  }
  return -1;
}

left_captures remove_left_captures(std::string_view beginning) {
  left_captures left;
  try {
    std::vector<std::string> paths;
    std::error_code unreadable;  // then the next run removes what is left
    for (std::filesystem::directory_iterator at("/tmp", unreadable), end; !unreadable && at != end;
         at.increment(unreadable)) {
      if (at->path().filename().string().starts_with(beginning))
        paths.push_back(at->path().string());
    }
    for (const std::string& path : paths) {
      const int cause = cause_of([&] { return ::unlink(path.c_str()); });
      if (cause == 0 || cause == ENOENT || cause == EISDIR) continue;
      ++left.files;
      left.cause = std::strerror(cause);
    }
  } catch (const std::bad_alloc&) {
    // Cleaning up must not hold up the summary. The next run removes what is left.
  }
  return left;
}

capture_file::capture_file(std::string path, int descriptor)
    : path_(std::move(path)), descriptor_(descriptor) {}

capture_file::~capture_file() {
  ::close(descriptor_);
}

// A tool that cannot write all of its output stops, and its exit status does not show that, because
// many tools fail for reasons of their own. If there is still room afterwards, the tool could write
// everything. If there is none, the output may still be whole, but nobody can know.
std::size_t capture_file::whole_size() const {
  struct stat state {};
  if (::fstat(descriptor_, &state) != 0) cannot("read " + path_, errno);
  if (const int cause = cause_of_no_room(descriptor_, state.st_size)) {
    const std::string folder = path_.substr(0, path_.rfind('/'));
    cannot(fmt::format("be sure of the whole output, no room is left for it in {}", folder), cause);
  }
  return static_cast<std::size_t>(state.st_size);
}

std::string capture_file::read(std::size_t size) const {
  std::string text(size, '\0');
  std::size_t filled = 0;
  while (filled < size) {
    const ssize_t count =
        ::pread(descriptor_, text.data() + filled, size - filled, static_cast<off_t>(filled));
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) cannot("read " + path_, errno);
    if (count == 0) {
      throw failure(
          fmt::format("cannot read {}: it ends after {} of {} bytes", path_, filled, size));
    }
    filled += static_cast<std::size_t>(count);
  }
  return text;
}

}  // namespace tessel
