// The host's command line, read into a struct, and what a returned audit means.
//
//     tessel-host --library /usr/lib/libtessel.so --node-id 0x1000
//       -> {action run, library "/usr/lib/libtessel.so", node_id 4096}
//
// Nothing here loads, prints or exits, so that tests need no process.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "command_line/usage_error.h"

namespace tessel_host {

using command_line::usage_error;

inline constexpr int status_usage = command_line::usage_status;
inline constexpr int status_library_unavailable = 69;
inline constexpr int status_output_failed = 74;
inline constexpr std::uint32_t default_node_id = 4096;

enum class host_action { run, help, version };

struct host_arguments {
  host_action action = host_action::run;
  std::optional<std::string> library;
  std::uint32_t node_id = default_node_id;
  std::string help;  // the text, if that is the action
};

// What the host says and exits with where tessel_run came back.
struct returned_run {
  std::string message;
  int status = 0;
};

// Reads the arguments after the program's name. `--name value` and `--name=value` are the same;
// of an option given twice the last one counts. `--help` wins over `--version`, both over a run.
// Throws `usage_error` for an unknown option, a missing value, a stray argument or a bad node id.
[[nodiscard]] host_arguments parse_arguments(std::span<const char* const> arguments);

// Decimal digits, or hexadecimal ones behind 0x or 0X; none for any other text and for what
// exceeds 32 bits. A leading zero does not make a number octal.
[[nodiscard]] std::optional<std::uint32_t> read_node_id(std::string_view text);

[[nodiscard]] returned_run describe_returned_run(std::int32_t result);

}  // namespace tessel_host
