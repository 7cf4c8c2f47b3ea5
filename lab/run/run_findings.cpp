#include "lab/run/run_findings.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <set>
#include <string_view>
#include <utility>
#include <vector>

#include "lab/base/files.h"

namespace lab {
namespace {

namespace fs = std::filesystem;

constexpr const char* console_name = "console";
constexpr std::string_view backup_suffix = ".1";

bool is_digit(char c) {
  return c >= '0' && c <= '9';
}
bool is_hex(char c) {
  return std::isxdigit(static_cast<unsigned char>(c)) != 0;
}
bool is_word_part(char c) {
  return std::isalnum(static_cast<unsigned char>(c)) != 0;
}

// "2026-11-21 09:59:19,001: ".
std::string_view without_time(std::string_view line) {
  constexpr std::string_view form = "0000-00-00 00:00:00,000: ";
  if (line.size() < form.size()) return line;
  const bool has_time = std::equal(form.begin(), form.end(), line.begin(), [](char wanted, char c) {
    return wanted == '0' ? is_digit(c) : wanted == c;
  });
  return has_time ? line.substr(form.size()) : line;
}

// Replaces the number that follows `before` in front of `behind`.
void hide_number(std::string& line, std::string_view before, std::string_view behind) {
  const std::size_t found = line.find(before);
  if (found == std::string::npos) return;
  const std::size_t begin = found + before.size();
  std::size_t end = begin;
  while (end < line.size() && is_digit(line[end])) ++end;
  if (end > begin && std::string_view{line}.substr(end).starts_with(behind))
    line.replace(begin, end - begin, "#");
}

// A MAC as twelve digits in a row: redacting does not recognise it, but replaces what it was made
// of.
void hide_macs(std::string& line) {
  constexpr std::size_t digits = 12;
  for (std::size_t at = 0; at < line.size();) {
    const auto begin =
        std::find_if(line.begin() + static_cast<std::ptrdiff_t>(at), line.end(), is_word_part);
    const auto end = std::find_if_not(begin, line.end(), is_word_part);
    const auto place = static_cast<std::size_t>(begin - line.begin());
    at = static_cast<std::size_t>(end - line.begin());
    if (at - place != digits || !std::all_of(begin, end, is_hex)) continue;
    line.replace(place, digits, "(mac)");
    at = place;
    at += std::string_view{"(mac)"}.size();
  }
}

std::string comparable(std::string_view whole) {
  std::string line{without_time(whole)};
  if (line.starts_with("Inconsistency ")) hide_number(line, "Inconsistency ", ":");
  for (const std::string_view start : {"Programming Error ", "Programming Error"})
    if (line.starts_with(start)) hide_number(line, start, ":");
  if (line.starts_with("  File ")) hide_number(line, "\", line ", ", in ");
  hide_macs(line);
  return line;
}

template <typename Take>
void each_line(std::string_view text, Take take) {
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    take(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
}

// The preview quotes as many lines as there are findings, so it depends on the order of entries
// that have several lines.
std::vector<std::string> console_lines(std::string_view text) {
  std::vector<std::string> lines;
  bool in_preview = false;
  each_line(text, [&](std::string_view line) {
    if (line == "Logs:") in_preview = false;
    if (!in_preview && !line.empty()) lines.push_back(comparable(line));
    if (line == "Logs Preview:") in_preview = true;
  });
  return lines;
}

// The lines of a log in their order.
found_lines counted(const std::vector<std::string>& lines) {
  found_lines found;
  for (const std::string& line : lines) ++found.counts[line];
  const auto half = static_cast<std::ptrdiff_t>(lines.size() / 2);
  found.newest.insert(lines.begin() + half, lines.end());
  return found;
}

void compare_statuses(const capture_findings& one, const capture_findings& other,
                      comparison& result) {
  result.status_moves = one.status_moves() || other.status_moves();
  if (!result.status_moves && one.status() != other.status())
    result.difference =
        fmt::format("its audit ends with status {}, not {}", other.status(), one.status());
}

// The two captures' lines of one log, side by side.
struct line_pair {
  capture_findings::line one;
  capture_findings::line other;

  bool moves() const { return one.least != one.most || other.least != other.most; }
  bool differs() const { return moves() || one.most != other.most; }
};

std::map<std::string, line_pair> side_by_side(const capture_findings::log& one,
                                              const capture_findings::log& other) {
  std::map<std::string, line_pair> lines;
  for (const auto& [text, found] : one) lines[text].one = found;
  for (const auto& [text, found] : other) lines[text].other = found;
  return lines;
}

struct differences {
  std::string lacks;
  std::string has_more;

  void add(const std::string& log, const std::string& line, bool is_lacking) {
    if (is_lacking && lacks.empty()) lacks = fmt::format("{} lacks \"{}\"", log, line);
    if (!is_lacking && has_more.empty()) has_more = fmt::format("{} also has \"{}\"", log, line);
  }
};

// The oldest lines of a rotated log are lost, and threads decide which these are. So what one of
// its audits lacks is a difference only if the others always have it among the newest.
void compare_rotated(const std::string& name, const line_pair& pair, const std::string& line,
                     const capture_findings& one, const capture_findings& other,
                     differences& found) {
  if (one.is_always_new(pair.one) && pair.other.most == 0) found.add(name, line, true);
  if (other.is_always_new(pair.other) && pair.one.most == 0) found.add(name, line, false);
}

void compare_log(const std::string& name, const capture_findings& one,
                 const capture_findings& other, comparison& result) {
  const auto lines = side_by_side(one.log_named(name), other.log_named(name));
  const bool is_any_rotated = one.is_rotated(name) || other.is_rotated(name);
  const bool is_every_rotated = one.is_rotated(name) && other.is_rotated(name);
  const bool is_cut =
      is_any_rotated &&
      (is_every_rotated || std::any_of(lines.begin(), lines.end(),
                                       [](const auto& row) { return row.second.differs(); }));
  if (is_cut) result.rotated.insert(name);
  differences found;
  for (const auto& [line, pair] : lines) {
    if (name != console_name) result.entries += std::min(pair.one.least, pair.other.least);
    if (is_cut) {
      compare_rotated(name, pair, line, one, other, found);
    } else if (pair.moves()) {
      ++result.moving[name];
    } else if (pair.one.most != pair.other.most) {
      found.add(name, line, pair.other.most < pair.one.most);
    }
  }
  if (result.difference.empty())
    result.difference = found.lacks.empty() ? found.has_more : found.lacks;
}

// The names of the logs of which a folder has at least the backup: an audit that ends between two
// lines may leave no more.
std::set<std::string> logs_in(const fs::path& folder) {
  std::set<std::string> names;
  for (const auto& entry : fs::directory_iterator(folder)) {
    std::string name = entry.path().filename().string();
    // The debug log quotes the tools' texts.
    if (!entry.is_regular_file() || name.starts_with("tessel_debug")) continue;
    if (name.ends_with(backup_suffix)) name.resize(name.size() - backup_suffix.size());
    names.insert(std::move(name));
  }
  return names;
}

std::string text_of(const fs::path& file) {
  return fs::is_regular_file(file) ? read_whole(file) : "";
}

}  // namespace

run_findings read_findings(const fs::path& logs, const std::string& console, int status,
                           const std::function<std::string(const std::string&)>& edited) {
  run_findings found;
  found.status = status;
  found.logs[console_name] = counted(console_lines(edited(console)));
  for (const std::string& name : logs_in(logs)) {
    const fs::path backup = logs / (name + std::string{backup_suffix});
    std::vector<std::string> lines;
    each_line(edited(text_of(backup) + text_of(logs / name)),
              [&](std::string_view line) { lines.push_back(comparable(line)); });
    found.logs[name] = counted(lines);
    found.logs[name].is_rotated = fs::exists(backup);
  }
  return found;
}

void capture_findings::add(const run_findings& found) {
  statuses_.insert(found.status);
  for (const auto& [name, of_audit] : found.logs) {
    log& all = logs_[name];
    if (of_audit.is_rotated) rotated_.insert(name);
    for (const auto& [text, count] : of_audit.counts) {
      const auto [row, is_new] = all.try_emplace(text);
      line& one = row->second;
      one.least = is_new ? (audits_ == 0 ? count : 0) : std::min(one.least, count);
      one.most = std::max(one.most, count);
      if (of_audit.newest.contains(text)) ++one.newest;
    }
  }
  for (auto& [name, all] : logs_) {
    const auto of_audit = found.logs.find(name);
    for (auto& [text, one] : all)
      if (of_audit == found.logs.end() || !of_audit->second.counts.contains(text)) one.least = 0;
  }
  ++audits_;
}

const capture_findings::log& capture_findings::log_named(const std::string& name) const {
  static const log none;
  const auto found = logs_.find(name);
  return found == logs_.end() ? none : found->second;
}

bool capture_findings::logs_nothing() const {
  return std::all_of(logs_.begin(), logs_.end(), [](const auto& row) {
    return row.first == console_name || row.second.empty();
  });
}

comparison compared(const capture_findings& one, const capture_findings& other) {
  comparison result;
  compare_statuses(one, other, result);
  std::set<std::string> names;
  for (const capture_findings* findings : {&one, &other})
    for (const auto& [name, lines] : findings->logs()) names.insert(name);
  for (const std::string& name : names) compare_log(name, one, other, result);
  return result;
}

}  // namespace lab
