// What a run cost, as the host writes it and tessel-bench reads it: a text file with a line per
// value. Both sides use these functions.
#pragma once

#include <cstddef>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace bench {

// Where the host writes it, in the folder of the logs.
inline constexpr const char* measures_file = "bench-measures";
// What the audit printed, beside it.
inline constexpr const char* console_file = "bench-console";
// If this environment variable is set, the host also measures the floors.
inline constexpr const char* floors_variable = "TESSEL_BENCH_FLOORS";
// If this one is set, the audit runs under callgrind, whose result is put beside the measures.
inline constexpr const char* callgrind_variable = "TESSEL_BENCH_CALLGRIND";
inline constexpr const char* callgrind_file = "bench-callgrind";

// Seconds of processor time.
struct processor_time {
  double user = 0;
  double system = 0;

  double sum() const { return user + system; }
};

struct phase_cost {
  std::string name;
  processor_time own;
  double wall = 0;
  std::size_t peak_kib = 0;  // of memory, up to the end of the phase
};

struct command_run {
  std::string line;
  double begin = 0;  // seconds after the host's start
  double end = 0;
};

struct measures {
  std::map<std::string, double> values;  // by the names below
  std::vector<phase_cost> phases;
  std::vector<command_run> commands;

  // 0 if there is none of this name.
  double value(const std::string& name) const;
};

// The names of the values. Times are in seconds; `own` leaves out the tools.
namespace value_name {
inline constexpr const char* own_user = "own-user";
inline constexpr const char* own_system = "own-system";
inline constexpr const char* tools = "tools";
inline constexpr const char* wall = "wall";
inline constexpr const char* first_line = "first-line";
inline constexpr const char* peak_kib = "peak-kib";
inline constexpr const char* threads = "threads";
inline constexpr const char* most_threads = "most-threads";
inline constexpr const char* most_files = "most-files";
inline constexpr const char* commands = "commands";
inline constexpr const char* most_commands = "most-commands";
inline constexpr const char* text_bytes = "text-bytes";
inline constexpr const char* snapshot_bytes = "snapshot-bytes";
inline constexpr const char* matching = "floor-matching";
inline constexpr const char* reading = "floor-reading";
inline constexpr const char* starting = "floor-starting";
inline constexpr const char* writing = "floor-writing";
}  // namespace value_name

// Throw std::runtime_error with one line that names the file.
void write_measures(const measures& all, const std::filesystem::path& file);
measures read_measures(const std::filesystem::path& file);

}  // namespace bench
