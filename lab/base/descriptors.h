// Open files and pipes: their owners, and reading and writing whole texts. A failure sets errno and
// shows in the return value, so that each caller reports it in its own words. Signals do not
// interrupt these functions. A program that is started inherits none of the descriptors.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace lab {

// Owns an open descriptor, or none, and closes it at the end of its life. Closing leaves errno
// unchanged.
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

// Like open(2). If that fails, the result is not open and errno is set.
descriptor open_file(const std::filesystem::path& file, int flags, mode_t mode = 0);

struct pipe_ends {
  descriptor out;  // to read from
  descriptor in;   // to write into
};

// Returns nothing, with errno, if no pipe can be made.
std::optional<pipe_ends> try_pipe();
// Throws `lab_error` instead.
pipe_ends new_pipe();

// Like read(2): returns the number of bytes, 0 at the end, or a negative number with errno.
ssize_t read_some(int from, char* data, std::size_t size);

// Reads to the end, but no more than `most` bytes. Returns nothing, with errno, if that fails.
std::optional<std::string> read_up_to(int from, std::size_t most);

// Waits until a pipe has something to read or its other end is closed.
void await_end(int from);

// Writes the whole text. Returns the number of bytes written; if some are missing, errno says why.
std::size_t write_all(int to, std::string_view text);

}  // namespace lab
