#include "hygiene/stale_entries.h"

#include <fmt/format.h>

#include <array>
#include <optional>
#include <string>
#include <utility>

#include "base/dump.h"
#include "base/failure.h"
#include "base/findings.h"
#include "base/print.h"
#include "base/text.h"
#include "base/worker.h"
#include "platform/router_type.h"
#include "run/state.h"

namespace tessel {

namespace {

// Keeps only the LAG tables, because the raw chip tables have no marks. Stores the last node
// visited in `nodename`.
value lag_tables(const value& BCM, std::optional<std::string>& nodename) {
  value tmp = make_map();
  for (const auto& [node, npus] : BCM.as_map().items()) {
    nodename = node;
    value reduced = make_map();
    tmp.as_map().set(node, reduced);
    for (const auto& [npu, tables] : npus.as_map().items()) {
      const std::string_view key = is_j2(node) ? "tm_lag" : "diag_lag";
      value lags = make_map();
      lags.as_map().set(key, tables.at(key));
      reduced.as_map().set(npu, lags);
    }
  }
  return tmp;
}

bool is_clean_so_far() {
  const run_state& run = st();
  return run.inconsistent == 0 && run.programming_error == 0 && run.exception == 0 && run.info == 0;
}

void start_layer(const value& obj, std::string_view layer) {
  // Searches the printed form, so a mark that is the last entry of its map does not start the walk.
  static const pattern& stale = constant(R"(.Visited.:\s0,)");
  const std::string text = printed(obj);
  const matches stale_found = findall(stale, text);
  if (stale_found.empty()) return;
  st().pid_list.append(start_worker([obj, layer] { get_non_visited_nodes(obj, layer); }));
}

void report_layer(std::string_view layer) {
  run_state& run = st();
  const std::int64_t count = run.staleRecurrsion.find(layer)->second;
  run.staleEntries += count;
  const auto stale_log = run.stale_fd.require();
  pprint(fmt::format("Number of stale entries in {} {}", layer, count), *stale_log);
  if (count == 0) return;
  print_object(make_list(run.listRecurrsion.find(layer)->second), *stale_log, layer);
}

}  // namespace

int check_stale_entries() {
  run_state& run = st();
  std::optional<std::string> nodename;
  try {
    print_title("Stale Entry Check");
    run.BCM.set(lag_tables(run.BCM.get(), nodename));
    run.indexes.clear();
    run.snapshot = 1;
    // After any earlier finding, an entry that was not visited means nothing.
    if (!is_clean_so_far()) return SUCCESS;
    const std::array<std::pair<std::string_view, value>, 4> layers = {{
        {"PI", run.bdlInfoPI.get()},
        {"BME", run.bdlInfoPD.get()},
        {"DPA", run.DPA.get()},
        {"BCM", run.BCM.get()},
    }};
    // Entries that the last workers have yet to visit are not stale, so wait for these workers.
    run.pid_list.join_all();
    for (const auto& [layer, obj] : layers) start_layer(obj, layer);
    run.pid_list.join_all();
    for (const auto& [layer, obj] : layers) report_layer(layer);
    return SUCCESS;
  } catch (const std::exception& error) {
    if (!nodename) throw failure(fmt::format("no node to name: {}", error.what()));
    return log_and_count(
        fmt::format("{}: Stale entry verification failed in {}", error.what(), *nodename));
  }
}

int get_non_visited_nodes(const value& obj, std::string_view layer) {
  run_state& run = st();
  try {
    for (const auto& [key, content] : obj.as_map().items()) {
      if (content.is_map() && !content.as_map().is_ordered()) {
        get_non_visited_nodes(content, layer);
      } else if (key == "Visited" && content == 0) {
        run.listRecurrsion.find(layer)->second.push_back(obj);
        ++run.staleRecurrsion.find(layer)->second;
      }
    }
    return SUCCESS;
  } catch (const std::exception& error) {
    return log_and_count(
        fmt::format("{}: get_non_visited_nodes failed in {}", error.what(), layer));
  }
}

}  // namespace tessel
