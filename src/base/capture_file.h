// The file in /tmp that takes a command's output, and the check that it took all of it.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace tessel {

// Creates a new file at `path`, replacing any file there, and opens it close-on-exec. Returns -1
// and sets errno on failure. Any thread.
int open_capture(const std::string& path);

// Removes the files in /tmp whose names begin with `beginning`, for what `rm` has left: too many
// names do not fit on one command line. Leaves folders, as `rm` does. Returns how many files cannot
// be removed, and the cause for the last of them; without memory some may stay uncounted. Main
// thread.
struct left_captures {
  std::size_t files = 0;
  std::string cause;
};
left_captures remove_left_captures(std::string_view beginning);

// Used only by the thread that runs the command; several threads may each have one.
class capture_file {
 public:
  // Takes over what `open_capture` returned for `path`.
  capture_file(std::string path, int descriptor);
  ~capture_file();
  capture_file(const capture_file&) = delete;
  capture_file& operator=(const capture_file&) = delete;

  const std::string& path() const { return path_; }
  int descriptor() const { return descriptor_; }

  // The number of bytes in the file; call it when nobody writes to the file any more. Throws
  // `failure` with the folder and the cause if the file system might not have accepted more than
  // that.
  std::size_t whole_size() const;

  // The first `size` bytes. Throws `failure` with the path if the file cannot be read or has fewer.
  std::string read(std::size_t size) const;

 private:
  std::string path_;
  int descriptor_;
};

}  // namespace tessel
