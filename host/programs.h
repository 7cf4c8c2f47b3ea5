// Programs that are run to their end, for what they print.
#pragma once

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

namespace tessel_host {

struct program_result {
  int wait_status = 0;  // as waitpid(2) gives it
  bool is_started = false;
  bool is_timed_out = false;  // and so was ended
  double seconds = 0;
  std::string out;
  std::string err;

  // True if it ended with status 0 in time.
  [[nodiscard]] bool is_good() const;
  // Why it is not good, in a few words on one line.
  [[nodiscard]] std::string complaint() const;
};

// The program of this name in the folders of the search path; empty if it is in none.
[[nodiscard]] std::string find_on_path(std::string_view name);

// Runs the command lines at the same time, without a shell: the first word is a path, or a name on
// the search path. Standard input is empty. Those that take longer than `limit` are ended; the end
// of this process is theirs, too. Main thread.
[[nodiscard]] std::vector<program_result> run_programs(
    const std::vector<std::vector<std::string>>& lines, std::chrono::seconds limit);

// What a file in memory holds, the first 16 MiB of it; empty if it cannot be read.
[[nodiscard]] std::string content_of(int descriptor);

// Runs a program with this process's own streams, apart from standard error: `err` becomes what it
// writes there, so that nobody who leaves that unread delays it. The end of this process is the
// program's, too. Returns false if it cannot be started or is ended by a signal. Main thread.
[[nodiscard]] bool run_in_front(const std::vector<std::string>& words, std::string& err);

}  // namespace tessel_host
