// The interface between a recording and the stand-in tools that it started: the place of the work
// folder, and the form of a call in it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace lab {

inline constexpr const char* record_folder_variable = "TESSEL_LAB_RECORD";
inline constexpr const char* record_pid_variable = "TESSEL_LAB_RECORD_PID";
inline constexpr const char* record_path_variable = "TESSEL_LAB_RECORD_PATH";
inline constexpr const char* record_inner_variable = "TESSEL_LAB_RECORD_INNER";

// For `run --record`: in its namespace the target has another path than the one the user gave.
inline constexpr const char* record_shown_option = "--shown-as";

// A call as the stand-ins record it when it has ended.
struct ended_call {
  std::string place;
  std::string file;
  unsigned number = 0;
  std::int64_t begin = 0;  // microseconds of the monotonic clock
  std::int64_t duration = 0;
  int status = 0;
  std::size_t bytes = 0;
  int problem = 0;  // an errno: why the output was not kept whole
};

std::string call_line(const ended_call& c);

// The bound file of a tool that was called by its full path, or found on the search path.
std::string real_tool_path(const std::string& work, bool has_folder, const std::string& tool);

}  // namespace lab
