#include "desk/read/journal.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <limits>
#include <map>
#include <nlohmann/json.hpp>
#include <type_traits>

#include "desk/read/line_reader.h"

namespace desk {

namespace {

using nlohmann::json;

// The value of a key if it is there and of this kind.
std::string text_at(const json& line, const char* key) {
  const auto at = line.find(key);
  return at != line.end() && at->is_string() ? at->get<std::string>() : std::string();
}

template <class Number>
std::optional<Number> number_at(const json& line, const char* key) {
  const auto at = line.find(key);
  if (at == line.end()) return {};
  // No number of the journal is negative, and only seconds have a fraction.
  if (!at->is_number_unsigned() && !(std::is_floating_point_v<Number> && at->is_number_float()))
    return {};
  if constexpr (std::is_integral_v<Number>)
    if (at->get<std::uint64_t>() > static_cast<std::uint64_t>(std::numeric_limits<Number>::max()))
      return {};
  return at->get<Number>();
}

void take_end(journal_command& of, const json& line) {
  of.has_ended = true;
  of.status = number_at<int>(line, "status");
  of.signal = number_at<int>(line, "signal");
  of.bytes = number_at<std::uint64_t>(line, "bytes");
  of.seconds = number_at<double>(line, "seconds").value_or(0);
  const auto timeout = line.find("timeout");
  of.is_timed_out = timeout != line.end() && timeout->is_boolean() && timeout->get<bool>();
  of.failed = text_at(line, "failed");
}

// "2026-11-22 11:01:03,219" or "2026-11-22T11:01:03.219Z", as if both were UTC.
std::optional<std::chrono::milliseconds> time_in(std::string_view text) {
  constexpr std::string_view form = "0000-00-00 00:00:00,000";
  if (text.size() < form.size()) return {};
  const auto number = [&](std::size_t at, std::size_t digits) {
    int value = -1;
    const char* const end = text.data() + at + digits;
    return std::from_chars(text.data() + at, end, value).ptr == end ? value : -1;
  };
  using namespace std::chrono;
  const year_month_day date{year{number(0, 4)}, month{static_cast<unsigned>(number(5, 2))},
                            day{static_cast<unsigned>(number(8, 2))}};
  const int hour = number(11, 2);
  const int minute = number(14, 2);
  const int second = number(17, 2);
  const int fraction = number(20, 3);
  if (!date.ok() || hour < 0 || minute < 0 || second < 0 || fraction < 0) return {};
  return sys_days(date).time_since_epoch() + hours(hour) + minutes(minute) + seconds(second) +
         milliseconds(fraction);
}

struct intake {
  journal into;
  std::map<std::uint64_t, journal_command> commands;
  std::uint64_t last = 0;  // number of a line
  std::uint64_t lost = 0;
  std::size_t not_understood = 0;
};

void take_line(intake& in, const json& line) {
  const auto number = number_at<std::uint64_t>(line, "n");
  if (number && *number > in.last) {
    in.lost += *number - in.last - 1;
    in.last = *number;
  }
  in.into.seconds = std::max(in.into.seconds, number_at<double>(line, "at").value_or(0));
  const std::string event = text_at(line, "event");
  if (event == "run") in.into.time = text_at(line, "time");
  if (event == "finished") in.into.is_finished = true;
  const auto id = number_at<std::uint64_t>(line, "id");
  if (!id || (event != "start" && event != "end")) return;
  journal_command& of = in.commands[*id];
  of.id = *id;
  of.node = text_at(line, "node");
  of.npu = text_at(line, "npu");
  of.command = text_at(line, "command");
  if (event == "end") take_end(of, line);
}

}  // namespace

std::string shown_call(const journal_command& of) {
  return of.command.substr(0, of.command.find(" | "));
}

bool may_be_of(const journal& of, std::string_view started) {
  using namespace std::chrono_literals;
  const auto journal_began = time_in(of.time);
  const auto logs_began = time_in(started);
  if (!journal_began || !logs_began) return true;
  constexpr auto widest_zone = 15h;
  constexpr auto between_zones = 15min;
  constexpr auto latest = 10s;
  constexpr auto earliest = 2s;  // a clock that is set
  const auto later = *logs_began - *journal_began;
  if (later > widest_zone || later < -widest_zone) return false;
  return (later + widest_zone + earliest) % between_zones <= latest + earliest;
}

journal read_journal(const std::string& path) {
  intake in;
  byte_source bytes(path);
  line_reader lines(bytes);
  std::string text;
  while (lines.next(text)) {
    if (text.empty()) continue;
    const json line = json::parse(text, nullptr, false);
    if (line.is_object())
      take_line(in, line);
    else
      ++in.not_understood;
  }
  if (in.lost != 0) in.into.marks.push_back(fmt::format("{}: {} lines are lost", path, in.lost));
  if (in.not_understood != 0)
    in.into.marks.push_back(
        fmt::format("{}: {} lines are cut or not understood", path, in.not_understood));
  in.into.lacks_lines = in.lost != 0 || in.not_understood != 0;
  if (in.into.time.empty() && in.commands.empty())
    in.into.marks.push_back(fmt::format("{}: it holds no run", path));
  else if (!in.into.is_finished)
    in.into.marks.push_back(fmt::format("{}: the run did not come to its end", path));
  for (auto& [id, one] : in.commands) in.into.commands.push_back(std::move(one));
  return std::move(in.into);
}

}  // namespace desk
