#include "report/results.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "base/dump.h"
#include "base/failure.h"
#include "base/logs.h"
#include "base/memory_reserve.h"
#include "base/print.h"
#include "base/worker.h"
#include "run/state.h"

namespace tessel {

namespace {

constexpr std::string_view exptn_str = "Info/Error/Module Exception";
constexpr std::string_view stale_str = "Stale Entries";
constexpr std::string_view prgm_str = "BCM Programming Error";
constexpr std::string_view incnst_str = "Inconsistencies";
constexpr std::string_view delpen_str = "Delete Pending DPA Objects";
constexpr std::string_view bhc_str = "Bundle Health Status Error";

constexpr std::int64_t most_previewed = 10;

// The counters, each read once, because workers may still be counting. Objects that wait for
// deletion count only if there is an inconsistency.
struct outcome {
  std::int64_t inconsistent = st().inconsistent;
  std::int64_t programming_error = st().programming_error;
  std::int64_t exception = st().exception;
  std::int64_t stale = st().staleEntries;
  std::int64_t delete_pending = inconsistent == 0 ? 0 : std::int64_t{st().deletePending};
  std::int64_t bundle_health = st().bdlHealthCheckCount;
};

struct labelled {
  std::string_view label;
  std::int64_t number;
};

void print_row(const labelled& first, const labelled& second) {
  print(fmt::format("{:27} : {:<8} {:28} : {}", first.label, first.number, second.label,
                    second.number));
}

// The lines of a log file, each with its line end. A device keeps none, and a read of it could
// wait.
std::vector<std::string> lines_of(const std::string& path) {
  const log_reader file(path);
  if (!file.is_open()) throw failure(fmt::format("cannot open {}: {}", path, std::strerror(errno)));
  const auto text = file.text();
  if (!text) throw failure(fmt::format("cannot read {}: {}", path, std::strerror(errno)));
  std::vector<std::string> lines;
  for (std::size_t start = 0; start < text->size();) {
    const std::size_t end = std::min(text->find('\n', start), text->size() - 1) + 1;
    lines.push_back(text->substr(start, end - start));
    start = end;
  }
  return lines;
}

void print_lines(const std::vector<std::string>& lines, std::size_t from, std::size_t to) {
  for (std::size_t at = from; at < std::min(to, lines.size()); ++at) print(lines[at]);
}

// Where the last `count` lines start. A negative count skips that many lines from the beginning;
// zero takes all lines.
std::size_t start_of_last(const std::vector<std::string>& lines, std::int64_t count) {
  const auto size = static_cast<std::int64_t>(lines.size());
  if (count > 0) return static_cast<std::size_t>(std::max<std::int64_t>(size - count, 0));
  return static_cast<std::size_t>(std::min(-count, size));
}

// `exceptions` is the count of the channel "exception", whatever `log_file` is.
void preview(std::int64_t counted, std::int64_t exceptions, std::string_view log_file) {
  const std::string path(log_file);
  const std::vector<std::string> lines = lines_of(path);
  const auto count = static_cast<std::int64_t>(lines.size());
  if (counted > count) {
    // The older findings are in the rotated file. How many lines to take from there is computed
    // from the exception count, for every log.
    const std::int64_t diff = exceptions - count;
    const std::vector<std::string> older = lines_of(path + ".1");
    print_lines(older, start_of_last(older, diff), older.size());
  }
  print_lines(lines, start_of_last(lines, counted), lines.size());
}

// Shows at most ten preview lines in total: the other findings take their lines first. Line 0 is
// the channel's start line.
void preview_bundle_health(std::int64_t err_count, std::int64_t counted) {
  const std::vector<std::string> lines = lines_of(std::string(LOG_FILE_BUNDLE_HEALTH));
  const std::int64_t end = most_previewed + 1 - (err_count - counted);
  print_lines(lines, 1, static_cast<std::size_t>(std::max<std::int64_t>(end, 0)));
  if (static_cast<std::int64_t>(lines.size()) > end) {
    print("\nMore lines of error present in the logs, Check /var/log/tessel_bundle_health.log ");
  }
}

void print_previews(std::int64_t err_count, const outcome& found) {
  const auto show = [&found](std::int64_t counted, std::string_view log_file) {
    if (counted != 0) preview(counted, found.exception, log_file);
  };
  show(found.exception, LOG_FILE_EXCEPTION);
  show(found.inconsistent, LOG_FILE_INCONSISTENT);
  show(found.programming_error, LOG_FILE_PROGRAMMING_ERROR);
  if (found.bundle_health != 0) preview_bundle_health(err_count, found.bundle_health);
}

void print_log_list() {
  print("\nLogs:\n\n");
  for (const std::string_view path :
       {LOG_FILE_INCONSISTENT, LOG_FILE_PROGRAMMING_ERROR, LOG_FILE_STALE_ENTRIES,
        LOG_FILE_DELETE_PENDING, LOG_FILE_BUNDLE_HEALTH, LOG_FILE_EXCEPTION}) {
    print(path);
  }
  print(fmt::format("{}\n\n", LOG_FILE_DEBUG));
}

void print_report(std::int64_t err_count, const outcome& found) {
  print("\nLogs Preview:\n\n");
  if (err_count > most_previewed) {
    print(fmt::format("Total Error Count: {}", err_count));
    print("Preview is not available as the number of logs are more");
    print("Please check the respective log file for the error details");
  } else {
    print_previews(err_count, found);
  }
  if (st().printed_results != 0) print_log_list();
}

}  // namespace

void wait_for_late_workers(std::chrono::seconds patience) {
  using clock = std::chrono::steady_clock;
  run_state& run = st();
  const auto left = std::max(patience - run.waited_for_workers, clock::duration());
  const auto start = clock::now();
  const std::size_t late =
      wait_until_begun(std::chrono::duration_cast<std::chrono::milliseconds>(left));
  run.waited_for_workers += clock::now() - start;
  const auto debug_log = run.dl_fd.get();
  if (late == 0 || run.noted_late_workers || !debug_log) return;
  run.noted_late_workers = true;
  try {
    pprint(
        fmt::format("{} jobs had not begun {} seconds after the last check, the results may lack "
                    "what they find",
                    late, patience.count()),
        *debug_log);
  } catch (const std::exception&) {
    // The note is for support; the results matter more.
  }
}

void print_results() {
  const words_first the_reader_must_know;
  wait_for_late_workers();
  run_state& run = st();
  // Workers may still be counting. Under this lock the rows, the total and the preview come from
  // one reading: the logs hold all numbered findings of that reading, and no further ones until the
  // preview is printed.
  std::unique_lock one_moment(run.finding_mutex, std::defer_lock);
  run.for_lines.lock(one_moment);  // if a disk hangs, the results are what there is
  run.exception += run.info;
  if (run.inconsistent == 0) run.deletePending = 0;
  const outcome found;
  print("\n\nOverall Results:\n\n");
  print_row({incnst_str, found.inconsistent}, {stale_str, found.stale});
  print_row({prgm_str, found.programming_error}, {delpen_str, found.delete_pending});
  print_row({exptn_str, found.exception}, {bhc_str, found.bundle_health});
  const std::int64_t err_count = found.exception + found.programming_error + found.inconsistent +
                                 found.delete_pending + found.stale + found.bundle_health;
  run.printed_results = 1;
  if (err_count != 0) print_report(err_count, found);
  print(fmt::format("{:*^70}", "Done"));
}

void print_errors(std::int64_t err_count) {
  print_report(err_count, outcome());
}

}  // namespace tessel
