#include "leftovers.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>
#include <string_view>

#include "audit_files.h"

namespace tessel_host {

namespace {

struct closes_folder {
  void operator()(DIR* opened) const { ::closedir(opened); }
};

bool is_name_of_capture(std::string_view name) {
  return name.starts_with("tessel_") && name.ends_with(".log");
}

// The time of the last change cannot be set by a user, as that of the last write can. Some file
// systems keep only its seconds.
bool is_capture_since(const std::string& path, std::time_t began) {
  struct stat state {};
  return ::lstat(path.c_str(), &state) == 0 && S_ISREG(state.st_mode) &&
         state.st_uid == ::geteuid() && state.st_ctim.tv_sec >= began;
}

// The number of bytes up to the last line feed.
off_t end_of_whole_lines(int descriptor, off_t size) {
  std::array<char, 65536> block{};
  while (size > 0) {
    const off_t begin = std::max<off_t>(0, size - static_cast<off_t>(block.size()));
    const ssize_t count =
        ::pread(descriptor, block.data(), static_cast<std::size_t>(size - begin), begin);
    if (count <= 0) return size;
    const std::string_view text(block.data(), static_cast<std::size_t>(count));
    const std::size_t last = text.rfind('\n');
    if (last != text.npos) return begin + static_cast<off_t>(last) + 1;
    size = begin;
  }
  return 0;
}

}  // namespace

std::vector<std::string> captures_since(std::time_t began) {
  std::vector<std::string> found;
  const std::unique_ptr<DIR, closes_folder> opened(::opendir(capture_folder));
  if (!opened) return found;
  while (const dirent* const entry = ::readdir(opened.get())) {
    const std::string path = std::string(capture_folder) + "/" + entry->d_name;
    if (is_name_of_capture(entry->d_name) && is_capture_since(path, began)) found.push_back(path);
  }
  std::sort(found.begin(), found.end());
  return found;
}

std::vector<std::string> remove_captures_since(std::time_t began) {
  std::vector<std::string> left;
  for (const std::string& path : captures_since(began))
    if (::unlink(path.c_str()) != 0 && errno != ENOENT) left.push_back(path);
  return left;
}

bool drop_torn_line(const std::string& path) {
  const int descriptor =
      ::open(path.c_str(), O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  if (descriptor < 0) return errno == ENOENT;
  bool is_whole = false;
  struct stat state {};
  if (::fstat(descriptor, &state) == 0 && S_ISREG(state.st_mode) && state.st_uid == ::geteuid()) {
    const off_t end = end_of_whole_lines(descriptor, state.st_size);
    is_whole = end == state.st_size || ::ftruncate(descriptor, end) == 0;
  }
  ::close(descriptor);
  return is_whole;
}

}  // namespace tessel_host
