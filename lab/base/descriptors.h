// Open files and pipes: who closes them, and how all of a text goes in and out. What fails sets
// errno and shows in what is returned, so that each caller reports it in its own words. A signal
// that comes meanwhile is no failure. A program that is started inherits none of them.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace lab {

// Owns an open descriptor, or none, and closes it in the end. Closing leaves errno as it was.
class descriptor {
 public:
  descriptor() = default;
  explicit descriptor(int number) : number_(number) {}
  descriptor(descriptor&& other) noexcept;
  descriptor& operator=(descriptor&& other) noexcept;
  ~descriptor() { close(); }

  bool is_open() const { return number_ >= 0; }
  int number() const { return number_; }  // negative if it is not open
  void close();

 private:
  int number_ = -1;
};

// As open(2). Not open, with errno, if it fails.
descriptor open_file(const std::filesystem::path& file, int flags, mode_t mode = 0);

struct pipe_ends {
  descriptor out;  // to read from
  descriptor in;   // to write into
};

// Nothing, with errno, if there can be none.
std::optional<pipe_ends> try_pipe();
// Throws `lab_error` instead.
pipe_ends new_pipe();

// As read(2): the number of bytes, 0 at the end, negative with errno.
ssize_t read_some(int from, char* data, std::size_t size);

// Reads to the end, `most` bytes at most. Nothing, with errno, if that fails.
std::optional<std::string> read_up_to(int from, std::size_t most);

// Waits until a pipe brings something or nobody holds its other end any more.
void await_end(int from);

// Writes all of it. Returns how much was written; if that is less than all, errno says why.
std::size_t write_all(int to, std::string_view text);

}  // namespace lab
