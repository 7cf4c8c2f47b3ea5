#include "desk/show/figures.h"

#include <algorithm>
#include <charconv>
#include <chrono>

namespace desk {

namespace {

// The number that a part of a text holds; nothing unless all of it are digits.
std::optional<unsigned> number(std::string_view text, std::size_t at, std::size_t length) {
  unsigned value = 0;
  const auto part = text.substr(at, length);
  if (part.front() == '+' || part.front() == '-') return std::nullopt;
  const auto [end, error] = std::from_chars(part.data(), part.data() + part.size(), value);
  if (error != std::errc() || end != part.data() + part.size()) return std::nullopt;
  return value;
}

}  // namespace

std::size_t total(const run& of, finding_kind kind) {
  const auto read = static_cast<std::size_t>(
      std::count_if(of.findings.begin(), of.findings.end(),
                    [&](const finding& each) { return each.kind == kind; }));
  const auto counted = of.counts.find(kind);
  return counted == of.counts.end() ? read : std::max(read, counted->second);
}

std::size_t total(const judged_run& of, verdict is) {
  return static_cast<std::size_t>(
      std::count_if(of.bundles.begin(), of.bundles.end(),
                    [&](const bundle_verdict& each) { return each.is == is; }));
}

std::optional<std::int64_t> epoch_milliseconds(std::string_view log_time) {
  constexpr std::string_view form = "dddd-dd-dd dd:dd:dd,ddd";
  if (log_time.size() != form.size()) return std::nullopt;
  for (std::size_t i = 0; i < form.size(); ++i)
    if (form[i] != 'd' && form[i] != log_time[i]) return std::nullopt;

  const auto year = number(log_time, 0, 4);
  const auto month = number(log_time, 5, 2);
  const auto day = number(log_time, 8, 2);
  const auto hour = number(log_time, 11, 2);
  const auto minute = number(log_time, 14, 2);
  const auto second = number(log_time, 17, 2);
  const auto millisecond = number(log_time, 20, 3);
  if (!year || !month || !day || !hour || !minute || !second || !millisecond) return std::nullopt;

  namespace time = std::chrono;
  const time::year_month_day date(time::year(static_cast<int>(*year)), time::month(*month),
                                  time::day(*day));
  // A leap second is the 60th.
  if (!date.ok() || *hour > 23 || *minute > 59 || *second > 60) return std::nullopt;
  const auto moment = time::sys_days(date).time_since_epoch() + time::hours(*hour) +
                      time::minutes(*minute) + time::seconds(*second) +
                      time::milliseconds(*millisecond);
  return time::duration_cast<time::milliseconds>(moment).count();
}

}  // namespace desk
