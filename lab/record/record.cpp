#include "lab/record/record.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <sstream>

#include "lab/base/beside.h"
#include "lab/base/complain.h"
#include "lab/base/descriptors.h"
#include "lab/base/error.h"
#include "lab/base/files.h"
#include "lab/base/messages.h"
#include "lab/base/namespaces.h"
#include "lab/base/private_files.h"
#include "lab/base/processes.h"
#include "lab/base/words.h"
#include "lab/capture/answer_list.h"
#include "lab/capture/capture.h"
#include "lab/capture/file_names.h"
#include "lab/record/record_arrange.h"
#include "lab/tool/ended_call.h"
#include "lab/tool/tool_names.h"

namespace lab {
namespace {

namespace fs = std::filesystem;

const fs::path tool_folder = "/opt/nos/bin";
constexpr const char* prepared_mark = "prepared";  // made by a child that is ready
constexpr const char* journal_name = "journal";    // in the work folder, then in the capture
constexpr const char* usual_path = "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin";

std::string tool_path() {
  const char* path = std::getenv("PATH");
  return path == nullptr ? usual_path : path;
}

bool is_program(const fs::path& file) {
  std::error_code ignored;
  return fs::is_regular_file(file, ignored) && access(file.c_str(), X_OK) == 0;
}

// Empty if the tool is not on the path.
fs::path on_path(const std::string& tool) {
  std::istringstream folders(tool_path());
  for (std::string folder; std::getline(folders, folder, ':');) {
    fs::path file = fs::path{folder.empty() ? "." : folder} / tool;
    if (is_program(file)) return file;
  }
  return {};
}

// The folders that the stand-ins need and write into.
void make_work_folders(const fs::path& work) {
  for (const char* made : {"capture/local", "bin", "nos", "real/folder", "real/path", "library"})
    fs::create_directories(work / made);
  for (const char* kept : {"capture", "capture/local"})
    fs::permissions(work / kept, fs::perms::owner_all);
}

// The stand-ins are found by the search path, in which a colon separates folders.
[[noreturn]] void refuse_colon(const fs::path& out) {
  throw lab_error(
      fmt::format("{}: there is a colon in it; record to a place without one", out.string()));
}

void check_place(const record_request& request) {
  check_record_target(request.out, request.logs, {});
  const fs::path out = fs::weakly_canonical(fs::absolute(request.out));
  if (lies_under(out, tool_folder) || (!request.logs.empty() && lies_under(out, "/var/log")))
    throw lab_error(fmt::format(
        "{}: the recording covers this folder for the audit; record to another", out.string()));
  if (out.string().find(':') != std::string::npos) refuse_colon(out);
}

// Setting up, in the child ---------------------------------------------------------------

void make_stand_in(const fs::path& work, const fs::path& link) {
  fs::create_symlink(work / "program", link);
}

// Files in the tools' folder that are not programs stay as they are.
void keep_entry(const fs::directory_entry& entry, const fs::path& target) {
  if (entry.is_directory()) {
    fs::create_directory(target);
    held(entry.path()).bind_to(target);
  } else if (entry.is_regular_file()) {
    bind_file(held(entry.path()), target);
  }
}

void cover_tool_folder(const fs::path& work, bool way_back) {
  if (!fs::is_directory(tool_folder)) return;
  for (const auto& entry : fs::directory_iterator(tool_folder)) {
    const std::string name = entry.path().filename().string();
    if (!is_program(entry.path())) {
      keep_entry(entry, work / "nos" / name);
      continue;
    }
    make_stand_in(work, work / "nos" / name);
    if (!way_back) bind_file(held(entry.path()), real_tool_path(work.string(), true, name));
  }
  held(work / "nos").bind_to(tool_folder);
}

void lead_path(const fs::path& work, bool way_back) {
  for (const std::string& tool : tool_names()) {
    const fs::path real = on_path(tool);
    if (real.empty()) continue;
    make_stand_in(work, work / "bin" / tool);
    if (!way_back) bind_file(held(real), real_tool_path(work.string(), false, tool));
  }
}

void prepare(const record_request& request, const fs::path& work, pid_t recorder) {
  const bool way_back = enter_namespace(0);
  bind_file(held(request.tool), work / "program");
  bind_file(held(request.host), work / "tessel-host");
  // The host looks for it beside itself.
  const fs::path report = request.host.parent_path() / "tessel-report";
  if (fs::is_regular_file(report)) bind_file(held(report), work / "tessel-report");
  bind_file(held(request.library), work / "library" / "libtessel.so");
  lead_path(work, way_back);
  cover_tool_folder(work, way_back);
  if (!request.logs.empty()) held(request.logs).bind_to("/var/log");

  const std::string path = tool_path();
  setenv(record_folder_variable, work.c_str(), 1);
  setenv(record_path_variable, path.c_str(), 1);
  if (way_back)
    setenv(record_pid_variable, std::to_string(recorder).c_str(), 1);
  else
    unsetenv(record_pid_variable);
  setenv("PATH", fmt::format("{}/bin:{}", work.string(), path).c_str(), 1);
}

// By the environment: any host with the audit's library then writes a journal. A host whose own
// arguments name a file for it writes there.
void offer_journal(const fs::path& file) {
  const descriptor made = open_file(file, O_WRONLY | O_CREAT | O_APPEND, S_IRUSR | S_IWUSR);
  if (made.number() < 0)
    throw lab_error(fmt::format("{}: {}", file.string(), std::strerror(errno)));
  const int inherited = fcntl(made.number(), F_DUPFD, STDERR_FILENO + 1);
  if (inherited < 0) throw lab_error(fmt::format("{}: {}", file.string(), std::strerror(errno)));
  setenv("TESSEL_JOURNAL", std::to_string(inherited).c_str(), 1);
}

[[noreturn]] void start_host(const record_request& request, const fs::path& work) {
  offer_journal(work / journal_name);
  std::vector<std::string> words{(work / "tessel-host").string()};
  if (!names_option(request.host_arguments, "--library"))
    words.insert(words.end(), {"--library", (work / "library" / "libtessel.so").string()});
  words.insert(words.end(), request.host_arguments.begin(), request.host_arguments.end());
  execute_program(words);
}

// Becomes the host. Returns the exit status if it cannot.
int be_child(const record_request& request, const fs::path& work, const held_back_signals& signals,
             pid_t recorder) {
  lead_group();
  signals.let_through();
  try {
    prepare(request, work, recorder);
    write_whole(work / prepared_mark, {});
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != recorder) return cannot_prepare;
    start_host(request, work);
  } catch (const no_privileges& missing) {
    complain(fmt::format("tessel-lab: {}", missing.what));
    return missing_privileges;
  } catch (const std::exception& failure) {
    complain(fmt::format("tessel-lab: {}", reported_as(message_of(failure), work, request.shown)));
  }
  return cannot_prepare;
}

group_end run_host(const record_request& request, const fs::path& work) {
  const held_back_signals signals;
  const pid_t recorder = getpid();
  return wait_for_group(start([&] { return be_child(request, work, signals, recorder); }));
}

// The capture's head ---------------------------------------------------------------------

// Reads it as the host does; the host has already ended the run for an id that it refuses.
std::uint32_t host_node_id(const std::vector<std::string>& arguments) {
  constexpr std::string_view option = "--node-id";
  std::string_view text;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string_view word = arguments[i];
    if (word == option && i + 1 < arguments.size())
      text = arguments[++i];
    else if (word.starts_with(option) && word.substr(option.size()).starts_with('='))
      text = word.substr(option.size() + 1);
  }
  const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
  if (hexadecimal) text.remove_prefix(2);
  std::uint32_t id = capture{}.host_node_id;
  std::from_chars(text.data(), text.data() + text.size(), id, hexadecimal ? 16 : 10);
  return id;
}

