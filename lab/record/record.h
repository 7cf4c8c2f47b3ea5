// Records a run on a real router: the audit runs as always, but every tool that it calls is
// tessel-lab-tool, which passes the call through to the real one and keeps what that prints. In a
// private mount namespace
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

struct record_request {
  std::filesystem::path out;
  std::string shown;           // the same as messages name it
  std::filesystem::path logs;  // made if need be; empty: /var/log as it is
  std::filesystem::path host;
  std::filesystem::path library;
  std::filesystem::path tool;  // tessel-lab-tool
  std::vector<std::string> host_arguments;
};

// Throws `lab_error` unless a capture can be made as `out`, and logs and list of calls lie
// elsewhere; empty ones are not looked at.
void check_record_target(const std::filesystem::path& out, const std::filesystem::path& logs,
                         const std::filesystem::path& calls);

// Returns the host's exit status, as run_in_namespace does. There is no capture if no tool was
// called or the recording was interrupted, which one line tells. Throws `lab_error`.
int run_recorded(const record_request& request);

}  // namespace lab
