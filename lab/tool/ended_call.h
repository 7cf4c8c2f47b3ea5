// What the tools of a router that is being recorded and the recording that started them agree on:
// where the work folder is, and how a call is noted in it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace lab {

inline constexpr const char* record_folder_variable = "TESSEL_LAB_RECORD";
inline constexpr const char* record_pid_variable = "TESSEL_LAB_RECORD_PID";
inline constexpr const char* record_path_variable = "TESSEL_LAB_RECORD_PATH";
inline constexpr const char* record_inner_variable = "TESSEL_LAB_RECORD_INNER";

// Of `run --record`: in its namespace the place has another path than the user knows.
inline constexpr const char* record_shown_option = "--shown-as";

// A call as the stand-ins note it when it has ended.
struct ended_call {
  std::string place;
  std::string file;
  unsigned number = 0;
  std::int64_t begin = 0;  // microseconds, of the clock that never jumps
  std::int64_t duration = 0;
  int status = 0;
  std::size_t bytes = 0;
  int problem = 0;  // an errno: why not all of it was kept
};

std::string call_line(const ended_call& c);

// The bound file of a tool that was called with its folder, or found on the path.
std::string real_tool_path(const std::string& work, bool has_folder, const std::string& tool);

}  // namespace lab
