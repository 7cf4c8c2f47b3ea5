// An open log file, and the slot in which the run keeps it.
#pragma once

#include <fcntl.h>
#include <sys/types.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

namespace tessel {

enum class file_mode {
  append,    // "a+": created if missing, written at its end
  truncate,  // "w+": created or emptied
};

enum class readers {
  as_usual,  // a new file by the host's umask; an existing one as it is
  owner,     // nobody else, also if the file exists
};

// Opens a file as open(2) does, close-on-exec. Never takes the number of a standard stream that the
// host has closed, because output meant for that stream would go into the file. Returns -1 and sets
// errno on failure.
int open_beside_streams(const std::string& path, int flags, mode_t mode);

// Opens a log for `flags` as `open_beside_streams` does. A link is followed only if root alone can
// have made it. Returns -1 and sets errno if the system refuses. Throws `failure`, which says what
// to do, for another's link and for what would block or lose the entries: a FIFO, a socket, a block
// device. A character device such as /dev/null is fine.
int open_log(const std::string& path, int flags, mode_t mode = 0);

// Every write goes whole to the end of the file, from any thread; only where the disk takes a part
// of a text can another thread's text come between its parts. If a write fails halfway, or the file
// already ended within a line, the next one begins on a new line. The descriptor is close-on-exec.
class log_file {
 public:
  // Throws `failure` with the path and the cause if the file cannot be opened, and what `open_log`
  // throws.
  log_file(std::string path, file_mode mode, readers allowed = readers::as_usual);
  ~log_file();
  log_file(const log_file&) = delete;
  log_file& operator=(const log_file&) = delete;

  // Throws `failure` with the path and the cause, for example if the disk is full or the file has
  // reached the process's limit.
  void write(std::string_view text);
  // The size in bytes at which the next write begins. Throws `failure`.
  std::int64_t size() const;
  // True if the file has no name any more, so that what is written to it would be lost.
  bool is_gone() const;
  int descriptor() const { return descriptor_; }
  // Closes the descriptor if it is open. Throws `failure` with the path and the cause, because
  // earlier writes may not have reached the disk. The destructor closes too, but ignores failures.
  void close();

 private:
  void write_whole(std::string_view text);

  std::string path_;
  std::atomic<int> descriptor_;        // -1 once closed
  std::atomic<bool> is_torn_ = false;  // the last line has no end
};

// Reads a log file. Used by one thread.
class log_reader {
 public:
  // Throws what `open_log` throws.
  explicit log_reader(const std::string& path) : descriptor_(open_log(path, O_RDONLY)) {}
  ~log_reader();
  log_reader(const log_reader&) = delete;
  log_reader& operator=(const log_reader&) = delete;

  // False if the system refused the file; errno has the cause.
  bool is_open() const { return descriptor_ >= 0; }
  // The whole content, call it once; empty for a device, which keeps nothing and might let a reader
  // wait. Nothing if it cannot be read; errno has the cause.
  std::optional<std::string> text() const;

 private:
  int descriptor_;
};

// Holds an open file or none. A thread that has taken the file may use it after it was closed here;
// the last user closes the descriptor.
class log_file_slot {
 public:
  // Throws what `log_file` throws.
  void open(std::string_view path, file_mode mode, readers allowed = readers::as_usual);
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
