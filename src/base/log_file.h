// An open plain log file, and the place where the run keeps it.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

namespace tessel {

enum class file_mode {
  append,    // "a+": created if missing, written at its end
  truncate,  // "w+": created or emptied
};

// Opens a file as open(2) does, close-on-exec, and never in the place of a standard stream that the
// host has closed: what is meant for that stream would go there. Returns -1 and sets errno if it
// cannot.
int open_beside_streams(const std::string& path, int flags, mode_t mode);

// Writes go to the end of the file, whole, from any thread. The descriptor is close-on-exec.
class log_file {
 public:
  // Throws `failure` naming the path and the cause if the file cannot be opened.
  log_file(std::string path, file_mode mode);
  ~log_file();
  log_file(const log_file&) = delete;
  log_file& operator=(const log_file&) = delete;

  // Throws `failure` naming the path and the cause, a full disk for example.
  void write(std::string_view text);
  // Bytes in the file now. Throws `failure`.
  std::int64_t size() const;
  // True if nobody can find the file by a name any more: what is written to it would be lost.
  bool is_gone() const;
  int descriptor() const { return descriptor_; }
  // Closes the descriptor, once; the destructor does it in silence. Throws `failure` naming the
  // path and the cause: what was written before may not have reached the disk.
  void close();

 private:
  std::string path_;
  std::atomic<int> descriptor_;  // -1 once closed
};

// Holds an open file, or none. Whoever took the file may go on using it after it was closed here:
// the last user closes the descriptor.
class log_file_slot {
 public:
  void open(std::string_view path, file_mode mode);
  // Throws `failure` if the file is closed right here, nobody else using it, and that fails. The
  // slot is empty afterwards in any case.
  void close();
  bool opened_once() const;
  // The open file, or null.
  std::shared_ptr<log_file> get() const;
  // Throws `failure` if no file is open.
  std::shared_ptr<log_file> require() const;

 private:
  mutable std::mutex mutex_;
  std::shared_ptr<log_file> file_;  // guarded by mutex_
  bool opened_once_ = false;        // guarded by mutex_
};

}  // namespace tessel
