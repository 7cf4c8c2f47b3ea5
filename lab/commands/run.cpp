#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "host/audit_files.h"
#include "lab/base/beside.h"
#include "lab/base/complain.h"
#include "lab/base/descriptors.h"
#include "lab/base/error.h"
#include "lab/base/namespaces.h"
#include "lab/capture/archive.h"
#include "lab/capture/capture.h"
#include "lab/capture/capture_check.h"
#include "lab/commands/commands.h"
#include "lab/faults/render_faulty.h"
#include "lab/record/record.h"
#include "lab/run/namespace_run.h"
#include "lab/tool/latency.h"

namespace lab {
namespace {

namespace fs = std::filesystem;

fs::path existing_file(const fs::path& file, const char* option) {
  if (!fs::is_regular_file(file))
    throw lab_error(
        fmt::format("{}: there is no such file; name it with {}", file.string(), option));
  return fs::absolute(file);
}

}  // namespace

fs::path own_program() {
  return fs::read_symlink("/proc/self/exe");
}

fs::path tool_program() {
  fs::path beside = own_program().parent_path() / "tessel-lab-tool";
  if (access(beside.c_str(), X_OK) != 0)
    throw lab_error(fmt::format(
        "{}: cannot be executed: {}; it stands in for the router's tools; copy it there from the "
        "folder that tessel-lab was built or installed in",
        beside.string(), std::strerror(errno)));
  return beside;
}

fs::path host_of(const program_options& o) {
  const fs::path beside = own_program().parent_path() / "tessel-host";
  fs::path host = existing_file(o.host ? fs::path{*o.host} : beside, "--host");
  if (access(host.c_str(), X_OK) != 0)
    throw lab_error(fmt::format("{}: cannot be executed: {}; name another with --host",
                                host.string(), std::strerror(errno)));
  return host;
}

namespace {

// The one that tessel-host takes (host/library.cpp). A build puts it beside this program, an
// installation into its library folder, where only those who link to it have the name without a
// number.
fs::path usual_library() {
  const fs::path folder = own_program().parent_path();
  const fs::path name = "libtessel.so";
  for (const fs::path& place : {folder, (folder / TESSEL_BIN_TO_LIB).lexically_normal()})
    for (const fs::path& file : {fs::path{name} += "." TESSEL_INTERFACE, name})
      if (fs::exists(place / file)) return place / file;
  return folder / name;
}

}  // namespace

fs::path library_of(const program_options& o) {
  return existing_file(o.library ? fs::path{*o.library} : usual_library(), "--library");
}

namespace {

// The named folder, made if it is missing, or a new one, which standard error then names.
fs::path logs_folder(const fs::path& named) {
  if (named.empty()) {
    const char* temporary = std::getenv("TMPDIR");
    std::string folder =
        std::string{temporary == nullptr ? "/tmp" : temporary} + "/lab-logs.XXXXXX";
    if (mkdtemp(folder.data()) == nullptr)
      throw lab_error(fmt::format("{}: cannot be made: {}; name a folder with --logs", folder,
                                  std::strerror(errno)));
    complain(fmt::format("tessel-lab: the logs are in {}", folder));
    return folder;
  }
  make_logs_folder(named);
  return fs::absolute(named);
}

void check_calls_file(const fs::path& file) {
  if (fs::is_directory(file))
    throw lab_error(fmt::format("{}: is a folder; name a file with --keep-calls", file.string()));
  if (!fs::exists(file)) return check_target(file);
  if (access(file.c_str(), W_OK) != 0)
    throw lab_error(fmt::format("{}: cannot be written: {}", file.string(), std::strerror(errno)));
}

void make_calls_file(const fs::path& file) {
  make_folders_above(file);
  const descriptor made = open_file(file, O_WRONLY | O_CREAT | O_TRUNC, 0644);
  if (!made.is_open())
    throw lab_error(fmt::format("{}: cannot be written: {}", file.string(), std::strerror(errno)));
}

fs::path absolute_or_empty(const std::optional<std::string>& named) {
  return named ? fs::absolute(target_named(*named)) : fs::path{};
}

// The file of the host's last option --journal, as the caller names it; empty if there is none. In
// the namespace, where the caller's folders may be covered, it has another name.
fs::path take_journal(std::vector<std::string>& host_arguments) {
  const std::string option = "--journal";
  fs::path named;
  for (std::size_t at = 0; at < host_arguments.size(); ++at) {
    std::string& word = host_arguments[at];
    const bool is_apart = word == option && at + 1 < host_arguments.size();
    if (!is_apart && !word.starts_with(option + "=")) continue;
    std::string& value = is_apart ? host_arguments[++at] : word;
    const std::string file = is_apart ? value : word.substr(option.size() + 1);
    if (file.empty()) continue;  // the host refuses it
    named = target_named(file);
    value = is_apart ? journal_in_namespace : option + "=" + journal_in_namespace;
  }
  return named;
}

// A device is the same in the run, and so is a pipe of the caller's, such as /dev/fd/63. There may
// be folders and files beside them, as in /dev/shm.
bool is_device(const std::string& file) {
  const std::string place = fs::absolute(file).lexically_normal();
  for (const char* const own : {"/dev/fd/", "/dev/std", "/proc/self/fd/"})
    if (place.starts_with(own)) return true;
  if (!place.starts_with("/dev/") && !place.starts_with("/proc/")) return false;
  std::error_code unseen;
  const fs::file_status found = fs::status(place, unseen);
  return fs::exists(found) && !fs::is_regular_file(found) && !fs::is_directory(found);
}

// The values of the host's options that name a file that it writes when the audit has ended. What
// has no name the host refuses.
std::vector<std::string> written_files(const std::vector<std::string>& host_arguments) {
  std::vector<std::string> files;
  const auto take = [&](const std::string& file) {
    if (!file.empty() && !is_device(file)) files.push_back(file);
  };
  for (std::size_t at = 0; at < host_arguments.size(); ++at)
    for (const std::string option : {"--json", "--support-file"}) {
      if (host_arguments[at] == option && at + 1 < host_arguments.size())
        take(host_arguments[at + 1]);
      else if (host_arguments[at].starts_with(option + "="))
        take(host_arguments[at].substr(option.size() + 1));
    }
  return files;
}

// The run stays in the caller's folder, so that a name below it reaches its place whatever the run
// covers, unless the way there leads into what it covers.
bool is_below_caller(const fs::path& file) {
  const fs::path here = fs::current_path();
  const fs::path place = fs::weakly_canonical(fs::absolute(file));
  if (file.is_absolute() || !lies_under(place, here)) return false;
  for (const fs::path covered : {"/tmp", "/opt", "/var/log"}) {
    if (lies_under(place, covered) && !lies_under(here, covered)) return false;
  }
  return true;
}

// Throws `lab_error` for a file that would vanish with the run's own /tmp or /opt. One in /var/log
// goes to the folder of the logs, as the logs do.
void refuse_what_would_vanish(const std::vector<std::string>& files) {
  for (const fs::path file : files) {
    if (is_below_caller(file)) continue;
    const fs::path place = fs::weakly_canonical(fs::absolute(file));
    const bool is_audits = fs::relative(place, "/tmp").string().starts_with("tessel");
    const bool is_in_tmp = place.parent_path() == "/tmp";
    if (is_in_tmp && is_audits) continue;  // the host refuses it
    if (is_in_tmp || is_audits || lies_under(place, "/opt"))
      throw lab_error(
          fmt::format("{}: would vanish with the run, which has {} of its own; give it a relative "
                      "name, or one in another folder",
                      file.string(), is_in_tmp || is_audits ? "a /tmp" : "an /opt"));
  }
}

// A name in /var/log leads to the folder of the logs, where only the run can make anything.
void make_folders_of(const std::vector<std::string>& files) {
  for (const fs::path file : files) {
    const fs::path place = fs::absolute(file);
    if (is_below_caller(file) || !lies_under(place, "/var/log")) make_folders_above(place);
  }
}

// The folders of these files below /tmp, which the run covers, an outer one before an inner one.
std::vector<fs::path> folders_in_tmp(const std::vector<std::string>& files) {
  std::vector<fs::path> folders;
  for (const fs::path file : files) {
    const fs::path folder = fs::weakly_canonical(fs::absolute(file)).parent_path();
    if (!is_below_caller(file) && folder != "/tmp" && lies_under(folder, "/tmp") &&
        fs::is_directory(folder))
      folders.push_back(folder);
  }
  std::sort(folders.begin(), folders.end());
  return folders;
}

// True for what the host takes for a log, in the folder.
bool is_log_in(const fs::path& file, const fs::path& folder) {
  std::error_code unseen;
  const fs::path place = fs::weakly_canonical(fs::absolute(file), unseen);
  return !folder.empty() && place.parent_path() == fs::weakly_canonical(folder) &&
         tessel_host::is_name_of_log(place.filename().string());
}

// Throws `lab_error` for what the host would refuse, if it saw where it leads.
void refuse_logs(const std::vector<std::string>& files, const fs::path& journal,
                 const fs::path& logs) {
  std::vector<fs::path> refused;
  for (const fs::path file : files)
    if (is_log_in(file, logs)) refused.push_back(file);
  if (!journal.empty() && (is_log_in(journal, logs) || is_log_in(journal, "/var/log")))
    refused.push_back(journal);
  if (!refused.empty())
    throw lab_error(
        fmt::format("{}: is a log of the audit; name another file", refused.front().string()));
}

// Where the journal is written: one in /var/log lies in the folder of the logs, as the logs do. The
// machine's own /var/log is not touched.
fs::path place_of_journal(const fs::path& journal, const fs::path& logs) {
  fs::path place = fs::absolute(journal);
  const fs::path folder = place.parent_path();
  if (is_below_caller(journal) || !lies_under(folder, "/var/log") || lies_under(folder, logs))
    return place;
  const fs::path below =
      fs::weakly_canonical(folder).lexically_relative(fs::weakly_canonical("/var/log"));
  return (logs / below).lexically_normal() / place.filename();
}

// The host does the rest, as everywhere.
void make_journal_file(const fs::path& file) {
  const auto type = fs::symlink_status(file).type();
  if (type != fs::file_type::not_found && type != fs::file_type::regular)
    throw lab_error(fmt::format("{}: is not a file; name another with --journal", file.string()));
  make_folders_above(file);
  const descriptor made = open_file(file, O_WRONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK, 0600);
  if (!made.is_open())
    throw lab_error(fmt::format("{}: cannot be written: {}", file.string(), std::strerror(errno)));
}

// Prepares the outputs, once it is clear that all of them can be written.
void set_outputs(const run_options& o, run_request& request) {
  const fs::path logs = absolute_or_empty(o.logs);
  request.calls = absolute_or_empty(o.calls);
  request.record = absolute_or_empty(o.record);
  // The file may lie in the folder of the logs, which may have to be made first.
  const bool keeps_calls = !request.calls.empty();
  if (keeps_calls && (logs.empty() || !lies_under(request.calls, logs)))
    check_calls_file(request.calls);
  if (!request.record.empty()) check_record_target(request.record, logs, request.calls);
  const std::vector<std::string> files = written_files(o.host_arguments);
  refuse_what_would_vanish(files);
  request.host_arguments = o.host_arguments;
  const fs::path journal = take_journal(request.host_arguments);
  refuse_logs(files, journal, logs);
  request.logs = logs_folder(o.logs.value_or(""));
  if (!journal.empty()) request.journal = place_of_journal(journal, request.logs);
  make_folders_of(files);
  request.outputs = folders_in_tmp(files);
  if (keeps_calls) make_calls_file(request.calls);
  if (!request.journal.empty()) make_journal_file(request.journal);
}

// A capture folder is used as it is, a packed capture is unpacked into memory, a router is
// rendered.
void set_answers(const run_options& o, run_request& request) {
  std::vector<std::string> faults = o.faults;
  const std::vector<planted_ssh_fault> ssh_faults = take_ssh_faults(faults);
  request.real_ssh = o.real_ssh;
  if (!ssh_faults.empty() && !request.real_ssh)
    throw wrong_values("run", fmt::format("fault {} needs --real-ssh", ssh_faults.front().name));
  const std::string& what = o.source;
  const bool is_file = fs::is_regular_file(what) && !what.ends_with(".toml");
  if ((fs::is_directory(what) || is_file) && !faults.empty())
    throw wrong_values("run", "a fault is planted into a router, not into a capture");
  if (fs::is_directory(what)) {
    request.folder = fs::absolute(what);
    request.answers = read_manifest(what);
    check_recording_folder(request.answers, what, what);
  } else if (is_file) {
    request.answers = read_packed(what);
  } else {
    request.answers = render(faulty_router(what, faults));
  }
  if (request.real_ssh) request.nodes = nodes_behind_ssh(request.answers, ssh_faults);
}

// The tools read the variable themselves.
void set_latencies(const run_options& o) {
  unsetenv(latency_variable);
  if (!o.latency) return;
  try {
    parse_latencies(*o.latency);
  } catch (const lab_error& failure) {
    throw wrong_values("run", failure.what());
  }
  setenv(latency_variable, o.latency->c_str(), 1);
}

}  // namespace

int run_command(const run_options& o) {
  set_latencies(o);
  run_request request;
  set_answers(o, request);
  request.lab = own_program();
  request.tool = tool_program();
  request.host = host_of(o.programs);
  request.library = library_of(o.programs);
  if (request.real_ssh)
    insist_on_real_ssh();
  else
    insist_on_namespace();
  set_outputs(o, request);
  return run_in_namespace(request);
}

}  // namespace lab
