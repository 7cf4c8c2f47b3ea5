#include "lab/capture/capture_check.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>

#include "lab/base/error.h"
#include "lab/base/files.h"
#include "lab/capture/answer_list.h"

namespace lab {
namespace {

namespace fs = std::filesystem;

// Access to a capture, in memory or on disk, by names such as "local/sw_version_show".
struct contents {
  std::function<file_sums()> sums;  // of all files but the manifest
  std::function<std::optional<std::uint64_t>(const std::string& name)>
      size;  // nothing if it is missing
  std::function<std::string(const std::string& name)> text;

  bool has(const std::string& name) const { return size(name).has_value(); }
};

// A line of the list of calls: "0.01 0.15 0 301 local/sw_version_show".
struct called {
  std::string_view before;  // "0.01 0.15 0"
  std::string_view bytes;
  std::string_view name;
};

std::optional<called> parse_call(std::string_view line) {
  constexpr auto blanks = 4;
  if (std::count(line.begin(), line.end(), ' ') != blanks) return std::nullopt;
  const std::size_t last = line.rfind(' ');
  const std::size_t third = line.rfind(' ', last - 1);
  const called c{line.substr(0, third), line.substr(third + 1, last - third - 1),
                 line.substr(last + 1)};
  const bool is_size =
      !c.bytes.empty() && c.bytes.find_first_not_of("0123456789") == std::string_view::npos;
  if (!is_size || c.name.find('/') == std::string_view::npos) return std::nullopt;
  return c;
}

[[noreturn]] void missing(const std::string& where, const std::string& name, std::size_t line) {
  throw lab_error(fmt::format("{}: {} is missing; line {} of calls names it", where, name, line));
}

// A numbered answer needs its list, and the list its answers.
void check_list(const contents& in, const std::string& where, const std::string& name,
                std::size_t line, std::set<std::string>& checked) {
  const std::string command = name.substr(0, name.find(';'));
  const std::string list = command + std::string{list_suffix};
  if (!checked.insert(list).second) return;
  if (!in.has(list)) missing(where, list, line);
  for (const listed_answer& a :
       parse_answer_list(in.text(list), fmt::format("{}: {}", where, list))) {
    const std::string answer = numbered_file(command, a.number);
    const std::string complaint = answer + std::string{complaint_suffix};
    if (!in.has(answer) || (a.complains && !in.has(complaint)))
      throw lab_error(fmt::format("{}: {} is missing; {} names it", where,
                                  in.has(answer) ? complaint : answer, list));
  }
}

void check_calls(std::string_view calls, const std::string& where, const contents& in) {
  std::set<std::string> checked;
  for (std::size_t number = 1; !calls.empty(); ++number) {
    const std::size_t end = calls.find('\n');
    const std::string_view line = calls.substr(0, end);
    calls.remove_prefix(end == std::string_view::npos ? calls.size() : end + 1);
    if (line.starts_with('#')) continue;
    const auto call = parse_call(line);
    if (end == std::string_view::npos || !call)
      throw lab_error(fmt::format("{}: calls:{}: not a tool call", where, number));
    const std::string name{call->name};
    const auto size = in.size(name);
    if (!size) missing(where, name, number);
    if (std::to_string(*size) != call->bytes)
      throw lab_error(fmt::format("{}: {} has {} bytes, not the {} that line {} of calls gives",
                                  where, name, *size, call->bytes, number));
    if (name.find(';') != std::string::npos) check_list(in, where, name, number, checked);
  }
}

// Both in order of their names.
void check_sums(const capture& head, const std::string& where, const contents& in) {
  const file_sums found = in.sums();
  for (const auto& [name, sum] : head.sums) {
    const auto there = found.find(name);
    if (there == found.end())
      throw lab_error(fmt::format("{}: {} is missing; the manifest names it", where, name));
    if (there->second == sum) continue;
    throw lab_error(
        fmt::format("{}: {} is not as it was recorded: {}", where, name,
                    there->second.bytes != sum.bytes
                        ? fmt::format("{} bytes, not {}", there->second.bytes, sum.bytes)
                        : "another SHA-256"));
  }
  // Nobody reads what else lies beside the manifest.
  const auto is_read = [](const std::string& name) {
    return name.find('/') != std::string::npos || name == "calls" || name == "files" ||
           name == "journal";
  };
  for (const auto& [name, sum] : found)
    if (is_read(name) && !head.sums.contains(name))
      throw lab_error(
          fmt::format("{}: {} does not belong to the recording; the manifest does not "
                      "name it",
                      where, name));
}

void check_lists(const capture& head, const std::string& where, bool has_calls, bool has_files) {
  if (!has_calls && (head.made.origin == "recorded" || head.sums.contains("calls")))
    throw lab_error(fmt::format("{}: calls is missing; a recording has this list", where));
  if (!has_files && head.sums.contains("files"))
    throw lab_error(fmt::format("{}: files is missing; the manifest names it", where));
  if (!has_calls && !has_files && head.made.format == 1)
    throw lab_error(fmt::format("{}: neither calls nor files lists what it must hold", where));
}

void check_files(std::string_view files, const std::string& where, const contents& in) {
  for (std::size_t number = 1; !files.empty(); ++number) {
    const std::size_t end = std::min(files.find('\n'), files.size());
    const std::string name{files.substr(0, end)};
    files.remove_prefix(std::min(end + 1, files.size()));
    if (!in.has(name))
      throw lab_error(fmt::format(
          "{}: {} is missing; line {} of files names it; remove the line if that is intended",
          where, name, number));
  }
}

file_sums sums_in_memory(const capture& c) {
  file_sums sums;
  for (const auto& [key, text] : c.answers)
    sums.emplace(key.first + '/' + key.second, sum_of(text));
  const std::pair<const char*, const std::string*> beside[] = {
      {"calls", &c.calls}, {"files", &c.files}, {"journal", &c.journal}};
  for (const auto& [name, text] : beside)
    if (!text->empty()) sums.emplace(name, sum_of(*text));
  return sums;
}

}  // namespace

void check_recording(const capture& c, const fs::path& where) {
  const auto found = [&](const std::string& name) {
    const std::size_t slash = name.find('/');
    return c.answers.find({name.substr(0, slash), name.substr(slash + 1)});
  };
  const contents in{[&] { return sums_in_memory(c); },
                    [&](const std::string& name) -> std::optional<std::uint64_t> {
                      const auto at = found(name);
                      return at == c.answers.end() ? std::nullopt
                                                   : std::optional{at->second.size()};
                    },
                    [&](const std::string& name) { return found(name)->second; }};
  check_calls(c.calls, where.string(), in);
  check_lists(c, where.string(), !c.calls.empty(), !c.files.empty());
  check_files(c.files, where.string(), in);
  if (c.made.origin == "recorded") check_sums(c, where.string(), in);
}

std::vector<std::string> changed_files(const capture& c) {
  std::vector<std::string> changed;
  const file_sums found = sums_in_memory(c);
  for (const auto& [name, sum] : found) {
    const auto was = c.sums.find(name);
    if (was == c.sums.end() || was->second != sum) changed.push_back(name);
  }
  return changed;
}

void check_recording_folder(const capture& head, const fs::path& folder, const fs::path& where) {
  const contents in{[&] { return sums_of_folder(folder); },
                    [&](const std::string& name) -> std::optional<std::uint64_t> {
                      struct stat status {};
                      if (lstat((folder / name).c_str(), &status) != 0 || !S_ISREG(status.st_mode))
                        return std::nullopt;
                      return static_cast<std::uint64_t>(status.st_size);
                    },
                    [&](const std::string& name) { return read_own(folder / name); }};
  const fs::path calls = folder / "calls";
  const fs::path files = folder / "files";
  if (fs::exists(calls)) check_calls(read_own(calls), where.string(), in);
  check_lists(head, where.string(), fs::exists(calls), fs::exists(files));
  if (fs::exists(files)) check_files(read_own(files), where.string(), in);
  if (head.made.origin == "recorded") check_sums(head, where.string(), in);
}

std::string calls_with_sizes(const capture& c) {
  std::string text;
  std::string_view calls = c.calls;
  while (!calls.empty()) {
    const std::size_t end = std::min(calls.find('\n'), calls.size());
    const std::string_view line = calls.substr(0, end);
    calls.remove_prefix(std::min(end + 1, calls.size()));
    const auto call = line.starts_with('#') ? std::nullopt : parse_call(line);
    const std::size_t slash = call ? call->name.find('/') : 0;
    const auto at = call ? c.answers.find({std::string{call->name.substr(0, slash)},
                                           std::string{call->name.substr(slash + 1)}})
                         : c.answers.end();
    if (at == c.answers.end())
      text += fmt::format("{}\n", line);
    else
      text += fmt::format("{} {} {}\n", call->before, at->second.size(), call->name);
  }
  return text;
}

}  // namespace lab
