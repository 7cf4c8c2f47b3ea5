// The file in /tmp that takes a command's output, and the look at whether it took all of it.
#pragma once

#include <cstddef>
#include <string>

namespace tessel {

// Belongs to the thread that runs the command; several threads may each have one.
class capture_file {
 public:
  // Puts a new file under `path`, in the place of what stands there. Throws `failure` naming the
  // path and the cause if it cannot.
  explicit capture_file(std::string path);
  ~capture_file();
  capture_file(const capture_file&) = delete;
  capture_file& operator=(const capture_file&) = delete;

  int descriptor() const { return descriptor_; }

  // The number of bytes in it, once nobody writes to it any more. Throws `failure` naming the
  // folder and the cause if its file system might not have taken more than that.
  std::size_t whole_size() const;

  // Its first `size` bytes. Throws `failure` naming the path if it cannot be read or has fewer.
  std::string read(std::size_t size) const;

 private:
  std::string path_;
  int descriptor_;
};

}  // namespace tessel
