// The run's shared state: one flat set of named values through which the phases meet. It is
// created once by tessel_init, serves one run, and is never destroyed before the process ends,
// since workers may outlive the driver.
//
// This header is the cellar under all folders: it stands here because the state belongs to the run,
// but src/base sees it too, since logs, printing and commands keep theirs in it. So it includes
// src/base alone, and nothing else of src/run may be included from outside.
//
// Who may touch what is said above each group.
#pragma once

#include <atomic>
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
#include "base/log_file.h"
#include "base/logs.h"
#include "base/text_index.h"
#include "base/value.h"
#include "base/worker.h"

namespace tessel {

// An outcome counter. `++` returns the value that its own increment made, which is the number that
// a message quotes. Any thread.
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

// A store that is replaced as a whole during the run. Any thread; what is read is a handle on the
// content as it was at that moment.
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
  std::string nodename;  // of the node whose line of the inventory is being read
  int activenode_cnt = 0;

  // Written by the main thread; no phase reads them.
  std::time_t start_time = 0;
  int standbynode_cnt = 0;
  int vmcnt = 0;

  // Without a reader, but for BUNDLE_SCALE: it would override the bundle limit, and nothing sets
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
  value bdlHealthCheck = "Done";
  std::int64_t num_bundles = 0;
  std::int64_t num_sub_bundles_l2 = 0;
  std::int64_t num_sub_bundles_l3 = 0;

  // Locks itself: any thread.
  worker_list pid_list;

  // The bundle level's workers of the consistency pass, by bundle. An entry is made by the main
  // thread before the bundle's other workers start; a list locks itself.
  std::map<std::string, worker_list, std::less<>> bundle_workers;

  // Replaced as a whole; each content is frozen once it stands here, except that the shared maps
  // take inserts from the workers of collection. Fields of node records are overwritten in place.
  cell nodeinfo{make_ordered_map()};
  cell voq_usage{make_shared_map()};
  cell bdlInfoPI{make_ordered_map()};
  cell mbrInfoPI{make_ordered_map()};
  cell bdlInfoPD{make_ordered_map()};
  cell DPA{make_shared_map()};
  cell BCM{make_shared_map()};
  cell bdlSubPI{""};
  cell run_cfg{make_list()};

  // Filled by the main thread before the checks start, frozen afterwards. The records in it lock
  // themselves.
  value tesselDb = make_ordered_map();
  value bundle_dict = make_map();

  // One entry a layer, each touched by that layer's worker alone until it is joined.
  std::map<std::string, std::int64_t, std::less<>> staleRecurrsion{
      {"PI", 0}, {"BME", 0}, {"DPA", 0}, {"BCM", 0}};
  std::map<std::string, value_list, std::less<>> listRecurrsion{
      {"PI", {}}, {"BME", {}}, {"DPA", {}}, {"BCM", {}}};

  // Guarded by log_mutex; a channel locks itself and is never removed.
  std::mutex log_mutex;
  std::map<std::string, std::shared_ptr<log_channel>, std::less<>> log_dictionary;
  std::vector<waiting_entry> waiting_entries;

  // Locks itself: any thread.
  text_indexes indexes;

  // Lock themselves: any thread.
  log_file_slot dl_fd;
  log_file_slot stale_fd;

  // Held while a finding is counted and logged, so that the two are one step: the results are of
  // one moment, and the process does not end between them.
  std::mutex finding_mutex;

  // Guarded by print_mutex.
  std::mutex print_mutex;
  bool line_is_open = false;
};

// The state of this run.
run_state& st();

// Puts a fresh state in place, for tessel_init and for tests. The one before is left alone.
run_state& new_state();

}  // namespace tessel
