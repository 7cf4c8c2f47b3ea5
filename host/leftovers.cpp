#include "leftovers.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <memory>
#include <string_view>

#include "audit_files.h"
#include "command_line/one_line.h"

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

// Empty for what rm(1) removes for this user.
std::string obstacle_at(const std::string& path) {
  struct statx state {};
  if (::statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW, STATX_TYPE | STATX_UID, &state) != 0)
    return {};
  constexpr std::uint64_t kept = STATX_ATTR_IMMUTABLE | STATX_ATTR_APPEND | STATX_ATTR_MOUNT_ROOT;
  const uid_t user = ::geteuid();
  const bool is_folder = S_ISDIR(state.stx_mode);
  const bool is_removed =
      (state.stx_attributes & kept) == 0 && (user == 0 || state.stx_uid == user);
  if (!is_folder && is_removed) return {};
  return "'" + command_line::one_line(path) + "' (" +
         (is_folder ? "a folder" : "a file that cannot be removed") + " of user " +
         std::to_string(state.stx_uid) + ")";
}

// The entries of /tmp that have the name of a capture, sorted.
std::vector<std::string> paths_of_captures() {
  std::vector<std::string> found;
  const std::unique_ptr<DIR, closes_folder> opened(::opendir(capture_folder));
  if (!opened) return found;
  while (const dirent* const entry = ::readdir(opened.get()))
    if (is_name_of_capture(entry->d_name))
      found.push_back(std::string(capture_folder) + "/" + entry->d_name);
  std::sort(found.begin(), found.end());
  return found;
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
  std::vector<std::string> found = paths_of_captures();
  std::erase_if(found, [&](const std::string& path) { return !is_capture_since(path, began); });
  return found;
}

std::vector<std::string> remove_captures_since(std::time_t began) {
  std::vector<std::string> left;
  for (const std::string& path : captures_since(began))
    if (::unlink(path.c_str()) != 0 && errno != ENOENT) left.push_back(path);
  return left;
}

std::string captures_in_the_way() {
  constexpr std::size_t most = 5;
  std::string text;
  std::size_t count = 0;
  for (const std::string& path : paths_of_captures()) {
    const std::string obstacle = obstacle_at(path);
    if (obstacle.empty() || ++count > most) continue;
    text += (text.empty() ? "" : ", ") + obstacle;
  }
  return count > most ? text + " and " + std::to_string(count - most) + " more" : text;
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
