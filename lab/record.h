// Records a run on a real router: the audit runs as always, but every tool that it calls is this
// program, which passes the call through to the real one and keeps what that prints. In a private
// mount namespace
//
//     /opt/nos/bin      holds a stand-in for each program that is really there
//     .OUT.XXXXXX/bin   first on the path: a stand-in for each tool that is really on the path
//     /var/log          the folder for the logs, if one was named
//
// and all else stays as it is, network and /tmp too. The real tools run in the mounts that they
// would run in anyway; where only a user namespace gives the right to mount, there is no way back,
// and they run as files bound elsewhere.
//
// OUT becomes a capture: a manifest, the answers and a list of the calls in the order in which they
// began, with what each took.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace lab {

inline constexpr const char* record_folder_variable = "TESSEL_LAB_RECORD";
inline constexpr const char* record_pid_variable = "TESSEL_LAB_RECORD_PID";
inline constexpr const char* record_path_variable = "TESSEL_LAB_RECORD_PATH";
inline constexpr const char* record_inner_variable = "TESSEL_LAB_RECORD_INNER";

struct record_request {
  std::filesystem::path out;
  std::filesystem::path work{};  // a folder beside it that is there already; empty: its own
  std::string told{};            // what the user calls `out`; empty: just that
  std::filesystem::path logs;    // empty: /var/log as it is
  std::filesystem::path host;
  std::filesystem::path library;
  std::filesystem::path lab;  // this program
  std::vector<std::string> host_arguments;
};

// Refuses a place that is taken or that an audit would clear. Throws `lab_error`.
void check_recording_place(const std::filesystem::path& out);

// Returns the host's exit status, as run_in_namespace does. There is no capture if no tool was
// called or the recording was interrupted, which one line tells. Throws `lab_error`.
int run_recorded(const record_request& request);

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
