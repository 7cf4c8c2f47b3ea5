#include "report/results.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "base/failure.h"
#include "base/print.h"
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

struct labelled {
  std::string_view label;
  std::int64_t number;
};

void print_row(const labelled& first, const labelled& second) {
  print(fmt::format("{:27} : {:<8} {:28} : {}", first.label, first.number, second.label,
                    second.number));
}

// The lines of a log file, each with its line end.
std::vector<std::string> lines_of(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw failure(fmt::format("cannot open {}", path));
  std::vector<std::string> lines;
  for (std::string line; std::getline(file, line);) {
    if (!file.eof()) line += '\n';
    lines.push_back(line);
  }
  if (file.bad()) throw failure(fmt::format("cannot read {}", path));
  return lines;
}

void print_lines(const std::vector<std::string>& lines, std::size_t from, std::size_t to) {
  for (std::size_t at = from; at < std::min(to, lines.size()); ++at) print(lines[at]);
}

// Where the last `count` lines start; a negative count skips so many lines from the beginning, and
// none takes all.
std::size_t start_of_last(const std::vector<std::string>& lines, std::int64_t count) {
  const auto size = static_cast<std::int64_t>(lines.size());
  if (count > 0) return static_cast<std::size_t>(std::max<std::int64_t>(size - count, 0));
  return static_cast<std::size_t>(std::min(-count, size));
}

void preview(std::int64_t counted, std::string_view log_file) {
  const std::string path(log_file);
  const std::vector<std::string> lines = lines_of(path);
  const auto count = static_cast<std::int64_t>(lines.size());
  if (counted > count) {
    // The older findings have rotated out. The difference is that of `exception` for every log.
    const std::int64_t diff = st().exception - count;
    const std::vector<std::string> older = lines_of(path + ".1");
    print_lines(older, start_of_last(older, diff), older.size());
  }
  print_lines(lines, start_of_last(lines, counted), lines.size());
}

// The other findings use up room first, so that the whole preview stays at ten lines. Line 0 is the
// channel's start line.
void preview_bundle_health(std::int64_t err_count) {
  const std::vector<std::string> lines = lines_of(std::string(LOG_FILE_BUNDLE_HEALTH));
  const std::int64_t end = most_previewed + 1 - (err_count - st().bdlHealthCheckCount);
  print_lines(lines, 1, static_cast<std::size_t>(std::max<std::int64_t>(end, 0)));
  if (static_cast<std::int64_t>(lines.size()) > end) {
    print("\nMore lines of error present in the logs, Check /var/log/tessel_bundle_health.log ");
  }
}

void print_previews(std::int64_t err_count) {
  run_state& run = st();
  if (run.exception != 0) preview(run.exception, LOG_FILE_EXCEPTION);
  if (run.inconsistent != 0) preview(run.inconsistent, LOG_FILE_INCONSISTENT);
  if (run.programming_error != 0) preview(run.programming_error, LOG_FILE_PROGRAMMING_ERROR);
  if (run.bdlHealthCheckCount != 0) preview_bundle_health(err_count);
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

}  // namespace

void print_results() {
  run_state& run = st();
  // Workers may still be finding: rows, total and preview are of one moment.
  const std::lock_guard one_moment(run.finding_mutex);
  run.exception += run.info;
  if (run.inconsistent == 0) run.deletePending = 0;
  const labelled inconsistent{incnst_str, run.inconsistent};
  const labelled stale{stale_str, run.staleEntries};
  const labelled programming{prgm_str, run.programming_error};
  const labelled pending{delpen_str, run.deletePending};
  const labelled exceptions{exptn_str, run.exception};
  const labelled health{bhc_str, run.bdlHealthCheckCount};
  print("\n\nOverall Results:\n\n");
  print_row(inconsistent, stale);
  print_row(programming, pending);
  print_row(exceptions, health);
  const std::int64_t err_count = exceptions.number + programming.number + inconsistent.number +
                                 pending.number + stale.number + health.number;
  run.printed_results = 1;
  if (err_count != 0) print_errors(err_count);
  print(fmt::format("{:*^70}", "Done"));
}

void print_errors(std::int64_t err_count) {
  print("\nLogs Preview:\n\n");
  if (err_count > most_previewed) {
    print(fmt::format("Total Error Count: {}", err_count));
    print("Preview is not available as the number of logs are more");
    print("Please check the respective log file for the error details");
  } else {
    print_previews(err_count);
  }
  if (st().printed_results != 0) print_log_list();
}

}  // namespace tessel
