// A capture: the output of every tool of a router, one file per command and node. The stand-in
// tools read nothing else.
//
//     birch-small/
//       manifest                            the router, its nodes, the node of the host, where the
//                                           capture comes from, the sums of all files below
//       files                               the names of all files below
//       local/cfg_render,-c,-l,1,-t,1,-o,1
//       local/asic_shell_show,-c,show+unit,-u,all,-n,A
//       192.0.0.6/fwd_object_show,-t,lagport,-D
//
// A file's name is the command line (lab/capture/file_names.h).
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "lab/base/place.h"
#include "lab/capture/sums.h"

namespace lab {

// Where a capture comes from. A capture of format 1 has nothing of it.
struct pedigree {
  std::int64_t format = 2;         // of the manifest as it was read
  std::string origin{"rendered"};  // or "recorded", "generated"
  std::string version{};           // of the tessel-lab that made it
  std::string redacted_by{};       // the version that redacted it, empty if none did
  std::string type{};              // of the router: "birch"; empty if it is not known
  // Of a recording: the machine's own name, begin and end in UTC, and the number of tool calls.
  std::string host_name{};
  std::string begin{};
  std::string end{};
  std::uint64_t calls = 0;
};

struct capture {
  std::string router;
  std::uint32_t host_node_id = 4096;
  std::vector<std::pair<std::string, std::string>> nodes;  // address, node name
  std::vector<std::string> missing_tools;                  // tools that the router does not have
  std::string calls;      // the list of a recording, empty if it was rendered
  std::string files{};    // the list of a rendered one, as it was read; it is made anew for writing
  std::string journal{};  // of the recorded run, empty if there is none; docs/JOURNAL.md
  pedigree made{};
  file_sums sums{};  // as the manifest has them; they are made anew for writing
  // What the route processor denies the audit: folders block these capture files ("running_cfg" is
  // /tmp/tessel_running_cfg.log), these logs have no room ("stale_entries" is
  // /var/log/tessel_stale_entries.log), no file may exceed this many bytes, and /tmp holds this
  // many kibibytes (0: no limit).
  std::vector<std::string> blocked_captures{};
  std::vector<std::string> full_logs{};
  std::uint64_t file_limit = 0;
  std::uint64_t tmp_kibibytes = 0;
  // Place ("local" or an address) and file name to the whole output.
  std::map<std::pair<std::string, std::string>, std::string> answers;
};

// Adds an answer; replaces an answer of the same name.
void answer(capture& c, std::string_view place, std::string_view command_line, std::string text);
// Returns the answer to a command line: its own or the shared one. Throws `lab_error` if there is
// none.
const std::string& answer_to(const capture& c, std::string_view place,
                             std::string_view command_line);
std::string& answer_to(capture& c, std::string_view place, std::string_view command_line);

// Writes the files and the manifest into `folder`, which exists and is empty. Without the sums a
// capture can only serve this process and its children.
enum class with_sums { yes, no };
void write_files(const capture& c, const std::filesystem::path& folder,
                 with_sums sums = with_sums::yes);

// Writes the manifest as it is, with the sums in `c`.
void write_manifest(const capture& c, const std::filesystem::path& folder);

// The version that a capture made by this program has.
std::string lab_version();

// Makes `out`, which must not exist: `build` makes a file or folder at a path beside it, which is
// renamed at the end. Throws `lab_error`; nothing is left behind then.
void build_beside(const std::filesystem::path& out,
                  const std::function<void(const std::filesystem::path&)>& build);

// Writes a capture folder: builds it beside `out`, calls `last`, and renames it at the end. Throws
// `lab_error` if `out` exists or cannot be written, and passes on what `last` throws; nothing is
// left behind then.
void write_folder(const capture& c, const std::filesystem::path& out,
                  const std::function<void(const std::filesystem::path& built)>& last = nullptr);

bool is_capture_folder(const std::filesystem::path& folder);

// Reads a manifest of this or an older format; `file` names it in messages. Throws `lab_error`, for
// another format one with the format found and those that can be read.
capture parse_manifest(std::string_view text, const std::string& file);

// Reads only the manifest: router, host, nodes and missing tools. Throws `lab_error`, also if the
// folder contains anything but files and folders of files: a link would bring in data from outside
// the capture.
capture read_manifest(const std::filesystem::path& folder);

// Reads the manifest and the answers. Throws `lab_error`.
capture read_folder(const std::filesystem::path& folder);

}  // namespace lab
