#include "desk/model/run_logs.h"

#include <fmt/format.h>

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

// In the order in which a run begins them.
constexpr std::array<std::string_view, logs_of_a_run> names_of_logs = {
    "tessel_exception.log", "tessel_inconsistencies.log", "tessel_programming_error.log",
    "tessel_delay_delete.log", "tessel_bundle_health.log"};

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
// one before.
constexpr std::int64_t longest_if_slow = 60'000;

struct known_run {
  std::int64_t time;    // of its first start
  std::int64_t latest;  // of its last one
  run_in_logs of;
  bool has_gone_on = false;  // behind the starts of all logs, by a message or its journal
};

bool may_have_begun(const known_run& one, std::int64_t time) {
  return std::abs(time - one.time) <= longest ||
         (time >= one.latest && time - one.latest <= longest_if_slow);
}

// What only a run that has begun all its logs writes. The first command of a run comes before them.
bool is_behind_opening(const log_entry& one) {
  return one.text.find(": execution failed for rm ") == std::string::npos;
}

bool has_entry_behind_opening(const log_run& of) {
  return std::any_of(of.entries.begin(), of.entries.end(), is_behind_opening);
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

// A start before that of a run, though of about the same time, is of the run before it if that has
// no start of its own here.
bool is_of_run_before(const std::vector<known_run>& runs, std::size_t at,
                      const std::vector<start>& starts, std::size_t one) {
  if (at == 0 || starts[one].time >= runs[at].time) return false;
  const auto is_near = [&](std::size_t other) {
    const std::int64_t later = starts[other].time - runs[at - 1].time;
    return later >= 0 && later <= longest_if_slow;
  };
  return is_near(one) && (one == 0 || !is_near(one - 1));
}

// Starts that stand together, without a run of about their time, and the runs among which theirs
// are: those behind the run of the start before them and before that of the one behind them.
struct unknown_starts {
  std::size_t first;
  std::size_t limit;
  std::size_t first_run;
  std::size_t run_limit;
  // An earlier log still has the run before them, so it has lost none of theirs.
  bool has_all_runs = false;
};

bool has_begun_before(const known_run& one, std::size_t log) {
  return std::any_of(one.of.in.begin(), one.of.in.begin() + static_cast<std::ptrdiff_t>(log),
                     [](const log_run* begun) { return begun != nullptr; });
}

// The last run of these that has certainly begun this log, or may have by the time; `limit` if none
// has.
std::size_t last_that_may_have(const std::vector<known_run>& runs, std::size_t first,
                               std::size_t limit, std::int64_t time) {
  constexpr std::size_t most_runs_between = 100;
  const std::size_t end = std::max(first, limit - std::min(limit, most_runs_between));
  for (std::size_t run = limit; run-- > end;)
    if (runs[run].has_gone_on || may_have_begun(runs[run], time)) return run;
  return limit;
}

// From the last one on. Where each start must have one of the runs, a run is left for each of those
// before; if there are more runs, and neither a time nor a message decides, it is the last one.
void join_by_order(std::vector<std::size_t>& found, std::vector<known_run>& runs,
                   const std::vector<start>& starts, std::size_t log, const unknown_starts& of) {
  std::size_t limit = of.run_limit;
  for (std::size_t i = of.limit; i-- > of.first && limit > of.first_run;) {
    const std::size_t first = of.first_run + (of.has_all_runs ? i - of.first : 0);
    std::size_t run = last_that_may_have(runs, first, limit, starts[i].time);
    if (run == limit) {
      if (!of.has_all_runs) continue;
      run = limit - 1;
      runs[run].of.is_guessed[log] = run != first;
    }
    found[i] = run + 1;
    limit = run;
  }
}

void join_all_by_order(std::vector<std::size_t>& found, std::vector<known_run>& runs,
                       const std::vector<start>& starts, std::size_t log) {
  for (std::size_t i = 0; i < found.size(); ++i) {
    if (found[i] != 0) continue;
    unknown_starts of{i, i, i == 0 ? 0 : found[i - 1], runs.size()};
    while (of.limit < found.size() && found[of.limit] == 0) ++of.limit;
    if (of.limit < found.size()) of.run_limit = found[of.limit] - 1;
    of.has_all_runs = of.first_run != 0 && has_begun_before(runs[of.first_run - 1], log) &&
                      of.limit - of.first <= of.run_limit - of.first_run;
    join_by_order(found, runs, starts, log, of);
    i = of.limit - 1;
  }
}

// For each start one more than the index of its run; 0 if it has none. From the last one on,
// because a log loses its oldest lines.
std::vector<std::size_t> runs_of_starts(std::vector<known_run>& runs,
                                        const std::vector<start>& starts, std::size_t log) {
  const runs_by_time by_time(runs);
  std::vector<std::size_t> found(starts.size());
  std::size_t limit = runs.size();
  for (std::size_t i = starts.size(); i-- > 0;) {
    std::size_t behind = by_time.behind_last_at(starts[i].time, limit);
    if (behind == 0) continue;
    if (is_of_run_before(runs, behind - 1, starts, i)) --behind;
    found[i] = behind;
    limit = behind - 1;
  }
  join_all_by_order(found, runs, starts, log);
  return found;
}

// A log's starts join their runs. One without a run stands between the runs of its neighbours, and
// only there its time says where. Behind all neighbours it is of a run that another log has lost,
// before the last one: that has begun the other logs first, so its start there is the newest.
std::vector<known_run> joined(std::vector<known_run> runs, const std::vector<start>& starts,
                              std::size_t log) {
  const std::vector<std::size_t> found = runs_of_starts(runs, starts, log);
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
    known_run& one = made.back();
    one.latest = starts[i].time;
    one.of.in[log] = starts[i].of;
    one.has_gone_on = one.has_gone_on || has_entry_behind_opening(*starts[i].of);
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
// write it. Then it has the time of an earlier one; with that of none it is most likely the last
// one's, whose clock was set meanwhile.
std::vector<known_run> with_health(std::vector<known_run> runs, const channel_log& log) {
  std::vector<start> starts = starts_in(log);
  if (starts.empty()) return runs;
  const auto may_be_of = [&](const known_run& one) {
    return may_have_begun(one, starts.back().time);
  };
  known_run* last = last_before_health(runs);
  if (last != nullptr) {
    const bool is_sure = last->has_gone_on || may_be_of(*last);
    const bool is_guessed = !is_sure && last->of.in[health_log - 1] != nullptr &&
                            std::none_of(runs.begin(), runs.end(), may_be_of);
    if (is_sure || is_guessed) {
      last->of.in[health_log] = starts.back().of;
      last->of.is_guessed[health_log] = is_guessed;
      starts.pop_back();
    }
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

// It has begun its first logs, and the other one only those behind them.
bool ends_where_begins(const run_in_logs& one, const run_in_logs& other) {
  const auto has_not = [](const log_run* begun) { return begun == nullptr; };
  const auto end = std::find_if(one.in.begin(), one.in.end(), has_not);
  const auto begin = std::find_if_not(other.in.begin(), other.in.end(), has_not);
  return end != one.in.end() && end - one.in.begin() == begin - other.in.begin() &&
         std::all_of(end, one.in.end(), has_not);
}

// The log of exceptions cannot be read, or lacks what the run has written first.
bool has_lost_failures(const log_set& logs, const run_in_logs& of) {
  const log_run* kept = of.in[exception_log];
  return !logs.exception.is_read || kept == nullptr || kept->started.empty();
}

}  // namespace

log_set read_logs(const std::string& folder) {
  const auto& name = names_of_logs;
  return {folder,
          read_channel_log(folder, name[0]),
          read_channel_log(folder, name[1]),
          read_channel_log(folder, name[2]),
          read_channel_log(folder, name[3]),
          read_channel_log(folder, name[4], false)};
}

std::array<const channel_log*, logs_of_a_run> all_of(const log_set& logs) {
  return {&logs.exception, &logs.inconsistent, &logs.programming, &logs.delay_delete, &logs.health};
}

std::vector<run_in_logs> runs_in(const log_set& logs) {
  const auto all = all_of(logs);
  std::vector<known_run> known;
  for (std::size_t log = 0; log < health_log; ++log) {
    known = joined(std::move(known), starts_in(*all[log]), log);
    if (!known.empty() && logs.has_gone_on) known.back().has_gone_on = true;
  }
  known = with_health(std::move(known), logs.health);
  std::vector<run_in_logs> runs;
  runs.reserve(known.size());
  for (known_run& one : known) runs.push_back(std::move(one.of));
  add_unstarted(runs, logs);
  return runs;
}

bool may_be_one_with_before(const std::vector<run_in_logs>& runs, std::size_t at) {
  return at != 0 &&
         (ends_where_begins(runs[at - 1], runs[at]) || ends_where_begins(runs[at], runs[at - 1]));
}

std::string doubt_about(const std::vector<run_in_logs>& runs, std::size_t at) {
  if (may_be_one_with_before(runs, at))
    return "it may be one run with the one before it: no log has a start of both";
  const auto& guessed = runs[at].is_guessed;
  const auto first = std::find(guessed.begin(), guessed.end(), true);
  if (first == guessed.end()) return {};
  const auto log = static_cast<std::size_t>(first - guessed.begin());
  return fmt::format("its start in {} may be that of an earlier run", names_of_logs[log]);
}

std::string span_of(const run_in_logs& of) {
  const std::string* first = nullptr;
  const std::string* last = nullptr;
  for (const log_run* one : of.in) {
    if (one == nullptr || one->started.empty()) continue;
    if (first == nullptr || one->started < *first) first = &one->started;
    if (last == nullptr || one->started > *last) last = &one->started;
  }
  if (first == nullptr || milliseconds_of(*last) - milliseconds_of(*first) <= longest) return {};
  return fmt::format(
      "its logs began between {} and {}: the clock was set meanwhile, or the disk is slow", *first,
      *last);
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
