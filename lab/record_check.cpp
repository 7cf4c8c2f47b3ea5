#include "record_check.h"

#include <fmt/format.h>

#include <algorithm>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "record_list.h"
#include "router.h"

namespace lab {
namespace {

namespace fs = std::filesystem;

// How a capture is looked into, in memory or on disk: by "local/sw_version_show".
struct contents {
  std::function<bool(const std::string& name)> has;
  std::function<std::string(const std::string& name)> text;
};

[[noreturn]] void missing(const std::string& where, const std::string& name, std::size_t line) {
  throw lab_error(
      fmt::format("{}: {} is missing, which line {} of calls names", where, name, line));
}

// A numbered answer needs its list, and the list its answers.
void check_list(const contents& in, const std::string& where, const std::string& name,
                std::size_t line, std::set<std::string>& checked) {
  const std::string command = name.substr(0, name.find(';'));
  const std::string list = command + std::string{list_suffix};
  if (!checked.insert(list).second) return;
  if (!in.has(list)) missing(where, list, line);
  for (const listed_answer& a : parse_answer_list(in.text(list), where + ": " + list)) {
    const std::string answer = numbered_file(command, a.number);
    const std::string complaint = answer + std::string{complaint_suffix};
    if (!in.has(answer) || (a.complains && !in.has(complaint)))
      throw lab_error(fmt::format("{}: {} is missing, which {} names", where,
                                  in.has(answer) ? complaint : answer, list));
  }
}

// Each line ends with the answer's name: "0.01 0.15 0 301 local/sw_version_show".
void check_calls(std::string_view calls, const std::string& where, const contents& in) {
  constexpr auto blanks = 4;
  std::set<std::string> checked;
  for (std::size_t number = 1; !calls.empty(); ++number) {
    const std::size_t end = calls.find('\n');
    const std::string_view line = calls.substr(0, end);
    const std::string name{line.substr(line.rfind(' ') + 1)};
    calls.remove_prefix(end == std::string_view::npos ? calls.size() : end + 1);
    if (line.starts_with('#')) continue;
    if (end == std::string_view::npos || std::count(line.begin(), line.end(), ' ') != blanks ||
        name.find('/') == std::string::npos)
      throw lab_error(fmt::format("{}: calls:{}: no call of a tool", where, number));
    if (!in.has(name)) missing(where, name, number);
    if (name.find(';') != std::string::npos) check_list(in, where, name, number, checked);
  }
}

}  // namespace

void check_recording(const capture& c, const fs::path& where) {
  const auto found = [&](const std::string& name) {
    const std::size_t slash = name.find('/');
    return c.answers.find({name.substr(0, slash), name.substr(slash + 1)});
  };
  check_calls(c.calls, where.string(),
              {[&](const std::string& name) { return found(name) != c.answers.end(); },
               [&](const std::string& name) { return found(name)->second; }});
}

void check_recording_folder(const fs::path& folder, const fs::path& where) {
  const fs::path calls = folder / "calls";
  if (!fs::exists(calls)) return;
  check_calls(read_own(calls), where.string(),
              {[&](const std::string& name) { return fs::is_regular_file(folder / name); },
               [&](const std::string& name) { return read_own(folder / name); }});
}

}  // namespace lab
