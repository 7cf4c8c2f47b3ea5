// What is kept of a run to compare it with other runs: what was found, by things that stay the same
// from run to run, and what could not be judged.
#pragma once

#include <cstddef>
#include <set>
#include <string>
#include <vector>

#include "desk/judge/judged_run.h"

namespace desk {

// All messages of a run with one fingerprint: one thing that is wrong. Its values may change.
struct known_finding {
  std::string fingerprint;
  std::string code;    // "TC-104"; empty for a difference that no message reports
  std::string bundle;  // empty: none is concerned, or none is named
  std::string node;    // empty: the router as a whole
  std::string npu;
  layer of = layer::none;
  std::string log;        // where such messages stand; empty without one
  std::string title;      // one line for a person, with the values of the first message
  std::string cause;      // the title of the cause that explains it; empty without one
  std::string values;     // of all its messages, in an order of their own
  std::size_t count = 0;  // messages
  bool is_doubt = false;  // it could not be verified, as opposed to being wrong
};

struct run_record {
  std::string router;   // its name, empty if it is not known
  std::string origin;   // the folder, file or capture that was read
  std::string started;  // as in the logs, by the router's clock; empty if it is not known
  run_end end = run_end::unknown;
  bool is_open = true;      // something was not judged, whatever else was found
  bool is_torn = false;     // a failure that names neither bundle nor node: a pass may have ended
  std::size_t bundles = 0;  // how many there are, and how many differ
  std::size_t differing = 0;
  std::vector<known_finding> findings;  // in the order of the summary's causes
  std::set<std::string> open_bundles;   // not wholly judged
  std::set<std::string> known_bundles;
  struct hole {
    layer of = layer::none;
    std::string node;  // empty: the router as a whole
    std::string npu;   // empty: the node as a whole
  };
  std::vector<hole> holes;          // what was not read
  std::set<std::string> lost_logs;  // whose messages are gone, or the oldest of them
};

[[nodiscard]] run_record record_of(const judged_run& of);

// Whether the run would have reported this finding: it came to its end, and everything was read
// that such a finding comes from. Otherwise nobody knows whether it is gone.
[[nodiscard]] bool would_show(const run_record& run, const known_finding& one);

}  // namespace desk
