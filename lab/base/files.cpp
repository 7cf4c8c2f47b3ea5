#include "lab/base/files.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>
#include <utility>

#include "lab/base/descriptors.h"
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
  const descriptor in = open_file(file, O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
  struct stat status {};
  if (!in.is_open()) fail_to_read(file, errno);
  if (fstat(in.number(), &status) != 0 || !S_ISREG(status.st_mode))
    throw lab_error(fmt::format("{}: not a regular file", file.string()));
  auto text = read_up_to(in.number(), static_cast<std::size_t>(status.st_size));
  if (!text) fail_to_read(file, errno);
  return *std::move(text);
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