// The answers to a command, the last one first. They have numbers if one of its calls wrote errors,
// failed or got a different answer.
std::vector<std::string> answers_from_last(const fs::path& place, const std::string& command) {
  if (fs::is_regular_file(place / command)) return {read_whole(place / command)};
  const fs::path list = place / (command + std::string{list_suffix});
  if (!fs::is_regular_file(list)) return {};
  std::vector<std::string> answers;
  for (const listed_answer& a : parse_answer_list(read_whole(list), list.string()))
    answers.push_back(read_whole(place / numbered_file(command, a.number)));
  std::reverse(answers.begin(), answers.end());
  return answers;
}

// The platform's own list of nodes: name, type, ..., address in the seventh column.
std::vector<std::pair<std::string, std::string>> nodes_in(const std::string& answer) {
  constexpr std::size_t address_column = 6;
  std::vector<std::pair<std::string, std::string>> nodes;
  std::istringstream lines(answer);
  for (std::string line; std::getline(lines, line);) {
    if (line.find("ACTIVE") == std::string::npos && line.find("STANDBY") == std::string::npos)
      continue;
    std::istringstream columns(line);
    std::vector<std::string> words;
    for (std::string word; columns >> word;) words.push_back(word);
    if (words.size() > address_column) nodes.emplace_back(words[address_column], words[0]);
  }
  return nodes;
}

// From the last answer that names nodes: a later call of the tool may have failed.
std::vector<std::pair<std::string, std::string>> recorded_nodes(const fs::path& place) {
  for (const std::string& answer : answers_from_last(place, file_name("plat_nodes_show -v")))
    if (auto nodes = nodes_in(answer); !nodes.empty()) return nodes;
  return {};
}

bool was_called(const fs::path& folder, const std::string& tool) {
  for (const auto& entry : fs::directory_iterator(folder)) {
    const std::string name = entry.path().filename().string();
    if (name.starts_with(tool) &&
        (name.size() == tool.size() || name[tool.size()] == ',' || name[tool.size()] == ';'))
      return true;
  }
  return false;
}

