// Faults that can be planted into a router: each has a name, a description, the finding that the
// audit must raise and what else it keeps the audit from finding. Most are overrides of the model,
// chosen so that one layer on one node is wrong and the finding is the same whatever the order of
// the audit's threads; the others edit the rendered outputs or what the audit may write.
//
//     router r = load_router("birch-small");
//     r.faults.push_back(parse_fault("sem-missing"));
//     r.faults.push_back(parse_fault("dpa-mac@3"));   // where it would go if three places were
//     taken capture c = render(r); for (const expectation& one : expected_findings(r)) ...
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "lab/capture/capture.h"
#include "lab/model/router.h"

namespace lab {

// What an audit goes through, in its order. `none` stands behind all of them.
enum class phase { start, collecting, parsing, consistency, programming, stale, health, none };

// How far around its place a fault keeps the audit from looking: nothing else, the rest of the
// same object, all of the bundle on that node, the bundle on every node, all of the node, all.
enum class reach { nothing, object, bundle, bundle_everywhere, node, router };

// A line that a fault's finding brings with it.
struct by_product {
  std::string_view finding;
  phase shown = phase::consistency;
  int depth = 0;
};

// "tool-empty=lagmgr_health" is an entry of its own for what one argument does; it is planted as
// the fault that takes the argument.
struct fault {
  std::string_view name;
  std::string_view description;
  // The line that a log or the console must show, as docs/FINDINGS.md writes it: {} stands for any
  // text, {object}, {bundle} and {node} for the place. Empty if the fault must not be found.
  std::string_view finding{};
  // What must show as well; more hides it, as it may be about any object around the place.
  std::vector<by_product> also{};

  // Where the finding shows, and what the fault hides of others: see `hidden_by`.
  phase shown = phase::consistency;
  int depth = 0;                   // of the walk from the bundle manager down to the chip's tables
  reach hides = reach::object;     // what lies as deep or deeper, this far around the place
  int deepest = 1000;              // but not deeper than this
  bool counted = true;             // a run with it is not clean, so nobody looks for stale entries
  phase stops_from = phase::none;  // the first phase that no finding of another fault survives in
  phase stops_to = phase::health;  // and the last

  // Changes the model; returns false if the router has nothing to plant it into. May be null.
  bool (*plant)(router& r, planted_fault& p) = nullptr;
  // Changes the rendered outputs; returns false likewise. May be null.
  bool (*edit)(capture& c, const router& r, planted_fault& p) = nullptr;
  bool takes_argument = false;
  // The fault whose entries tell what the arguments do; empty: it has its own.
  std::string_view argued_like{};
};

const std::vector<fault>& fault_catalogue();

// "tool-empty=lagmgr_health", "sem-missing@2" -> name, place and argument. Throws `lab_error` for
// an unknown name, a place that is no number, an argument where none is taken.
planted_fault parse_fault(const std::string& text);

// Plants the model's faults and notes their places. Throws `lab_error` that names the fault that
// does not apply.
void plant_faults(router& r);
// Does the same for those that edit rendered outputs.
void edit_for_faults(router& r, capture& c);

// True if the fault can be planted into the router.
bool applies(const router& r, std::string_view name);

// Why an audit need not tell `b` beside `a`, empty if it must. There are four rules:
// - a fault that stops phases hides what would have shown in them;
// - a fault that is counted hides stale entries, which only a clean run looks for;
// - of two faults that change the same value, the one that is planted last does, and one that takes
//   the object away;
// - a fault hides what lies as deep or deeper around its place, as far and as deep as it reaches.
std::string hidden_by(const planted_fault& a, const planted_fault& b);

struct expectation {
  std::string name;       // the fault, as it was asked for
  std::string finding{};  // with its place filled in; {} stands for any text. Empty: none
  std::string hidden{};   // why it may be missing; empty: it must show
};

// What the audit of the router must tell. Throws `lab_error` as rendering does.
std::vector<expectation> expected_findings(const router& r);

}  // namespace lab
