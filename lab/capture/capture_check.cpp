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

#include "lab/base/error.h"
#include "lab/base/files.h"
#include "lab/capture/answer_list.h"

namespace lab {
namespace {

namespace fs = std::filesystem;

// Access to a capture, in memory or on disk, by names such as "local/sw_version_show".
struct contents {
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

}  // namespace

void check_recording(const capture& c, const fs::path& where) {
  const auto found = [&](const std::string& name) {
    const std::size_t slash = name.find('/');
    return c.answers.find({name.substr(0, slash), name.substr(slash + 1)});
  };
  const contents in{[&](const std::string& name) -> std::optional<std::uint64_t> {
                      const auto at = found(name);
                      return at == c.answers.end() ? std::nullopt
                                                   : std::optional{at->second.size()};
                    },
                    [&](const std::string& name) { return found(name)->second; }};
  check_calls(c.calls, where.string(), in);
  check_files(c.files, where.string(), in);
}

void check_recording_folder(const fs::path& folder, const fs::path& where) {
  const contents in{[&](const std::string& name) -> std::optional<std::uint64_t> {
                      struct stat status {};
                      if (lstat((folder / name).c_str(), &status) != 0 || !S_ISREG(status.st_mode))
                        return std::nullopt;
                      return static_cast<std::uint64_t>(status.st_size);
                    },
                    [&](const std::string& name) { return read_own(folder / name); }};
  const fs::path calls = folder / "calls";
  if (fs::exists(calls)) check_calls(read_own(calls), where.string(), in);
  const fs::path files = folder / "files";
  if (fs::exists(files)) check_files(read_own(files), where.string(), in);
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
