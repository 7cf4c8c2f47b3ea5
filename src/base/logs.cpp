#include "base/logs.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <ctime>

#include "base/command.h"
#include "base/constants.h"
#include "base/dump.h"
#include "base/failure.h"
#include "base/memory_reserve.h"
#include "base/print.h"
#include "base/text.h"
#include "base/worker.h"
#include "run/state.h"

namespace tessel {

namespace {

constexpr std::int64_t rotation_limit = 100000;
constexpr std::array<std::string_view, 5> channel_names = {
    "exception", "inconsistent", "programming_error", "delete_pending", "bundle_health"};

std::string time_stamp() {
  const auto now = std::chrono::system_clock::now();
  const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
  const auto milliseconds =
      std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
  std::tm local{};
  ::localtime_r(&seconds, &local);
  std::array<char, 32> text{};
  const std::size_t length = std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &local);
  return fmt::format("{},{:03}", std::string_view(text.data(), length), milliseconds);
}

std::string entry_of(std::string_view msg, const std::string& details) {
  return fmt::format("{}: {}\n{}", time_stamp(), msg, details);
}

std::shared_ptr<log_channel> channel_or_wait(std::string_view name, log_level level,
                                             const std::string& entry) {
  run_state& run = st();
  const patient_lock lock(run.log_mutex);
  const auto found = run.log_dictionary.find(name);
  if (found != run.log_dictionary.end()) return found->second;
  if (std::find(channel_names.begin(), channel_names.end(), name) == channel_names.end()) {
    throw failure(fmt::format("no log channel {}", quoted(name)));
  }
  run.waiting_entries.push_back({std::string(name), level, entry});
  return nullptr;
}

// Standard output may fail, too, or there may be no memory left even for this line. These two
// ignore that: a lost line must not end the run.
void report_lost_channel() {
  try {
    print("Log ERROR: No space left on device/Not able to access file system");
  } catch (const std::exception&) {
    return;
  }
}

void report_lost_line(const std::exception& loss) {
  try {
    print(fmt::format("Log ERROR: {}", loss.what()));
  } catch (const std::exception&) {
    return;
  }
}

void enter_channel(std::string_view name, const std::shared_ptr<log_channel>& channel) {
  run_state& run = st();
  const std::lock_guard lock(run.log_mutex);
  run.log_dictionary.insert_or_assign(std::string(name), channel);
}

void write_waiting_entries(std::string_view name, log_channel& channel) {
  run_state& run = st();
  const std::lock_guard lock(run.log_mutex);
  for (const waiting_entry& each : run.waiting_entries) {
    if (each.channel == name) channel.write(each.level, each.entry);
  }
  std::erase_if(run.waiting_entries,
                [name](const waiting_entry& each) { return each.channel == name; });
}

// True if the file has this name, or if that cannot be known.
bool is_at(const log_file& file, const std::string& path) {
  struct stat open {};
  struct stat named {};
  if (::fstat(file.descriptor(), &open) != 0) return true;
  if (::stat(path.c_str(), &named) != 0) return errno != ENOENT;
  return open.st_dev == named.st_dev && open.st_ino == named.st_ino;
}

}  // namespace

log_channel::log_channel(std::string path, file_mode mode, std::int64_t limit, log_level level)
    : path_(std::move(path)),
      backup_(path_ + ".1"),
      limit_(limit),
      level_(level),
      file_(std::make_unique<log_file>(path_, mode)) {}

void log_channel::write(log_level level, std::string_view entry) {
  if (level < level_) return;
  const patient_lock lock(mutex_);
  if (!file_) file_ = std::make_unique<log_file>(path_, file_mode::append);
  if (file_->is_gone()) reopen(file_mode::append);
  if (limit_ > 0 && file_->size() + static_cast<std::int64_t>(entry.size()) >= limit_) rotate();
  file_->write(entry);
}

void log_channel::rotate() {
  // Another audit has rotated the log, or the new file could not be opened the last time: what is
  // in its place now must not replace the backup, which has the entries of this one.
  if (!is_at(*file_, path_)) return reopen(file_mode::append);
  // If the file cannot be renamed, it grows past its limit, so that no finding is lost.
  if (std::rename(path_.c_str(), backup_.c_str()) != 0 && errno != ENOENT) return;
  reopen(file_mode::append);  // another audit may have begun it already
}

void log_channel::reopen(file_mode mode) {
  try {
    file_ = std::make_unique<log_file>(path_, mode);
  } catch (const std::exception&) {
    // The open file, which is now the backup or has no name, takes the entry.
  }
}

void log_channel::close(limited_patience& patience) {
  std::unique_lock lock(mutex_, std::defer_lock);
  if (patience.lock(lock)) close_file();
}

void log_channel::close() {
  const patient_lock lock(mutex_);
  close_file();
}

void log_channel::close_file() {
  if (const std::unique_ptr<log_file> file = std::move(file_)) file->close();
}

void setup_logger(std::string_view logger_name, std::string_view log_file_path, log_level level,
                  file_mode mode) {
  try {
    const std::int64_t limit = logger_name == "bundle_health" ? 0 : rotation_limit;
    const auto channel =
        std::make_shared<log_channel>(std::string(log_file_path), mode, limit, level);
    enter_channel(logger_name, channel);
    channel->write(log_level::info, entry_of("Started Tessel Checker", ""));
    write_waiting_entries(logger_name, *channel);
  } catch (const std::exception&) {
    report_lost_channel();
    throw exit_request();
  }
}

void logger(std::string_view msg, std::string_view logger_name, bool exc_info, here where) {
  const words_first no_line_is_lost;
  try {
    const log_level level = exc_info ? log_level::error : log_level::info;
    const std::string entry = entry_of(msg, exc_info ? traceback_of_current(where) : "");
    const auto channel = channel_or_wait(logger_name, level, entry);
    if (channel) channel->write(level, entry);
  } catch (const std::exception& error) {
    report_lost_line(error);
  }
}

void note_for_support(std::string_view text) {
  const auto debug_log = st().dl_fd.get();
  if (!debug_log) return;
  try {
    pprint(text, *debug_log);
  } catch (const std::exception&) {
    // A lost note must not end the run.
  }
}

void note_left_captures(const left_captures& left) {
  if (left.files == 0) return;
  note_for_support(fmt::format("{} files of the audit stay in /tmp: {}; remove them by hand",
                               left.files, left.cause));
}

int log_init() {
  run_state& run = st();
  try {
    // Matches more than the removal at the end of a run does, so that no file of an earlier run or
    // version stays.
    execute("rm /tmp/tessel*");
    const left_captures left = remove_left_captures("tessel");
    setup_logger("exception", LOG_FILE_EXCEPTION);
    setup_logger("inconsistent", LOG_FILE_INCONSISTENT);
    setup_logger("programming_error", LOG_FILE_PROGRAMMING_ERROR);
    setup_logger("delete_pending", LOG_FILE_DELETE_PENDING);
    setup_logger("bundle_health", LOG_FILE_BUNDLE_HEALTH, log_level::info, file_mode::truncate);
    // It holds the configuration and addresses, as the captures do.
    run.dl_fd.open(LOG_FILE_DEBUG, file_mode::truncate, readers::owner);
    note_left_captures(left);
    run.stale_fd.open(LOG_FILE_STALE_ENTRIES, file_mode::append);
    pprint("Started Tessel Checker", *run.stale_fd.require());
    return SUCCESS;
  } catch (const std::exception& error) {
    print(fmt::format("\n{}: Log init failed", error.what()));
    ++run.exception;
    return ERROR;
  }
}

}  // namespace tessel
