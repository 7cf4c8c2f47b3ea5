#include "hygiene/stale_entries.h"

#include <fmt/format.h>

#include <array>
#include <cstdint>
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

constexpr std::string_view mark = "Visited";

// What the entries show without printing them. In a printed text the word may mean anything.
enum class marks : std::uint8_t { all_set, one_is_0, only_print_shows };

marks marks_of_map(const map& entries);

bool has_word(std::string_view text) {
  return text.size() >= mark.size() && text.find(mark) != std::string_view::npos;
}

marks marks_of(const value& obj) {
  switch (obj.kind()) {
    case value_kind::none:
    case value_kind::integer:
      return marks::all_set;
    case value_kind::text:
      return has_word(obj.as_text()) ? marks::only_print_shows : marks::all_set;
    case value_kind::map:
      return obj.truthy() ? marks_of_map(obj.as_map()) : marks::all_set;
    case value_kind::list:
      for (const value& item : obj.as_list()) {
        if (const marks seen = marks_of(item); seen != marks::all_set) return seen;
      }
      return marks::all_set;
    case value_kind::record:
      return marks::only_print_shows;
  }
  return marks::only_print_shows;
}

marks marks_of_map(const map& entries) {
  marks result = marks::all_set;
  bool before_was_0 = false;
  entries.for_each([&](std::string_view key, const value& content) {
    if (result != marks::all_set) return;
    // A mark of 0 has a comma behind it only if another entry follows.
    if (before_was_0) {
      result = marks::one_is_0;
      return;
    }
    const bool is_mark = key == mark;
    before_was_0 = is_mark && content == 0;
    result = !is_mark && has_word(key) ? marks::only_print_shows : marks_of(content);
  });
  return result;
}

void start_layer(const value& obj, std::string_view layer) {
  if (!shows_stale_mark(obj)) return;
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

bool shows_stale_mark(const value& obj) {
  const marks seen = marks_of(obj);
  if (seen != marks::only_print_shows) return seen == marks::one_is_0;
  static const pattern& stale = constant(stale_mark_definition);
  const std::string text = printed(obj);
  return !findall(stale, text).empty();
}

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
    obj.as_map().for_each([&](std::string_view key, const value& content) {
      if (content.is_map()) {
        if (content.truthy() && !content.as_map().is_ordered()) {
          get_non_visited_nodes(content, layer);
        }
      } else if (key == mark && content == 0) {
        run.listRecurrsion.find(layer)->second.push_back(obj);
        ++run.staleRecurrsion.find(layer)->second;
      }
    });
    return SUCCESS;
  } catch (const std::exception& error) {
    return log_and_count(
        fmt::format("{}: get_non_visited_nodes failed in {}", error.what(), layer));
  }
}

}  // namespace tessel
