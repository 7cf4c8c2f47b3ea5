// The stand-in tools: one program, tessel-lab-tool, under the names of all tools. It finds the file
// with the answer to its command line and copies it to standard output.
//
//     /opt/nos/bin/asic_shell_show -c "show unit" -u all -n A
//         -> local/asic_shell_show,-c,show+unit,-u,all,-n,A
//     ssh -q -o StrictHostKeyChecking=no 192.0.0.6 /opt/nos/bin/fwd_object_show -t lagport -D
//         -> 192.0.0.6/fwd_object_show,-t,lagport,-D
//
// A chip command without a file of its own is answered from the file that all chips share, if there
// is one: .../asic_shell_show,-c,diag+pp+lif+id=0x4000+gl=1+type=in.
//
// A login that only tests, as `tessel-host doctor` does, is answered as the node would:
//
//     ssh -o BatchMode=yes 192.0.0.6 "for f in /opt/nos/bin/fwd_object_show; do test -x ..."
//
// Some tools must be called by their full path, /opt/nos/bin/..., and all others by their name
// alone. A wrong call fails here as it would on a router.
//
// A recorded command line that gave different answers, or a status other than 0, has a list of them
// (lab/capture/answer_list.h). The list is replayed call by call; TESSEL_LAB_STATE names the folder
// that counts the calls (else /opt/nos/state).
//
// TESSEL_LAB_CAPTURE names the capture folder (else /opt/nos/capture). If TESSEL_LAB_CALLS names a
// file, every call adds its command line to it. TESSEL_LAB_LATENCY (lab/tool/latency.h) delays the
// answers.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace lab {

inline constexpr int unknown_command = 127;
inline constexpr int ssh_failed = 255;

struct call {
  std::string place;    // folder of the answer
  std::string file;     // its file
  std::string problem;  // why there is no answer; empty if there may be one
  // Of a login that only tests whether the node has these programs. Few captures have an answer to
  // it: those of a run whose host has called the doctor.
  std::optional<std::vector<std::string>> tested{};
};

// `command` is the tool's name and its arguments.
call resolve(const std::vector<std::string>& command);

// Answers the command on standard output. Returns the exit status: 0 or the recorded one; 127 for a
// command line that the router does not know, which standard error names; 255 if ssh itself fails.
int serve(const std::vector<std::string>& command);

}  // namespace lab
