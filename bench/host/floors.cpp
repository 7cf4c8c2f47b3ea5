#define PCRE2_CODE_UNIT_WIDTH 8
#include <pcre2.h>

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

#include "floors.h"
#include "usage.h"

namespace bench {

namespace {

constexpr const char* capture = "/tmp/bench-capture";
constexpr const char* snapshot = "/var/log/tessel_debug.log";
constexpr const char* written = "/var/log/bench-snapshot";

// A name and a value, as the rows of the tools have them. The quantifiers that take no step back
// keep the pass linear.
constexpr std::string_view row_pattern = R"((?<!\w)(\w++)\s*(?:=>|=|:|\|)\s*(\w+))";

[[noreturn]] void fail(const std::string& what) {
  throw std::runtime_error(what + ": " + std::strerror(errno));
}

class row_search {
 public:
  row_search() {
    int error = 0;
    std::size_t place = 0;
    code_.reset(pcre2_compile(reinterpret_cast<PCRE2_SPTR>(row_pattern.data()), row_pattern.size(),
                              0, &error, &place, nullptr));
    if (!code_ || pcre2_jit_compile(code_.get(), PCRE2_JIT_COMPLETE) != 0)
      throw std::runtime_error("the pattern of the floor cannot be compiled for this processor");
    data_.reset(pcre2_match_data_create_from_pattern(code_.get(), nullptr));
  }

  // Returns the number of matches.
  std::size_t pass_over(const std::string& text) const {
    const auto subject = reinterpret_cast<PCRE2_SPTR>(text.data());
    std::size_t matches = 0;
    std::size_t from = 0;
    for (;;) {
      const int result =
          pcre2_jit_match(code_.get(), subject, text.size(), from, 0, data_.get(), nullptr);
      if (result == PCRE2_ERROR_NOMATCH) return matches;
      if (result < 0) throw std::runtime_error("the pattern of the floor cannot be matched");
      ++matches;
      from = pcre2_get_ovector_pointer(data_.get())[1];
    }
  }

 private:
  struct freed {
    void operator()(pcre2_code* code) const { pcre2_code_free(code); }
    void operator()(pcre2_match_data* data) const { pcre2_match_data_free(data); }
  };
  std::unique_ptr<pcre2_code, freed> code_;
  std::unique_ptr<pcre2_match_data, freed> data_;
};

// Starts a shell and waits for it; its standard output goes to `output`, a descriptor. What it
// complains about, the run has in its debug log.
void run_shell(std::string line, int output) {
  std::string name = "sh";
  std::string option = "-c";
  char* arguments[] = {name.data(), option.data(), line.data(), nullptr};
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  pid_t child = 0;
  const int refused = posix_spawn(&child, "/bin/sh", &actions, nullptr, arguments, environ);
  posix_spawn_file_actions_destroy(&actions);
  if (refused != 0) throw std::runtime_error(std::string("/bin/sh: ") + std::strerror(refused));
  while (waitpid(child, nullptr, 0) < 0 && errno == EINTR) continue;
}

int open_or_fail(const char* path, int flags) {
  const int file = open(path, flags | O_CLOEXEC, 0600);
  if (file < 0) fail(path);
  return file;
}

// As the audit reads a capture: whole, at its size.
std::string read_whole(const char* path) {
  const int file = open_or_fail(path, O_RDONLY);
  struct stat state {};
  if (fstat(file, &state) != 0) fail(path);
  std::string text(static_cast<std::size_t>(state.st_size), '\0');
  std::size_t filled = 0;
  while (filled < text.size()) {
    const ssize_t got =
        pread(file, text.data() + filled, text.size() - filled, static_cast<off_t>(filled));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) fail(path);
    if (got == 0) throw std::runtime_error(std::string(path) + ": shorter than its size");
    filled += static_cast<std::size_t>(got);
  }
  close(file);
  return text;
}

void write_whole(const char* path, std::string_view text) {
  const int file = open_or_fail(path, O_WRONLY | O_CREAT | O_TRUNC);
  while (!text.empty()) {
    const ssize_t done = write(file, text.data(), text.size());
    if (done < 0 && errno == EINTR) continue;
    if (done < 0) fail(path);
    text.remove_prefix(static_cast<std::size_t>(done));
  }
  close(file);
}

double time_to(const std::function<void()>& work) {
  const processor_time before = time_used(RUSAGE_SELF);
  work();
  return (time_used(RUSAGE_SELF) - before).sum();
}

void add_texts(measures& run) {
  const row_search rows;
  double reading = 0;
  double matching = 0;
  double bytes = 0;
  for (const command_run& command : run.commands) {
    const int file = open_or_fail(capture, O_RDWR | O_CREAT | O_TRUNC);
    run_shell(command.line, file);
    close(file);
    std::string text;
    reading += time_to([&] { text = read_whole(capture); });
    matching += time_to([&] { rows.pass_over(text); });
    bytes += static_cast<double>(text.size());
  }
  unlink(capture);
  run.values[value_name::text_bytes] = bytes;
  run.values[value_name::reading] = reading;
  run.values[value_name::matching] = matching;
}

void add_shells(measures& run) {
  const int nowhere = open_or_fail("/dev/null", O_WRONLY);
  run.values[value_name::starting] = time_to([&] {
    for (std::size_t count = 0; count < run.commands.size(); ++count) run_shell("true", nowhere);
  });
  close(nowhere);
}

void add_snapshot(measures& run) {
  const std::string text = read_whole(snapshot);
  run.values[value_name::snapshot_bytes] = static_cast<double>(text.size());
  run.values[value_name::writing] = time_to([&] { write_whole(written, text); });
  unlink(written);
}

}  // namespace

void add_floors(measures& run) {
  add_texts(run);
  add_shells(run);
  add_snapshot(run);
}

}  // namespace bench