std::string now_in_utc() {
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  std::array<char, 32> text{};
  gmtime_r(&now, &parts);
  return {text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts)};
}

std::string machine_name() {
  utsname machine{};
  return uname(&machine) == 0 ? machine.nodename : "";
}

std::string type_of(const record_request& request, const fs::path& place) {
  for (const std::string& banner : answers_from_last(place, "sw_version_show"))
    if (std::string type = request.type_in ? request.type_in(banner) : ""; !type.empty())
      return type;
  return {};
}

// When the run began and ended, and how many tools it called.
struct recorded_run {
  std::string begin;
  std::string end;
  std::uint64_t calls = 0;
};

capture head_of(const record_request& request, const fs::path& folder, const recorded_run& run) {
  capture head;
  head.made = {.origin = "recorded",
               .version = lab_version(),
               .type = type_of(request, folder / local_place),
               .host_name = machine_name(),
               .begin = run.begin,
               .end = run.end,
               .calls = run.calls};
  head.sums = sums_of_folder(folder);
  head.router = request.out.filename().string();
  head.host_node_id = host_node_id(request.host_arguments);
  head.nodes = recorded_nodes(folder / local_place);
  for (const std::string& tool : tool_names()) {
    const bool in_folder = is_program(tool_folder / tool);
    const bool is_on_path = !on_path(tool).empty();
    // A tool that exists only by path or only by name may have been called in the other way.
    if (!in_folder && (!is_on_path || !was_called(folder / local_place, tool)) && tool != "ssh")
      head.missing_tools.push_back(tool);
  }
  return head;
}

// A host that was asked to end may end in any way, at last by SIGKILL; it may also get a signal
// directly.
bool is_interruption(const group_end& end) {
  const int status = end.status;
  return end.passed_on != 0 || status == status_of_signal(SIGINT) ||
         status == status_of_signal(SIGTERM) || status == status_of_signal(SIGHUP);
}

}  // namespace

void check_record_target(const fs::path& out, const fs::path& logs, const fs::path& calls) {
  check_target(out);
  const fs::path place = fs::weakly_canonical(fs::absolute(out));
  if (place.parent_path() == "/tmp" && place.filename().string().starts_with("tessel"))
    throw lab_error(fmt::format("{}: an audit clears /tmp/tessel*; give the recording another name",
                                place.string()));
  if (out.filename().string().find(':') != std::string::npos) refuse_colon(out);
  for (const fs::path& other : {logs, calls})
    if (!other.empty() && lies_under(other, out))
      throw lab_error(fmt::format("{}: the recording is made there; name another place for it",
                                  other.string()));
}

namespace {

// A host without a journal has left the file empty.
void keep_journal(const fs::path& journal, const fs::path& capture) {
  std::error_code missing;
  const auto size = fs::file_size(journal, missing);
  if (!missing && size > 0) fs::rename(journal, capture / journal_name);
}

int record_beside(const record_request& request, const fs::path& work) {
  make_work_folders(work);
  recorded_run run{.begin = now_in_utc(), .end = {}};
  const group_end end = run_host(request, work);
  run.end = now_in_utc();
  const int status = end.status;
  if (is_interruption(end)) {
    complain(fmt::format("tessel-lab: interrupted; {} was not made", request.shown));
    // A host that ignores the signal may still succeed before it is killed.
    return status == EXIT_SUCCESS ? status_of_signal(end.passed_on) : status;
  }
  if (!fs::exists(work / prepared_mark)) return status;  // the child has reported why
  const private_files of_the_capture;
  const fs::path folder = work / "capture";
  const recorded_calls calls = arrange_recording(work);
  if (calls.all == 0) {
    complain(fmt::format("tessel-lab: no tool was called; {} was not made", request.shown));
    return status == EXIT_SUCCESS ? EXIT_FAILURE : status;
  }
  run.calls = calls.all;
  keep_journal(work / journal_name, folder);
  build_beside(request.out, [&](const fs::path& building) {
    write_manifest(head_of(request, folder, run), folder);
    fs::rename(folder, building);
  });
  if (calls.cut_off > 0)
    complain(
        fmt::format("tessel-lab: {} of {} calls had not ended when the audit did; {} names them",
                    calls.cut_off, calls.all, request.shown + "/calls"));
  return status;
}

}  // namespace

int run_recorded(const record_request& request) {
  check_place(request);
  insist_on_namespace();
  if (!request.logs.empty()) make_logs_folder(request.logs);
  const folder_beside work(request.out);
  int status = 0;
  report_as(work.path(), request.shown, [&] {
    report_as(work.path() / "capture", request.shown,
              [&] { status = record_beside(request, work.path()); });
  });
  return status;
}

}  // namespace lab
