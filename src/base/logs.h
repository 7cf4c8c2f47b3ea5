// The five log channels: "exception", "inconsistent", "programming_error", "delete_pending" and
// "bundle_health". Each entry is a line "2026-11-21 07:38:53,123: message".
//
// Threads: the main thread calls `setup_logger` and `log_init` before any worker starts. Any thread
// may call `logger` at any time.
#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "base/capture_file.h"
#include "base/here.h"
#include "base/log_file.h"
#include "base/worker.h"

namespace tessel {

// The files of the channels, and the two log files that are not channels.
inline constexpr std::string_view LOG_FILE_EXCEPTION = "/var/log/tessel_exception.log";
inline constexpr std::string_view LOG_FILE_INCONSISTENT = "/var/log/tessel_inconsistencies.log";
inline constexpr std::string_view LOG_FILE_PROGRAMMING_ERROR =
    "/var/log/tessel_programming_error.log";
inline constexpr std::string_view LOG_FILE_DELETE_PENDING = "/var/log/tessel_delay_delete.log";
inline constexpr std::string_view LOG_FILE_STALE_ENTRIES = "/var/log/tessel_stale_entries.log";
inline constexpr std::string_view LOG_FILE_BUNDLE_HEALTH = "/var/log/tessel_bundle_health.log";
inline constexpr std::string_view LOG_FILE_DEBUG = "/var/log/tessel_debug.log";

enum class log_level { info, error };

// The file of one channel. A write after `close` opens it again, because a worker may outlive the
// end of the run.
class log_channel {
 public:
  // A rotating file stays smaller than `limit` bytes; 0 means no rotation. Throws `failure` if the
  // file cannot be opened.
  log_channel(std::string path, file_mode mode, std::int64_t limit, log_level level);

  // Adds an entry. If the entry would make the file reach the limit, rotates first, to the one
  // backup ".1". Entries from several threads do not mix. Throws `failure`.
  void write(log_level level, std::string_view entry);
  // The channel is closed afterwards, even if that fails and throws `failure`. Only while another
  // thread's entry is being written, for longer than `patience`, it stays open; without `patience`
  // it waits.
  void close(limited_patience& patience);
  void close();

 private:
  void rotate();
  void reopen(file_mode mode);
  void close_file();

  const std::string path_;
  const std::string backup_;
  const std::int64_t limit_;
  const log_level level_;
  std::timed_mutex mutex_;
  std::unique_ptr<log_file> file_;  // guarded by mutex_; null while closed
};

// Opens a channel and writes its start line. On any failure prints the fixed "Log ERROR" line and
// throws `exit_request`.
void setup_logger(std::string_view logger_name, std::string_view log_file_path,
                  log_level level = log_level::info, file_mode mode = file_mode::append);

// Writes one entry. With `exc_info`, the entry has level ERROR and is followed by the traceback of
// the failure that is being handled. An entry for a channel that is not open yet is kept and
// written when the channel opens. Never throws `failure`: if writing fails, it prints "Log ERROR".
void logger(std::string_view msg, std::string_view logger_name, bool exc_info = false,
            here where = here::current());

// Writes one line to the debug log, about something that a run neither counts nor prints. Does
// nothing if the log is not open or cannot be written. Any thread.
void note_for_support(std::string_view text);

// Notes for support the captures that could not be removed, if there are any.
void note_left_captures(const left_captures& left);

// Removes old capture files and opens the channels, the debug log and the stale-entry log. Returns
// SUCCESS or ERROR.
int log_init();

}  // namespace tessel
