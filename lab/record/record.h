// Records an audit of a real router: the audit runs as usual, but every tool that it calls is
// tessel-lab-tool, which passes the call to the real tool and keeps its output. In a private mount
// namespace,
//
//     /opt/nos/bin      holds a stand-in for each program that is really there
//     .OUT.XXXXXX/bin   first on the path: a stand-in for each tool that is really on the path
//     /var/log          the folder for the logs, if one was named
//
// and everything else is unchanged, including the network and /tmp. The real tools run in their
// usual mounts. Where only a user namespace gives the right to mount, a process cannot go back, and
// they run as files bound elsewhere.
//
// OUT becomes a capture: a manifest, the answers, a list of the calls in the order in which they
// began, with their durations, and the journal of the run (docs/JOURNAL.md).
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace lab {

struct record_request {
  std::filesystem::path out;
  std::string shown;           // `out` as messages name it
  std::filesystem::path logs;  // made if missing; empty: /var/log as it is
  std::filesystem::path host;
  std::filesystem::path library;
  std::filesystem::path tool;  // tessel-lab-tool
  std::vector<std::string> host_arguments;
  std::function<std::string(std::string_view banner)> type_in;  // the router's type, or nothing
};

// Throws `lab_error` unless a capture can be made at `out`, and the logs and the list of calls lie
// elsewhere; empty paths are not checked.
void check_record_target(const std::filesystem::path& out, const std::filesystem::path& logs,
                         const std::filesystem::path& calls);

// Returns the host's exit status, as run_in_namespace does. If no tool was called or the recording
// was interrupted, makes no capture and says so in one line. Throws `lab_error`.
int run_recorded(const record_request& request);

}  // namespace lab
