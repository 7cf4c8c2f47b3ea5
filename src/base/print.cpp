#include "base/print.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "base/failure.h"
#include "run/state.h"

namespace tessel {

namespace {

// The caller holds print_mutex.
void write_out(std::string_view text) {
  errno = 0;
  if (std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0) {
    return;
  }
  // Clear the error: a retry of what stdio still holds would fail again and block the exit of the
  // process.
  const int cause = errno;
  std::clearerr(stdout);
  throw failure(fmt::format("cannot write standard output: {}", std::strerror(cause)));
}

}  // namespace

void print(std::string_view text) {
  run_state& run = st();
  const std::lock_guard lock(run.print_mutex);
  const std::string line = fmt::format("{}{}\n", run.line_is_open ? " " : "", text);
  run.line_is_open = false;
  write_out(line);
}

void print_title(std::string_view title) {
  run_state& run = st();
  const std::lock_guard lock(run.print_mutex);
  const std::string line =
      fmt::format("{}{:.<{}}", run.line_is_open ? " " : "", title, std::size_t{DOTS});
  run.line_is_open = true;
  write_out(line);
}

void end_open_line() {
  run_state& run = st();
  const std::lock_guard lock(run.print_mutex);
  if (!run.line_is_open) return;
  run.line_is_open = false;
  write_out("\n");
}

}  // namespace tessel
