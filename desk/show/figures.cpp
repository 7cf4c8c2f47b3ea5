#include "desk/show/figures.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cmath>
#include <system_error>

#include "desk/model/findings.h"

namespace desk {

namespace {

std::optional<unsigned> number(std::string_view digits) {
  unsigned value = 0;
  const char* end = digits.data() + digits.size();
  if (digits.find_first_not_of("0123456789") != std::string_view::npos) return std::nullopt;
  const auto [stop, error] = std::from_chars(digits.data(), end, value);
  return error == std::errc() && stop == end ? std::optional(value) : std::nullopt;
}

// What follows the seconds: nothing, or milliseconds, and a Z.
std::optional<unsigned> milliseconds(std::string_view rest) {
  constexpr std::size_t length = 4;
  if (rest.ends_with('Z')) rest.remove_suffix(1);
  if (rest.empty()) return 0;
  if (rest.size() != length || (rest[0] != ',' && rest[0] != '.')) return std::nullopt;
  return number(rest.substr(1));
}

}  // namespace

bool counts_as_finding(const finding& one) {
  if (is_scale(one)) return true;
  return one.kind != finding_kind::note && one.kind != finding_kind::failure &&
         !is_of_notation(one);
}

std::size_t total(const run& of, finding_kind kind) {
  const auto read = static_cast<std::size_t>(
      std::count_if(of.findings.begin(), of.findings.end(), [&](const finding& each) {
        return each.kind == kind && (kind != finding_kind::note || is_counted_by_audit(each));
      }));
  const auto counted = of.counts.find(kind);
  return counted == of.counts.end() ? read : std::max(read, counted->second);
}

std::size_t total_of_faults(const run& of, finding_kind kind) {
  const auto notations = static_cast<std::size_t>(std::count_if(
      of.findings.begin(), of.findings.end(),
      [&](const finding& each) { return each.kind == kind && is_of_notation(each); }));
  return total(of, kind) - notations;
}

std::size_t total(const judged_run& of, verdict is) {
  return static_cast<std::size_t>(
      std::count_if(of.bundles.begin(), of.bundles.end(),
                    [&](const bundle_verdict& each) { return each.is == is; }));
}

std::optional<double> seconds_of(const run& of) {
  if (!of.log_of_commands || !of.log_of_commands->is_finished) return std::nullopt;
  const double seconds = of.log_of_commands->seconds;
  return std::isfinite(seconds) && seconds >= 0 ? std::optional(seconds) : std::nullopt;
}

std::optional<std::int64_t> start_of(const run& of) {
  const auto by_journal =
      of.log_of_commands ? epoch_milliseconds(of.log_of_commands->time) : std::nullopt;
  return by_journal ? by_journal : epoch_milliseconds(of.started);
}

std::optional<std::int64_t> epoch_milliseconds(std::string_view text) {
  constexpr std::string_view form = "dddd-dd-ddTdd:dd:dd";
  if (text.size() < form.size() || (text[10] != ' ' && text[10] != 'T')) return std::nullopt;
  for (const std::size_t at : {4U, 7U, 13U, 16U})
    if (text[at] != form[at]) return std::nullopt;

  const auto year = number(text.substr(0, 4));
  const auto month = number(text.substr(5, 2));
  const auto day = number(text.substr(8, 2));
  const auto hour = number(text.substr(11, 2));
  const auto minute = number(text.substr(14, 2));
  const auto second = number(text.substr(17, 2));
  const auto fraction = milliseconds(text.substr(form.size()));
  if (!year || !month || !day || !hour || !minute || !second || !fraction) return std::nullopt;

  namespace time = std::chrono;
  const time::year_month_day date(time::year(static_cast<int>(*year)), time::month(*month),
                                  time::day(*day));
  // A leap second is the 60th.
  if (!date.ok() || *hour > 23 || *minute > 59 || *second > 60) return std::nullopt;
  const auto moment = time::sys_days(date).time_since_epoch() + time::hours(*hour) +
                      time::minutes(*minute) + time::seconds(*second) +
                      time::milliseconds(*fraction);
  return time::duration_cast<time::milliseconds>(moment).count();
}

}  // namespace desk
