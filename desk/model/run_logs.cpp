#include "desk/model/run_logs.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <string_view>
#include <unordered_map>
#include <utility>

namespace desk {

namespace {

constexpr std::size_t exception_log = 0;
constexpr std::size_t health_log = logs_of_a_run - 1;

// Milliseconds of "2026-11-22 11:01:03,219", comparable with each other.
std::int64_t milliseconds_of(std::string_view stamp) {
  constexpr std::array<std::pair<std::size_t, std::size_t>, 7> fields = {
      {{0, 4}, {5, 2}, {8, 2}, {11, 2}, {14, 2}, {17, 2}, {20, 3}}};
  std::array<int, fields.size()> number{};
  for (std::size_t i = 0; i < fields.size(); ++i) {
    const std::string_view digits = stamp.substr(fields[i].first, fields[i].second);
    std::from_chars(digits.data(), digits.data() + digits.size(), number[i]);
  }
  const std::chrono::year_month_day date{std::chrono::year{number[0]},
                                         std::chrono::month{static_cast<unsigned>(number[1])},
                                         std::chrono::day{static_cast<unsigned>(number[2])}};
  const std::int64_t days = std::chrono::sys_days{date}.time_since_epoch().count();
  return (((days * 24 + number[3]) * 60 + number[4]) * 60 + number[5]) * 1000 + number[6];
}

// A run starts all its logs at about the same time.
constexpr std::int64_t longest = 2000;
// On a slow disk, or where the clock was set forward meanwhile, one start may be so far behind the
// one before. Only for the last run: nothing else tells it from a run of its own.
constexpr std::int64_t longest_of_last = 60'000;

struct known_run {
  std::int64_t time;    // of its first start
  std::int64_t latest;  // of its last one
  run_in_logs of;
};

bool may_have_begun(const known_run& one, std::int64_t time) {
  return std::abs(time - one.time) <= longest ||
         (time >= one.latest && time - one.latest <= longest_of_last);
}

struct start {
  std::int64_t time;
  const log_run* of;
};

// Finds the runs of about one time without looking at all of them.
class runs_by_time {
 public:
  explicit runs_by_time(const std::vector<known_run>& runs) : runs_(runs) {
    for (std::size_t i = 0; i < runs.size(); ++i) near_[part_of(runs[i].time)].push_back(i);
  }

  // One more than the last of the first `limit` runs that began at about this time; 0 if none did.
  [[nodiscard]] std::size_t behind_last_at(std::int64_t time, std::size_t limit) const {
    std::size_t found = 0;
    for (std::int64_t part = part_of(time) - 1; part <= part_of(time) + 1; ++part) {
      const auto at = near_.find(part);
      if (at == near_.end()) continue;
      const auto last = std::lower_bound(at->second.begin(), at->second.end(), limit);
      const auto first = last - std::min(last - at->second.begin(), most_runs_at_once);
      const auto near = std::find_if(
          std::reverse_iterator(last), std::reverse_iterator(first),
          [&](std::size_t run) { return std::abs(time - runs_[run].time) <= longest; });
      if (near.base() != first) found = std::max(found, *near + 1);
    }
    return found;
  }

 private:
  static constexpr std::ptrdiff_t most_runs_at_once = 100;
  static std::int64_t part_of(std::int64_t time) { return time / (longest + 1); }

