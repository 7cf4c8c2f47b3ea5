#include <fcntl.h>
#include <fmt/format.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "lab/base/beside.h"
#include "lab/base/descriptors.h"
#include "lab/base/error.h"
#include "lab/base/files.h"
#include "lab/base/messages.h"
#include "lab/base/namespaces.h"
#include "lab/base/private_files.h"
#include "lab/base/processes.h"
#include "lab/capture/archive.h"
#include "lab/capture/capture_check.h"
#include "lab/capture/redact.h"
#include "lab/commands/commands.h"
#include "lab/run/run_findings.h"

namespace lab {
namespace {

namespace fs = std::filesystem;

constexpr int status_in_part = 2;  // not all that the audits found could be compared

name_kinds kinds_named(const std::vector<std::string>& names) {
  const auto has = [&](const char* name) {
    return std::find(names.begin(), names.end(), name) != names.end() ||
           std::find(names.begin(), names.end(), "all") != names.end();
  };
  return {.vrf = has("vrf"), .acl = has("acl"), .trustpoint = has("trustpoint")};
}

// Verifying
// ----------------------------------------------------------------------------------------

int run_into(std::vector<std::string> words, const fs::path& out, const fs::path& err) {
  const pid_t child = start([&] {
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    constexpr int flags = O_WRONLY | O_CREAT | O_TRUNC;
    const descriptor to_out = open_file(out, flags, 0600);
    const descriptor to_err = open_file(err, flags, 0600);
    if (dup2(to_out.number(), STDOUT_FILENO) < 0 || dup2(to_err.number(), STDERR_FILENO) < 0)
      return EXIT_FAILURE;
    execute_program(std::move(words));
  });
  int wait_status = 0;
  if (collect(child, wait_status) < 0) fail("waiting for an audit");
  return status_of(wait_status);
}

struct audits {
  fs::path work;
  fs::path host;
  fs::path library;

  run_findings of(const fs::path& capture, const std::string& name,
                  const std::function<std::string(const std::string&)>& edited) const {
    const fs::path logs = work / name;
    const fs::path console = work / (name + ".console");
    const fs::path complaints = work / (name + ".complaints");
    const int status =
        run_into({own_program().string(), "run", capture.string(), "--logs", logs.string(),
                  "--host", host.string(), "--library", library.string()},
                 console, complaints);
    constexpr std::string_view own_message = "tessel-lab: ";
    const std::string complaint = read_whole(complaints);
    // If both audits failed in this way, their outputs would be alike.
    if (complaint.starts_with(own_message))
      throw lab_error(fmt::format("the audit of the {} capture failed: {}", name,
                                  complaint.substr(own_message.size())));
    run_findings found = read_findings(logs, read_whole(console), status, edited);
    fs::remove_all(logs);
    return found;
  }
};

// What competes for room in /tmp, or for a tool that answers once, may end otherwise in the next
// audit of the same capture. So a difference counts only if it shows in every round. What moves
// by even chances looks like a difference for that long once in thirty thousand times.
constexpr std::size_t most_rounds = 8;

// Audits both captures, and again as long as they differ. Throws if they keep doing so.
comparison verify(const redact_options& o, const fs::path& out, const fs::path& built,
                  redaction& replaced) {
  const folder_beside work(out);
  const audits both{work.path(), host_of(o.programs), library_of(o.programs)};
  const auto fail_because = [&](const std::string& reason) {
    throw lab_error(fmt::format("{}: not made, {}", out.string(), reason));
  };
  capture_findings expected;
  capture_findings actual;
  for (;;) {
    expected.add(both.of(fs::absolute(o.from), "original",
                         [&](const std::string& text) { return replaced.redacted(text); }));
    actual.add(both.of(built, "redacted", [](const std::string& text) { return text; }));
    // An audit that runs logs how it starts.
    if (expected.logs_nothing() && actual.logs_nothing())
      fail_because("for the audits of both captures log nothing");
    comparison found = compared(expected, actual);
    if (found.difference.empty()) return found;
    if (expected.audits() == most_rounds)
      fail_because("it gives other findings: " + found.difference);
  }
}

void print_verified(const comparison& found) {
  if (found.is_complete()) {
    fmt::print("Verified: both audits log the same {} lines.\n", found.entries);
    return;
  }
  fmt::print("Verified in part: all audits log the same {} lines.", found.entries);
  if (!found.rotated.empty())
    fmt::print(" The oldest lines of {} were rotated away.", fmt::join(found.rotated, ", "));
  std::vector<std::string> moving;
  if (found.status_moves) moving.emplace_back("the audit's exit status");
  for (const auto& [name, lines] : found.moving)
    moving.push_back(fmt::format("{} line{} of {}", lines, lines == 1 ? "" : "s", name));
  if (!moving.empty())
    fmt::print(" Two audits of the same capture already differ in {}.", fmt::join(moving, ", "));
  fmt::print("\n");
}

// The private files
// ---------------------------------------------------------------------------------

// Else their user would take them for replaced.
void print_kept(const std::map<std::string, std::string>& names) {
  if (names.empty()) return;
  std::vector<std::string> shown;
  shown.reserve(names.size());
  for (const auto& [name, kind] : names) shown.push_back(fmt::format("{} {}", kind, name));
  fmt::print("Not replaced, for the audit reads the same words elsewhere: {}.\n",
             fmt::join(shown, ", "));
}

void write_mapping(const fs::path& file, const std::vector<replaced_value>& rows) {
  std::string text = "# kind, original, replacement; keep it private\n";
  for (const replaced_value& row : rows)
    text += fmt::format("{}\t{}\t{}\n", row.kind, on_one_line(row.original), row.replacement);
  build_beside(file, [&](const fs::path& building) { write_whole(building, text); });
}

// Whoever packs a capture packs all of its folder.
void check_mapping(const fs::path& file, const fs::path& from, const fs::path& out) {
  check_target(file);
  for (const auto& [capture, what] :
       {std::pair{out, "is to be given away"}, std::pair{from, "is redacted"}})
    if (lies_under(file, capture))
      throw lab_error(
          fmt::format("{}: lies in the capture that {}; name another place with "
                      "--mapping",
                      file.string(), what));
}

}  // namespace

int redact_command(const redact_options& o) {
  const fs::path out = target_named(o.out);
  const fs::path mapping = o.mapping ? target_named(*o.mapping) : fs::path{};
  if (o.mapping) check_mapping(mapping, o.from, out);
  if (o.verify) insist_on_namespace();
  capture c = read_capture(o.from);
  c.router = out.filename().string();
  redaction all(c, kinds_named(o.names));
  all.apply(c);
  c.made.redacted_by = lab_version();
  if (!c.made.host_name.empty()) c.made.host_name = all.name_for(c.made.host_name);
  c.calls = calls_with_sizes(c);
  const redaction_counts n = all.counts();
  const std::vector<replaced_value> rows = all.all();
  comparison verified;
  const private_files of_the_capture;
  // With the list of calls, which holds nothing confidential.
  write_folder(c, out, [&](const fs::path& built) {
    if (o.verify) verified = verify(o, out, built, all);
    fmt::print(
        "Replaced: {} IP and {} MAC addresses, {} texts, {} names, {} secrets, {} serial "
        "numbers.\n",
        n.addresses, n.macs, n.texts, n.names, n.secrets, n.serials);
    print_kept(all.kept_names());
    if (o.verify) print_verified(verified);
    flush_output();
    if (o.mapping) write_mapping(mapping, rows);
  });
  return !verified.is_complete() ? status_in_part : EXIT_SUCCESS;
}

}  // namespace lab
