// What became of the findings of a router from run to run, for a person.
#pragma once

#include <iosfwd>

#include "desk/judge/series.h"
#include "desk/show/terminal.h"

namespace desk {

struct series_options {
  bool is_short = false;   // the runs and the counts only
  bool shows_all = false;  // every finding
};

// Two runs: what is new, changed, persisting, gone, and what nobody knows.
void show_diff(const series& of, const series_options& how, const terminal& on, std::ostream& out);

// Several runs: what is in all of them, and what moves.
void show_confirm(const series& of, const series_options& how, const terminal& on,
                  std::ostream& out);

// The runs of one router in a store: when each finding was seen first and last.
void show_history(const series& of, const series_options& how, const terminal& on,
                  std::ostream& out);

}  // namespace desk
