// An open log file, and the slot in which the run keeps it.
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

// Opens a file as open(2) does, close-on-exec. Never takes the number of a standard stream that the
// host has closed, because output meant for that stream would go into the file. Returns -1 and sets
// errno on failure.
int open_beside_streams(const std::string& path, int flags, mode_t mode);

// Every write goes whole to the end of the file, from any thread. The descriptor is close-on-exec.
class log_file {
 public:
  // Throws `failure` with the path and the cause if the file cannot be opened.
  log_file(std::string path, file_mode mode);
  ~log_file();
  log_file(const log_file&) = delete;
  log_file& operator=(const log_file&) = delete;

  // Throws `failure` with the path and the cause, for example if the disk is full.
  void write(std::string_view text);
  // The file's current size in bytes. Throws `failure`.
  std::int64_t size() const;
  // True if the file has no name any more, so that what is written to it would be lost.
  bool is_gone() const;
  int descriptor() const { return descriptor_; }
  // Closes the descriptor if it is open. Throws `failure` with the path and the cause, because
  // earlier writes may not have reached the disk. The destructor closes too, but ignores failures.
  void close();

 private:
  std::string path_;
  std::atomic<int> descriptor_;  // -1 once closed
};

// Holds an open file or none. A thread that has taken the file may use it after it was closed here;
// the last user closes the descriptor.
class log_file_slot {
 public:
  void open(std::string_view path, file_mode mode);
  // Empties the slot. If nobody else uses the file, closes it, and throws `failure` if that fails.
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
