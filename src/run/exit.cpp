#include "run/exit.h"

#include <fmt/format.h>

#include <array>
#include <cstring>
#include <ctime>
#include <memory>
#include <mutex>
#include <string_view>
#include <utility>
#include <vector>

#include "base/capture_file.h"
#include "base/command.h"
#include "base/dump.h"
#include "base/failure.h"
#include "base/logs.h"
#include "base/memory_reserve.h"
#include "base/print.h"
#include "base/worker.h"
#include "report/results.h"
#include "run/state.h"

namespace tessel {

namespace {

void print_summary() {
  run_state& run = st();
  const std::int64_t exception = run.exception;
  print(fmt::format("\nTESSEL Stopped: Found {} info/exceptions/errors\n", exception));
  if (exception == 0) return;
  print_errors(exception);
  print("Logs: \n/var/log/tessel_exception.log\n/var/log/tessel_debug.log");
}

std::vector<std::shared_ptr<log_channel>> open_channels() {
  run_state& run = st();
  std::vector<std::shared_ptr<log_channel>> channels;
  const std::lock_guard lock(run.log_mutex);
  for (const auto& [name, channel] : run.log_dictionary) channels.push_back(channel);
  return channels;
}

// The jobs ran all the same; the note is for whoever wonders why they took so long.
void note_refused_threads() {
  const crew_figures crew = figures_of_crew();
  if (crew.refused == 0) return;
  note_for_support(fmt::format(
      "the system refused {} threads: {}; their jobs ran on fewer, raise the limit of processes",
      crew.refused, std::strerror(crew.why_refused)));
}

}  // namespace

void close_fd() {
  run_state& run = st();
  try {
    for (const auto& channel : open_channels()) channel->close(run.for_lines);
    run.stale_fd.close();
    run.dl_fd.close();
  } catch (const std::exception& error) {
    print(fmt::format("\n{}: Cleanup task failed", error.what()));
    ++run.exception;
  }
}

void take_snapshot() {
  run_state& run = st();
  const std::array<std::pair<value, std::string_view>, 7> stores = {{
      {run.tesselDb, "TESSELDB"},
      {run.snapshot != 0 ? run.BCM.get() : value(), "BCM"},
      {run.DPA.get(), "DPA"},
      {run.bdlInfoPI.get(), "BM PI"},
      {run.bdlInfoPD.get(), "BM PD"},
      {run.voq_usage.get(), "Voq usage"},
      {run.nodeinfo.get(), "VM information"},
  }};
  for (const auto& [store, label] : stores) {
    if (store.kind() != value_kind::none) print_object(store, *run.dl_fd.require(), label);
  }
}

void exit_handler() {
  run_state& run = st();
  try {
    const words_first the_reader_must_know;
    wait_for_late_workers();
    note_refused_threads();
    // A worker that still runs may leave a capture file after this. The start of the next run
    // removes it.
    execute("rm /tmp/tessel_*");
    note_left_captures(remove_left_captures("tessel_"));
    run.exception += run.info;
    if (run.printed_results == 0) print_summary();
    take_snapshot();
    close_fd();
  } catch (const std::exception&) {
    // Not reported, because the logs may be what failed.
  }
  // Belongs to the run's start_time; no elapsed time is reported yet.
  [[maybe_unused]] const std::time_t end_time = std::time(nullptr);
  run.journal.finish();
  throw exit_request();
}

}  // namespace tessel
