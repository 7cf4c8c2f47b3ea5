#include "command_line.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <optional>

#include "capture.h"
#include "description.h"
#include "faults.h"
#include "namespace_run.h"
#include "render.h"
#include "router.h"

namespace lab {
namespace {

namespace fs = std::filesystem;

constexpr const char* help_text =
    "tessel-lab: a router when there is none\n"
    "\n"
    "  tessel-lab list                           the described routers\n"
    "  tessel-lab faults                         the faults that can be planted\n"
    "  tessel-lab render ROUTER OUT              write what the router's tools print\n"
    "      --fault NAME                          plant a fault; may be repeated\n"
    "  tessel-lab run ROUTER|CAPTURE             audit it in a namespace of its own\n"
    "      --fault NAME                          plant a fault; may be repeated\n"
    "      --logs DIR                            leave the logs there\n"
    "      --host FILE                           tessel-host beside this program unless given\n"
    "      --library FILE                        libtessel.so beside this program, or in the\n"
    "                                            library folder of its installation, unless given\n"
    "      --keep-calls FILE                     list every tool call there\n"
    "      -- HOST ARGS                          for the host\n"
    "  tessel-lab --help | --version\n"
    "\n"
    "ROUTER is a name from the list or a file that ends in .toml; CAPTURE is a rendered folder.\n";

struct usage_error : std::runtime_error {
  using std::runtime_error::runtime_error;
};

struct options {
  std::vector<std::string> operands;
  std::vector<std::string> faults;
  std::string logs;
  std::string host;
  std::string library;
  std::string calls;
  std::vector<std::string> host_arguments;
};

std::string* single_value(options& o, const std::string& option) {
  if (option == "--logs") return &o.logs;
  if (option == "--host") return &o.host;
  if (option == "--library") return &o.library;
  if (option == "--keep-calls") return &o.calls;
  return nullptr;
}

options parse_options(const std::vector<std::string>& arguments, bool for_run) {
  options o;
  for (std::size_t i = 1; i < arguments.size(); ++i) {
    const std::string& word = arguments[i];
    if (for_run && word == "--") {
      o.host_arguments.assign(arguments.begin() + static_cast<std::ptrdiff_t>(i) + 1,
                              arguments.end());
      break;
    }
    if (!word.starts_with('-')) {
      o.operands.push_back(word);
      continue;
    }
    std::string* value = for_run ? single_value(o, word) : nullptr;
    if (value == nullptr && word != "--fault")
      throw usage_error(
          fmt::format("{}: unknown option {}; see tessel-lab --help", arguments.front(), word));
    if (++i == arguments.size())
      throw usage_error(fmt::format("{}: {} needs a value", arguments.front(), word));
    if (value != nullptr)
      *value = arguments[i];
    else
      o.faults.push_back(arguments[i]);
  }
  return o;
}

void expect_operands(const std::string& command, const options& o, std::size_t count,
                     const char* names) {
  if (o.operands.size() != count)
    throw usage_error(
        fmt::format("{}: expected {}, got {} operands", command, names, o.operands.size()));
}

router faulty_router(const std::string& name, const std::vector<std::string>& faults) {
  router r = load_router(name);
  for (const std::string& fault : faults) r.faults.push_back(parse_fault(fault));
  return r;
}

int list() {
  for (const std::string& name : router_names()) {
    const router r = load_router(name);
    fmt::print("{:<24} {}\n", name, r.description);
  }
  return EXIT_SUCCESS;
}

int list_faults() {
  for (const fault& f : fault_catalogue())
    fmt::print("{:<20} {}\n{:<20}   {}\n", f.name, f.description, "", f.finding);
  return EXIT_SUCCESS;
}

int render_command(const options& o) {
  expect_operands("render", o, 2, "ROUTER OUT");
  write_folder(render(faulty_router(o.operands[0], o.faults)), o.operands[1]);
  return EXIT_SUCCESS;
}

fs::path own_program() {
  return fs::read_symlink("/proc/self/exe");
}

// Beside this program, as a build leaves it, or where an installation has it.
fs::path own_library() {
  const fs::path folder = own_program().parent_path();
  const fs::path beside = folder / "libtessel.so";
  const fs::path installed = (folder / TESSEL_BIN_TO_LIB / "libtessel.so").lexically_normal();
  return !fs::exists(beside) && fs::exists(installed) ? installed : beside;
}

fs::path existing_file(const std::string& named, const fs::path& usual, const char* option) {
  const fs::path file = named.empty() ? usual : fs::path{named};
  if (!fs::is_regular_file(file))
    throw lab_error(
        fmt::format("{}: there is no such file; name it with {}", file.string(), option));
  return fs::absolute(file);
}

fs::path logs_folder(const std::string& named) {
  if (named.empty()) {
    const char* temporary = std::getenv("TMPDIR");
    std::string folder =
        std::string{temporary == nullptr ? "/tmp" : temporary} + "/lab-logs.XXXXXX";
    if (mkdtemp(folder.data()) == nullptr) throw lab_error(folder + ": cannot be made");
    fmt::print(stderr, "tessel-lab: the logs are in {}\n", folder);
    return folder;
  }
  std::error_code failure;
  fs::create_directories(named, failure);
  if (failure) throw lab_error(fmt::format("{}: {}", named, failure.message()));
  return fs::absolute(named);
}

fs::path calls_file(const std::string& named) {
  if (named.empty()) return {};
  const int fd = open(named.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) throw lab_error(fmt::format("{}: cannot be written", named));
  close(fd);
  return fs::absolute(named);
}

int run_command(const options& o) {
  expect_operands("run", o, 1, "ROUTER or CAPTURE");
  run_request request;
  if (is_capture_folder(o.operands[0])) {
    if (!o.faults.empty())
      throw usage_error("run: a fault is planted into a router, not into a capture");
    request.folder = fs::absolute(o.operands[0]);
    request.answers = read_manifest(request.folder);
  } else if (fs::is_directory(o.operands[0])) {
    throw lab_error(fmt::format("{}: no capture, there is no manifest in it", o.operands[0]));
  } else {
    request.answers = render(faulty_router(o.operands[0], o.faults));
  }
  request.lab = own_program();
  request.host = existing_file(o.host, own_program().parent_path() / "tessel-host", "--host");
  request.library = existing_file(o.library, own_library(), "--library");
  request.logs = logs_folder(o.logs);
  request.calls = calls_file(o.calls);
  request.host_arguments = o.host_arguments;
  return run_in_namespace(request);
}

int run_subcommand(const std::vector<std::string>& arguments) {
  const std::string& command = arguments.front();
  if (command == "--help") {
    fmt::print("{}", help_text);
    return EXIT_SUCCESS;
  }
  if (command == "--version") {
    fmt::print("tessel-lab {}\n", TESSEL_LAB_VERSION);
    return EXIT_SUCCESS;
  }
  if (command != "list" && command != "faults" && command != "render" && command != "run")
    throw usage_error(fmt::format("unknown command \"{}\"; see tessel-lab --help", command));
  const options o = parse_options(arguments, command == "run");
  if (command == "render") return render_command(o);
  if (command == "run") return run_command(o);
  expect_operands(command, o, 0, "nothing");
  return command == "list" ? list() : list_faults();
}

}  // namespace

int run_command_line(const std::vector<std::string>& arguments) {
  try {
    if (arguments.empty()) throw usage_error("no command; see tessel-lab --help");
    return run_subcommand(arguments);
  } catch (const usage_error& failure) {
    fmt::print(stderr, "tessel-lab: {}\n", failure.what());
    return usage_status;
  } catch (const std::exception& failure) {
    fmt::print(stderr, "tessel-lab: {}\n", failure.what());
    return EXIT_FAILURE;
  }
}

}  // namespace lab
