#include "lab/run/run_findings.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <functional>
#include <set>
#include <string_view>

#include "lab/base/files.h"

namespace lab {
namespace {

namespace fs = std::filesystem;

constexpr const char* console_name = "console";

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

// How often each audit of a capture has a line.
using counts = std::map<std::string, std::vector<std::size_t>>;

counts counts_of(const std::vector<run_findings>& audits, const std::string& name) {
  counts all;
  for (std::size_t i = 0; i < audits.size(); ++i) {
    const auto found = audits[i].lines.find(name);
    if (found == audits[i].lines.end()) continue;
    for (const std::string& line : found->second) {
      auto& row = all[line];
      row.resize(audits.size());
      ++row[i];
    }
  }
  return all;
}

bool all_alike(const std::vector<std::size_t>& values) {
  return std::adjacent_find(values.begin(), values.end(), std::not_equal_to{}) == values.end();
}

void compare_statuses(const std::vector<run_findings>& of_one,
                      const std::vector<run_findings>& of_other, comparison& result) {
  const auto moves = [](const std::vector<run_findings>& audits) {
    return std::any_of(audits.begin(), audits.end(), [&](const run_findings& audit) {
      return audit.status != audits.front().status;
    });
  };
  result.status_moves = moves(of_one) || moves(of_other);
  if (!result.status_moves && of_one.front().status != of_other.front().status)
    result.difference = fmt::format("its audit ends with status {}, not {}",
                                    of_other.front().status, of_one.front().status);
}

void compare_log(const std::string& name, const counts& one, const counts& other,
                 comparison& result) {
  std::set<std::string> lines;
  for (const counts* all : {&one, &other})
    for (const auto& [line, row] : *all) lines.insert(line);
  std::string lacks;
  std::string has_more;
  for (const std::string& line : lines) {
    const auto in_one = one.find(line);
    const auto in_other = other.find(line);
    if ((in_one != one.end() && !all_alike(in_one->second)) ||
        (in_other != other.end() && !all_alike(in_other->second))) {
      ++result.moving[name];
      continue;
    }
    const std::size_t wanted = in_one == one.end() ? 0 : in_one->second.front();
    const std::size_t got = in_other == other.end() ? 0 : in_other->second.front();
    if (got < wanted && lacks.empty()) lacks = fmt::format("{} lacks \"{}\"", name, line);
    if (got > wanted && has_more.empty()) has_more = fmt::format("{} also has \"{}\"", name, line);
    if (name != console_name) result.entries += std::min(got, wanted);
  }
  if (result.difference.empty()) result.difference = lacks.empty() ? has_more : lacks;
}

}  // namespace

run_findings read_findings(const fs::path& logs, const std::string& console, int status,
                           const std::function<std::string(const std::string&)>& edited) {
  run_findings found;
  found.status = status;
  found.lines[console_name] = console_lines(edited(console));
  std::set<std::string> rotated;
  for (const auto& entry : fs::directory_iterator(logs)) {
    const std::string name = entry.path().filename().string();
    // It quotes the tools' texts.
    if (!entry.is_regular_file() || name.starts_with("tessel_debug")) continue;
    if (name.ends_with(".1")) {
      rotated.insert(name.substr(0, name.size() - 2));
      continue;
    }
    std::vector<std::string>& lines = found.lines[name];
    each_line(edited(read_whole(entry.path())),
              [&](std::string_view line) { lines.push_back(comparable(line)); });
  }
  for (const std::string& name : rotated) found.lines[name] = {"(rotated)"};
  return found;
}

comparison compared(const std::vector<run_findings>& of_one,
                    const std::vector<run_findings>& of_other) {
  comparison result;
  compare_statuses(of_one, of_other, result);
  std::set<std::string> names;
  for (const auto* audits : {&of_one, &of_other})
    for (const run_findings& audit : *audits)
      for (const auto& [name, lines] : audit.lines) names.insert(name);
  for (const std::string& name : names)
    compare_log(name, counts_of(of_one, name), counts_of(of_other, name), result);
  return result;
}

}  // namespace lab
