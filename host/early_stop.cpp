#include "early_stop.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <string_view>

#include "audit_files.h"
#include "command_line/one_line.h"
#include "leftovers.h"

namespace tessel_host {

namespace {

// The tool that says what this machine is, and where the audit keeps what it has printed.
constexpr std::string_view version_tool = "sw_version_show";
constexpr const char* version_capture = "/tmp/tessel_0.log";

constexpr std::size_t longest_quote = 160;

// The end of a file that was changed since then and belongs to this user. Empty if there is none,
// or if it is a link.
std::string recent_text(const char* path, std::time_t began) {
  constexpr off_t most = 65536;
  std::string text;
  const int descriptor = ::open(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  if (descriptor < 0) return text;
  struct stat state {};
  if (::fstat(descriptor, &state) == 0 && S_ISREG(state.st_mode) && state.st_uid == ::geteuid() &&
      state.st_ctim.tv_sec >= began) {
    text.resize(static_cast<std::size_t>(std::min(state.st_size, most)));
    const off_t from = state.st_size - static_cast<off_t>(text.size());
    const ssize_t count = ::pread(descriptor, text.data(), text.size(), from);
    text.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
  }
  ::close(descriptor);
  return text;
}

bool has_entries(std::string_view log) {
  constexpr std::string_view first = "Started Tessel Checker\n";
  const std::size_t begin = log.rfind(first);
  return begin != log.npos && begin + first.size() < log.size();
}

// The first line that holds `word`; any line that is not blank holds an empty one.
std::string_view line_with(std::string_view text, std::string_view word) {
  while (!text.empty()) {
    const std::string_view line = text.substr(0, text.find('\n'));
    const bool is_blank = line.find_first_not_of(" \t\r") == line.npos;
    if (!is_blank && line.find(word) != line.npos) return line;
    text.remove_prefix(std::min(text.size(), line.size() + 1));
  }
  return {};
}

std::string quoted(std::string_view line) {
  return command_line::one_line(std::string(line.substr(0, longest_quote)));
}

std::string seen_cause(std::time_t began) {
  if (has_entries(recent_text(exception_log, began)))
    return std::string("what it printed above and ") + exception_log + " say why";
  const std::string complaints = recent_text(debug_log, began);
  if (const auto complaint = line_with(complaints, version_tool); !complaint.empty())
    return "this machine is no router that the audit knows, or not its route processor: " +
           quoted(complaint);
  std::string cause = "what it printed above says why";
  struct stat state {};
  if (::lstat(version_capture, &state) != 0 || state.st_ctim.tv_sec < began) return cause;
  const std::string output = recent_text(version_capture, began);
  // The audit looks for the model in this line.
  std::string_view line = line_with(output, "processor");
  if (line.empty()) line = line_with(output, "");
  cause += "; " + std::string(version_tool) + " printed ";
  return cause + (line.empty() ? "nothing" : "\"" + quoted(line) + "\"");
}

}  // namespace

std::string cause_of_early_stop(std::time_t began) {
  std::string cause = seen_cause(began);
  const std::string in_the_way = captures_in_the_way();
  if (in_the_way.empty()) return cause;
  return cause + "; the audit cannot replace " + in_the_way + ", so remove what is there";
}

}  // namespace tessel_host
