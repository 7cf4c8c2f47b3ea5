#include "lab/base/files.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>

#include "lab/base/error.h"

namespace lab {

namespace fs = std::filesystem;

namespace {

[[noreturn]] void fail_to_read(const fs::path& file, int error) {
  throw lab_error(fmt::format("{}: cannot be read: {}", file.string(),
                              error == 0 ? "unknown cause" : std::strerror(error)));
}

}  // namespace

std::string read_whole(const fs::path& file) {
  errno = 0;
  std::ifstream in(file, std::ios::binary);
  std::ostringstream text;
  if (in.peek() != std::ifstream::traits_type::eof()) text << in.rdbuf();
  if (!in.is_open() || in.bad() || text.fail()) fail_to_read(file, errno);
  return std::move(text).str();
}

std::string read_own(const fs::path& file) {
  // A pipe without a writer would hold up whoever opens it.
  const int fd = open(file.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
  struct stat status {};
  if (fd < 0) fail_to_read(file, errno);
  if (fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) {
    close(fd);
    throw lab_error(fmt::format("{}: is no regular file", file.string()));
  }
  std::string text(static_cast<std::size_t>(status.st_size), '\0');
  std::size_t size = 0;
  ssize_t got = 1;
  while (got > 0 && size < text.size()) {
    got = read(fd, text.data() + size, text.size() - size);
    if (got > 0) size += static_cast<std::size_t>(got);
  }
  const int error = errno;
  close(fd);
  if (got < 0) fail_to_read(file, error);
  text.resize(size);
  return text;
}

void write_whole(const fs::path& file, std::string_view text) {
  errno = 0;
  std::ofstream out(file, std::ios::binary);
  out.write(text.data(), static_cast<std::streamsize>(text.size()));
  out.close();
  if (!out)
    throw lab_error(fmt::format("{}: cannot be written: {}", file.string(),
                                errno == 0 ? "unknown cause" : std::strerror(errno)));
}

}  // namespace lab
