#include "desk/read/channel_log.h"

#include <fmt/format.h>

#include "desk/read/line_reader.h"

namespace desk {

namespace {

constexpr std::string_view start_line = "Started Tessel Checker";
constexpr std::size_t longest_start = 80;  // of what is shown
constexpr std::string_view stamp_form = "dddd-dd-dd dd:dd:dd,ddd: ";

log_run& run_of(channel_log& log) {
  if (log.runs.empty()) log.runs.emplace_back();
  return log.runs.back();
}

void add_entry(channel_log& log, const std::string& file, std::string_view line, std::size_t number,
               std::size_t stamp) {
  const std::string time(line.substr(0, stamp - 2));
  const std::string_view text = line.substr(stamp);
  if (text.starts_with(start_line)) {
    log.other_start =
        text == start_line ? std::string() : std::string(text.substr(0, longest_start));
    log.runs.push_back({time, {}});
    return;
  }
  run_of(log).entries.push_back({time, std::string(text), file, number, false});
}

// A line without a time belongs to the entry before it, as more of its text or as its traceback.
void add_continuation(channel_log& log, const std::string& file, const std::string& line,
                      std::size_t number) {
  auto& entries = run_of(log).entries;
  if (entries.empty() || entries.back().file != file) {
    // The head of this entry went with an older file.
    entries.push_back({"", line, file, number, line.starts_with("  File \"")});
    return;
  }
  log_entry& entry = entries.back();
  if (log.has_traces && line == "Traceback (most recent call last):") entry.has_trace = true;
  if (!entry.has_trace) entry.text.append("\n").append(line);
}

void read_file(channel_log& log, const std::string& folder, const std::string& name) {
  try {
    byte_source bytes(folder + "/" + name);
    line_reader lines(bytes);
    std::string line;
    while (lines.next(line)) {
      if (const std::size_t stamp = length_of_stamp(line))
        add_entry(log, name, line, lines.number(), stamp);
      else
        add_continuation(log, name, line, lines.number());
    }
    if (!lines.has_end()) log.marks.push_back(fmt::format("{} ends in the middle of a line", name));
    if (lines.cut_lines() != 0)
      log.marks.push_back(
          fmt::format("{} has lines longer than {} bytes, which are cut", name, longest_line));
  } catch (const read_error& error) {
    log.marks.emplace_back(error.what());
  }
}

}  // namespace

std::size_t length_of_stamp(std::string_view line) {
  if (line.size() < stamp_form.size()) return 0;
  for (std::size_t i = 0; i < stamp_form.size(); ++i) {
    const bool is_digit = line[i] >= '0' && line[i] <= '9';
    if (stamp_form[i] == 'd' ? !is_digit : line[i] != stamp_form[i]) return 0;
  }
  return stamp_form.size();
}

channel_log read_channel_log(const std::string& folder, std::string_view name, bool has_traces) {
  channel_log log;
  log.has_traces = has_traces;
  log.name = name;
  const std::string backup = log.name + ".1";
  if (file_exists(folder + "/" + backup)) read_file(log, folder, backup);
  const std::size_t marks = log.marks.size();
  read_file(log, folder, log.name);
  log.is_read = file_exists(folder + "/" + log.name) && log.marks.size() == marks;
  if (!log.other_start.empty())
    log.marks.push_back(fmt::format(
        "{}: the last run begins with \"{}\", so another version of the audit wrote it, and its "
        "messages may not be understood",
        log.name, log.other_start));
  return log;
}

}  // namespace desk
