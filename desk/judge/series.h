// Several runs of one router, and what became of each finding from run to run.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "desk/judge/record.h"

namespace desk {

enum class sighting : std::uint8_t {
  seen,
  absent,     // the run would have shown it
  not_judged  // nobody knows: the run did not read what it comes from, or did not come to its end
};

// A finding of any of the runs.
struct tracked_finding {
  known_finding latest;                // as the last run reported it that has it
  std::vector<sighting> in;            // by run
  std::vector<std::string> values_in;  // by run, empty where it was not seen
};

struct series {
  std::vector<run_record> runs;           // the oldest first
  std::vector<tracked_finding> findings;  // those of the last run first, in its order
};

// The runs in the order in which they happened. Their own findings are moved out of them.
[[nodiscard]] series track(std::vector<run_record> runs);

// What became of a finding in the last run, by the runs before it.
enum class change : std::uint8_t {
  is_new,      // no run before has it
  changed,     // it was there in the last run before that judged it, with other values
  persisting,  // ... with the same values
  back,        // it was there earlier, but not in the last run before that judged it
  gone,        // the last run would show it
  not_judged   // the last run does not have it, and nobody knows whether it is gone
};

[[nodiscard]] change change_of(const tracked_finding& one);

// Whether a finding may be older than its first sighting: the run right before that did not judge
// it.
[[nodiscard]] bool may_be_older(const tracked_finding& one);

// It is in every run.
[[nodiscard]] bool is_confirmed(const tracked_finding& one);

}  // namespace desk
