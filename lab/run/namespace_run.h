// Runs the host in a private mount namespace with its own /opt, /var/log and /tmp, so that an audit
// finds its tools, writes its logs and removes its capture files without touching the machine's
// folders. The namespace contains:
//
//     /opt/nos/bin        every tool, a link to tessel-lab-tool; first on the path
//     /opt/nos/capture    the tools' answers
//     /opt/nos/state      how often they answered, where that matters
//     /opt/nos/libexec    this program, tessel-lab-tool and the host
//     /opt/nos/lib        the library
//     /var/log            the folder for the logs
//     /tmp                empty
//
// All of it vanishes with the namespace when the host ends. The host's working folder is the
// caller's. With `real_ssh` there is no stand-in
// for ssh: the machine's own ssh connects to servers that are started for the run.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "lab/capture/capture.h"
#include "lab/run/real_ssh.h"

namespace lab {

inline constexpr const char* journal_in_namespace = "/opt/nos/journal";

struct run_request {
  capture answers;               // if `folder` is set, only what its manifest says
  std::filesystem::path folder;  // a capture folder
  std::filesystem::path logs;    // exists
  std::filesystem::path host;
  std::filesystem::path library;
  std::filesystem::path record;  // where to record a capture; absolute, may be empty
  std::filesystem::path calls;   // where to list the tool calls, may be empty
  // The file for the host's journal, may be empty. It exists, and `host_arguments` name it
  // `journal_in_namespace`.
  std::filesystem::path journal;
  // Folders below /tmp that stay the caller's, because the host writes files there.
  std::vector<std::filesystem::path> outputs;
  std::filesystem::path lab;   // this program
  std::filesystem::path tool;  // tessel-lab-tool
  bool real_ssh = false;
  std::vector<ssh_node> nodes;              // the nodes behind ssh, if `real_ssh`
  std::vector<std::string> host_arguments;  // follow those for library and node id
};

// Returns the host's exit status, 128 + n if signal n ended it, or `missing_privileges` with one
// line on standard error that says what the child lacks. Passes SIGINT, SIGTERM and SIGHUP on to
// the host. Call it from a program with one thread. Throws `lab_error` for a file that cannot be
// opened, and `no_privileges` if no process namespace can be made.
int run_in_namespace(const run_request& request);

}  // namespace lab
