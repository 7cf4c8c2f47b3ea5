// The shared state of a run: one flat set of named values, the only connection between the phases.
// tessel_init creates it, and it serves one run. It is never destroyed before the process ends,
// because workers may outlive the driver.
//
// Every folder may include this header. It is in src/run because the state belongs to the run, but
// src/base includes it too, because logs, printing and commands keep their state in it. Therefore
// it includes only src/base, and no other header of src/run may be included from outside.
//
// A comment above each group says who may access it and when.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "base/constants.h"
#include "base/journal.h"
#include "base/log_file.h"
#include "base/logs.h"
#include "base/memory_limit.h"
#include "base/text_index.h"
#include "base/value.h"
#include "base/worker.h"

namespace tessel {

// An outcome counter. `++` returns the value that this increment produced, which is the number that
// the message shows. Any thread.
class counter {
 public:
  std::int64_t operator++() { return count_.fetch_add(1) + 1; }
  operator std::int64_t() const { return count_.load(); }
  counter& operator+=(std::int64_t more) {
    count_.fetch_add(more);
    return *this;
  }
  counter& operator=(std::int64_t number) {
    count_.store(number);
    return *this;
  }

 private:
  std::atomic<std::int64_t> count_ = 0;
};

// A store that is replaced as a whole during the run. Any thread. A reader gets a handle to the
// content at that moment.
class cell {
 public:
  explicit cell(value content) : content_(std::move(content)) {}
  value get() const {
    const std::lock_guard lock(mutex_);
    return content_;
  }
  void set(value content) {
    const std::lock_guard lock(mutex_);
    std::swap(content_, content);
  }

 private:
  mutable std::mutex mutex_;
  value content_;  // guarded by mutex_
};

// A log entry for a channel that is not open yet.
struct waiting_entry {
  std::string channel;
  log_level level;
  std::string entry;
};

struct run_state {
  // Set by the main thread before workers start, constant afterwards.
  int router = notset;
  value my_node_id = DEFAULT;
  value activenodeinfo = DEFAULT;
  value standbynodeinfo = DEFAULT;
  std::string nodename;  // the node whose inventory line is being read
  int activenode_cnt = 0;

  // Written by the main thread; no phase reads them.
  std::time_t start_time = 0;
  int standbynode_cnt = 0;
  int vmcnt = 0;

  // Nothing reads these, except BUNDLE_SCALE, which would override the bundle limit; nothing sets
  // it.
  value MAX_BUNDLES = DEFAULT;
  value MAX_SUB_BUNDLES = DEFAULT;
  value BUNDLE_SCALE = DEFAULT;
  int is_sub_bundle = 0;

  // Atomic: any thread.
  counter inconsistent;
  counter programming_error;
  counter exception;
  counter info;
  counter staleEntries;
  counter deletePending;
  counter bdlHealthCheckCount;

  // Main thread only.
  int printed_results = 0;
  int snapshot = 0;
  // For workers that had not begun when the checks ended.
  std::chrono::steady_clock::duration waited_for_workers{};
  bool noted_late_workers = false;
  value bdlHealthCheck = "Done";
  std::int64_t num_bundles = 0;
  std::int64_t num_sub_bundles_l2 = 0;
  std::int64_t num_sub_bundles_l3 = 0;

  // Locks itself; any thread.
  worker_list pid_list;

  // The consistency pass's worker at the bundle level, by bundle. The main thread makes a bundle's
  // entry before the bundle's other workers start.
  std::map<std::string, std::shared_ptr<worker>, std::less<>> bundle_workers;

  // Replaced as a whole. The content is frozen once stored, except that the shared maps take
  // inserts from the workers of collection. Fields of node records are overwritten in place.
  cell nodeinfo{make_ordered_map()};
  cell voq_usage{make_shared_map()};
  cell bdlInfoPI{make_ordered_map()};
  cell mbrInfoPI{make_ordered_map()};
  cell bdlInfoPD{make_ordered_map()};
  cell DPA{make_shared_map()};
  cell BCM{make_shared_map()};
  // What BCM held when the programming pass began; none without that pass. A failed pass does not
  // wait for its workers, and the stale entry check leaves only the LAGs in BCM meanwhile.
  cell chip_tables{value()};
  cell bdlSubPI{""};
  cell run_cfg{make_list()};

  // The main thread fills these before the checks start; frozen afterwards. The records in them
  // lock themselves.
  value tesselDb = make_ordered_map();
  value bundle_dict = make_map();

  // One entry per layer. Only that layer's worker accesses it until the worker is joined.
  std::map<std::string, std::int64_t, std::less<>> staleRecurrsion{
      {"PI", 0}, {"BME", 0}, {"DPA", 0}, {"BCM", 0}};
  std::map<std::string, value_list, std::less<>> listRecurrsion{
      {"PI", {}}, {"BME", {}}, {"DPA", {}}, {"BCM", {}}};

  // Guarded by log_mutex; a channel locks itself and is never removed.
  std::mutex log_mutex;
  std::map<std::string, std::shared_ptr<log_channel>, std::less<>> log_dictionary;
  std::vector<waiting_entry> waiting_entries;

  // Locks itself; any thread.
  text_indexes indexes;

  // The outputs of commands, and the large copies that are made of them. Its limit is set before
  // the first command; otherwise any thread.
  text_account texts;

  // Opened by the main thread before the run begins; commands use it on any thread.
  run_journal journal;
  std::chrono::seconds command_timeout{0};  // 0: none

  // Lock themselves; any thread.
  log_file_slot dl_fd;
  log_file_slot stale_fd;

  // Held while a finding is counted and logged, so that the two are one step: the results show one
  // moment, and the process does not end between counting and logging.
  std::timed_mutex finding_mutex;

  // Main thread only. A worker's line whose disk hangs must not hold the end of the run.
  limited_patience for_lines{std::chrono::seconds(1)};

  // Guarded by print_mutex.
  std::mutex print_mutex;
  bool line_is_open = false;
};

// The state of this run.
run_state& st();

// Puts a fresh state in place, for tessel_init and for tests. The previous one is left as it is.
run_state& new_state();

}  // namespace tessel