  const std::vector<known_run>& runs_;
  std::unordered_map<std::int64_t, std::vector<std::size_t>> near_;
};

// A start that stands in the log behind the run's own and before the next run's is the run's.
bool is_of_run_before(const std::vector<known_run>& runs, std::size_t at, std::int64_t time) {
  return at > 0 && time < runs[at].time && time >= runs[at - 1].time &&
         time - runs[at - 1].time <= longest;
}

// The log's last start is the last run's if that has no other one here.
void join_last(std::vector<std::size_t>& found, const std::vector<known_run>& runs,
               const std::vector<start>& starts) {
  if (runs.empty() || starts.empty() || found.back() != 0) return;
  const bool has_start = std::find(found.begin(), found.end(), runs.size()) != found.end();
  if (!has_start && may_have_begun(runs.back(), starts.back().time)) found.back() = runs.size();
}

// For each start one more than the index of its run; 0 if it has none. From the last one on,
// because a log loses its oldest lines.
std::vector<std::size_t> runs_of_starts(const std::vector<known_run>& runs,
                                        const std::vector<start>& starts) {
  const runs_by_time by_time(runs);
  std::vector<std::size_t> found(starts.size());
  std::size_t limit = runs.size();
  for (std::size_t i = starts.size(); i-- > 0;) {
    std::size_t behind = by_time.behind_last_at(starts[i].time, limit);
    if (behind == 0) continue;
    if (is_of_run_before(runs, behind - 1, starts[i].time)) --behind;
    found[i] = behind;
    limit = behind - 1;
  }
  join_last(found, runs, starts);
  return found;
}

// A log's starts join their runs. One without a run stands between the runs of its neighbours, and
// only there its time says where. Behind all neighbours it is of a run that another log has lost,
// before the last one: that has begun the other logs first, so its start there is the newest.
std::vector<known_run> joined(std::vector<known_run> runs, const std::vector<start>& starts,
                              std::size_t log) {
  const std::vector<std::size_t> found = runs_of_starts(runs, starts);
  std::vector<known_run> made;
  made.reserve(runs.size() + starts.size());
  std::size_t next = 0;  // of the runs
  const auto take_runs = [&](std::size_t limit, std::int64_t time) {
    while (next < limit && runs[next].time <= time) made.push_back(std::move(runs[next++]));
  };
  constexpr std::int64_t never = INT64_MAX;
  const std::size_t before_last = runs.empty() ? 0 : runs.size() - 1;
  auto neighbour = found.begin();
  for (std::size_t i = 0; i < starts.size(); ++i) {
    if (found[i] != 0) {
      take_runs(found[i], never);
    } else {
      const auto here = found.begin() + static_cast<std::ptrdiff_t>(i);
      neighbour = std::find_if(std::max(neighbour, here), found.end(),
                               [](std::size_t behind) { return behind != 0; });
      take_runs(neighbour == found.end() ? before_last : *neighbour - 1, starts[i].time);
      made.push_back({starts[i].time, starts[i].time, {starts[i].of->started, {}}});
    }
    made.back().latest = starts[i].time;
    made.back().of.in[log] = starts[i].of;
  }
  take_runs(runs.size(), never);
  return made;
}

std::vector<start> starts_in(const channel_log& log) {
  std::vector<start> made;
  for (const log_run& one : log.runs)
    if (!one.started.empty()) made.push_back({milliseconds_of(one.started), &one});
  return made;
}

// The last of the runs that came as far as any has before bundle health.
known_run* last_before_health(std::vector<known_run>& runs) {
  for (std::size_t log = health_log; log-- > 0;)
    for (std::size_t i = runs.size(); i-- > 0;)
      if (runs[i].of.in[log] != nullptr) return &runs[i];
  return nullptr;
}

// Begun anew by each run, so it is of the last one that came so far, unless that one could not
// write it.
std::vector<known_run> with_health(std::vector<known_run> runs, const channel_log& log) {
  std::vector<start> starts = starts_in(log);
  if (starts.empty()) return runs;
  known_run* last = last_before_health(runs);
  if (last != nullptr && may_have_begun(*last, starts.back().time)) {
    last->of.in[health_log] = starts.back().of;
    starts.pop_back();
  }
  if (starts.empty()) return runs;
  return joined(std::move(runs), starts, health_log);
}

using run_place = std::vector<run_in_logs>::iterator;

// The last of those without this log that has begun one behind it, or else the one that came
// closest.
run_place last_that_came_to(std::size_t log, run_place begin, run_place end) {
  for (std::size_t from = log + 1; from-- > 0;) {
    const auto has_come = [&](const run_in_logs& one) {
      return std::any_of(one.in.begin() + static_cast<std::ptrdiff_t>(from), one.in.end(),
                         [](const log_run* begun) { return begun != nullptr; });
    };
    const auto last =
        std::find_if(std::reverse_iterator(end), std::reverse_iterator(begin), has_come);
    if (last.base() != begin) return last.base() - 1;
  }
  return end - 1;
}

// Where a log begins with a run whose start line was rotated away, that is the last one before its
// first that came so far.
void add_unstarted(std::vector<run_in_logs>& runs, const log_set& logs) {
  const auto all = all_of(logs);
  for (std::size_t log = 0; log < all.size(); ++log) {
    if (all[log]->runs.empty() || !all[log]->runs.front().started.empty()) continue;
    const auto first = std::find_if(runs.begin(), runs.end(),
                                    [&](const run_in_logs& one) { return one.in[log] != nullptr; });
    const bool is_first = first == runs.begin();
    run_in_logs& before = is_first ? *runs.insert(runs.begin(), run_in_logs{})
                                   : *last_that_came_to(log, runs.begin(), first);
    before.in[log] = &all[log]->runs.front();
  }
}

// The log of exceptions cannot be read, or lacks what the run has written first.
bool has_lost_failures(const log_set& logs, const run_in_logs& of) {
  const log_run* kept = of.in[exception_log];
  return !logs.exception.is_read || kept == nullptr || kept->started.empty();
}

// What only a run that has begun all its logs writes. The first command of a run comes before them.
bool is_behind_opening(const log_entry& one) {
  return one.text.find(": execution failed for rm ") == std::string::npos;
}

bool has_entry_behind_opening(const log_run& of) {
  return std::any_of(of.entries.begin(), of.entries.end(), is_behind_opening);
}

}  // namespace

log_set read_logs(const std::string& folder) {
  return {folder,
          read_channel_log(folder, "tessel_exception.log"),
          read_channel_log(folder, "tessel_inconsistencies.log"),
          read_channel_log(folder, "tessel_programming_error.log"),
          read_channel_log(folder, "tessel_delay_delete.log"),
          read_channel_log(folder, "tessel_bundle_health.log", false)};
}

std::array<const channel_log*, logs_of_a_run> all_of(const log_set& logs) {
  return {&logs.exception, &logs.inconsistent, &logs.programming, &logs.delay_delete, &logs.health};
}

std::vector<run_in_logs> runs_in(const log_set& logs) {
  const auto all = all_of(logs);
  std::vector<known_run> known;
  for (std::size_t log = 0; log < health_log; ++log)
    known = joined(std::move(known), starts_in(*all[log]), log);
  known = with_health(std::move(known), logs.health);
  std::vector<run_in_logs> runs;
  runs.reserve(known.size());
  for (known_run& one : known) runs.push_back(std::move(one.of));
  add_unstarted(runs, logs);
  return runs;
}

std::vector<std::string> starts_of(const log_set& logs) {
  std::vector<std::string> starts;
  for (const run_in_logs& one : runs_in(logs)) starts.push_back(one.started);
  return starts;
}

bool may_have_messages(const log_set& logs, const run_in_logs& of) {
  const auto has_entry = [](const log_run* one) {
    return one != nullptr && has_entry_behind_opening(*one);
  };
  return has_lost_failures(logs, of) || std::any_of(of.in.begin(), of.in.end(), has_entry);
}

bool has_come_to_health(const run_in_logs& of) {
  const log_run* report = of.in[health_log];
  if (report != nullptr && !report->entries.empty()) return true;
  const log_run* failures = of.in[exception_log];
  return failures != nullptr &&
         std::any_of(failures->entries.begin(), failures->entries.end(), [](const log_entry& one) {
           return one.text.ends_with(": Bundle health check failed");
         });
}

bool may_have_come_to_health(const log_set& logs, const run_in_logs& of) {
  return has_come_to_health(of) || of.in[health_log] == nullptr || !logs.health.is_read ||
         has_lost_failures(logs, of);
}

bool has_begun_debug_log(const log_set& logs, const run_in_logs& of) {
  const auto all = all_of(logs);
  for (std::size_t log = health_log + 1; log-- > 0;) {
    if (of.in[log] == nullptr) continue;
    if (log == health_log || has_entry_behind_opening(*of.in[log])) return true;
  }
  for (std::size_t log = health_log + 1; log-- > 0;)
    if (all[log]->is_read) return of.in[log] != nullptr;
  return true;
}

}  // namespace desk
