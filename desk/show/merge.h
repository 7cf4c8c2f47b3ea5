// The reports of many routers put together: as text, as JSON, as a page.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "desk/judge/judged_run.h"
#include "desk/show/summary.h"
#include "desk/show/terminal.h"

namespace desk {

// A report of the same router that does not count, because a later one does.
struct earlier_report {
  std::string file;
  std::string started;  // empty: unknown
};

struct merged_router {
  std::string name;
  std::string file;
  std::string trouble;   // why the file could not be read; then there is nothing else
  judged_run of;         // as far as `keep_for_merge` leaves it
  bool is_open = false;  // something was not judged, whatever else was found
  std::vector<earlier_report> earlier;  // the latest first
  // By finding and by cause: the run before did not have it. Empty if there is no such run.
  std::vector<bool> new_findings;
  std::vector<bool> new_causes;
};

// Drops what only the report of the router itself shows: the values of differences, the parts of
// bundles, the nodes, what was read wholly. Hundreds of routers then fit into the memory.
void keep_for_merge(judged_run& of);

// How a router stands; the greater one is the worse.
enum class standing : std::uint8_t {
  agrees,
  not_judged,
  not_read,  // its report, so nothing at all is known
  notable,   // no bundle differs, but something is stale, leaving or unhealthy
  differs
};

// All of these: any thread.
[[nodiscard]] standing standing_of(const merged_router& of);
[[nodiscard]] std::string_view word_for(standing is);
// Findings without notes and without what could not be verified, as in the summary.
[[nodiscard]] std::size_t findings_of(const merged_router& of);
// Of these, the new ones; nothing if there is no run before.
[[nodiscard]] std::optional<std::size_t> new_findings_of(const merged_router& of);
// The worst first, then by name.
void sort_routers(std::vector<merged_router>& routers);
// "5 routers: 2 agree, 1 differs, 1 not judged, 1 not read. 7 findings, 2 of them new."
[[nodiscard]] std::string sentence_for(const std::vector<merged_router>& routers);

// The routers must be sorted for all of these. A failure to write is left to the stream's state.
void show_merged_text(const std::vector<merged_router>& routers, const summary_options& how,
                      const terminal& on, std::ostream& out);
// As merge.schema.json has it.
void show_merged_json(const std::vector<merged_router>& routers, std::ostream& out);
void show_merged_html(const std::vector<merged_router>& routers, std::ostream& out);

}  // namespace desk
