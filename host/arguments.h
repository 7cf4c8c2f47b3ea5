// The host's command line as a struct, and the meaning of an audit's return value.
//
//     tessel-host --library /usr/lib/libtessel.so --node-id 0x1000
//       -> {action run, library "/usr/lib/libtessel.so", node_id 4096}
//
// Nothing here loads a library, prints or exits, so tests need no process.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "after_audit.h"
#include "command_line/usage_error.h"

namespace tessel_host {

using command_line::usage_error;

inline constexpr int status_usage = command_line::usage_status;
inline constexpr int status_library_unavailable = 69;
// The journal, the report in JSON or the support file.
inline constexpr int status_file_refused = 73;
inline constexpr int status_output_failed = 74;
inline constexpr int status_audit_running = 75;
inline constexpr std::uint32_t default_node_id = 4096;

enum class host_action { run, help, version, doctor };

struct host_arguments {
  host_action action = host_action::run;
  std::optional<std::string> library;
  std::optional<std::string> journal;
  std::uint32_t node_id = default_node_id;
  bool in_process = false;
  bool wait = false;
  std::optional<bool> progress;  // if an option says
  std::optional<std::chrono::seconds> command_timeout;
  std::optional<std::chrono::seconds> deadline;
  std::optional<std::string> support_file;
  report_wishes report;
  std::string help;          // the text, if that is the action
  std::string command_line;  // as it was given
};

// The host's message and exit status after tessel_run returned.
struct returned_run {
  std::string message;
  int status = 0;
};

// Reads the arguments after the program's name. `--name value` and `--name=value` are the same; if
// an option is given twice, the last one counts. `--help` has priority over `--version`, and both
// over a run. Throws `usage_error` for an unknown option, a missing value, a stray argument or a
// bad node id.
[[nodiscard]] host_arguments parse_arguments(std::span<const char* const> arguments);

// Reads decimal digits, or hexadecimal ones after 0x or 0X; returns nothing for any other text and
// for a number above 32 bits. A leading zero does not make a number octal.
[[nodiscard]] std::optional<std::uint32_t> read_node_id(std::string_view text);

// `cause` says why an audit has stopped early.
[[nodiscard]] returned_run describe_returned_run(std::int32_t result, const std::string& cause);

// The exit status alone, without memory.
[[nodiscard]] int status_of_returned_run(std::int32_t result);

}  // namespace tessel_host
