#include <fmt/format.h>

#include <algorithm>
#include <set>
#include <string>

#include "desk/commands/commands.h"
#include "desk/commands/load.h"
#include "desk/commands/series.h"
#include "desk/show/series.h"
#include "desk/store/run_store.h"

namespace desk {

namespace {

// Its start tells a run from the others of its router.
run_record record_to_keep(const std::string& place, const report_options& options) {
  run_record made = load_record(place, options);
  if (made.started.empty())
    throw no_run(
        fmt::format("the run in {} has no start, so it cannot be kept: its first lines "
                    "were rotated away",
                    place));
  return made;
}

// Returns whose runs they are.
std::set<std::string> keep_runs(run_store& store, const report_options& options,
                                std::ostream& out) {
  std::set<std::string> routers;
  std::vector<std::string> places = options.places;
  if (places.empty()) places.push_back(options.capture.empty() ? options.logs : options.capture);
  for (const std::string& place : places) {
    const run_record run = record_to_keep(place, options);
    if (!store.keep(run))
      out << fmt::format("note: the store has more of the run in {}, and keeps that\n",
                         printable(place));
    if (options.newest != 0) store.drop_old(run.router, options.newest);
    routers.insert(run.router);
  }
  if (routers.contains(""))
    out << "note: a router without a name shares its history with all nameless ones; --router NAME "
           "names it\n";
  return routers;
}

std::set<std::string> routers_to_show(const run_store& store, const report_options& options) {
  if (!options.router.empty()) return {options.router};
  const auto all = store.routers();
  return {all.begin(), all.end()};
}

// Something found outranks something not judged.
int worse(int one, int other) {
  if (one == status_findings || other == status_findings) return status_findings;
  return std::max(one, other);
}

}  // namespace

int history_command(const report_options& options, std::ostream& out) {
  run_store store(options.store,
                  options.keeps_nothing ? run_store::access::read : run_store::access::write);
  const std::set<std::string> routers =
      options.keeps_nothing ? routers_to_show(store, options) : keep_runs(store, options, out);
  int worst = status_nothing_found;
  bool is_first = true;
  for (const std::string& router : routers) {
    const series all = track(store.runs_of(router));
    if (all.runs.empty()) continue;
    if (!is_first) out << '\n';
    is_first = false;
    show_history(all, {options.is_short, options.shows_all}, standard_output(), out);
    worst = worse(worst, status_of(all, options.when, counted_runs::the_last));
  }
  if (is_first)
    throw no_run(fmt::format("the store {} has no runs{}", options.store,
                             options.router.empty() ? "" : " of " + options.router));
  return worst;
}

}  // namespace desk
