#include "lab/base/descriptors.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <utility>

#include "lab/base/error.h"

namespace lab {

descriptor::descriptor(descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}

descriptor& descriptor::operator=(descriptor&& other) noexcept {
  if (this != &other) {
    close();
    number_ = std::exchange(other.number_, -1);
  }
  return *this;
}

void descriptor::close() {
  if (number_ < 0) return;
  const int before = errno;
  ::close(std::exchange(number_, -1));
  errno = before;
}

descriptor open_file(const std::filesystem::path& file, int flags, mode_t mode) {
  return descriptor{open(file.c_str(), flags | O_CLOEXEC, mode)};
}

std::optional<pipe_ends> try_pipe() {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) return std::nullopt;
  return pipe_ends{descriptor{ends[0]}, descriptor{ends[1]}};
}

pipe_ends new_pipe() {
  std::optional<pipe_ends> ends = try_pipe();
  if (!ends) fail("pipe");
  return *std::move(ends);
}

ssize_t read_some(int from, char* data, std::size_t size) {
  ssize_t got = 0;
  do {
    got = read(from, data, size);
  } while (got < 0 && errno == EINTR);
  return got;
}

std::optional<std::string> read_up_to(int from, std::size_t most) {
  std::string text(most, '\0');
  std::size_t size = 0;
  while (size < most) {
    const ssize_t got = read_some(from, text.data() + size, most - size);
    if (got < 0) return std::nullopt;
    if (got == 0) break;
    size += static_cast<std::size_t>(got);
  }
  text.resize(size);
  return text;
}

void await_end(int from) {
  char byte = 0;
  read_some(from, &byte, 1);
}

std::size_t write_all(int to, std::string_view text) {
  std::size_t done = 0;
  while (done < text.size()) {
    const ssize_t written = write(to, text.data() + done, text.size() - done);
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) break;
    done += static_cast<std::size_t>(written);
  }
  return done;
}

}  // namespace lab
