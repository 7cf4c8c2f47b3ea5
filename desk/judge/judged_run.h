// A run with the judge's opinion: a verdict for each bundle, and the causes behind the findings.
// Every view shows this and decides nothing.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "desk/model/run.h"

namespace desk {

enum class verdict : std::uint8_t { agrees, differs, not_judged };

// How sure it is which of the values is the odd one.
enum class sureness : std::uint8_t {
  named,      // the finding itself names the place: an entry is missing there
  majority,   // more nodes hold the other value
  tie,        // as many hold the one as the other
  two_nodes,  // only two hold it at all
  unknown     // no values were read
};

// One value of a field, with its place. Not read is not the same as absent.
struct witness {
  source from = source::none;
  std::string node;
  std::string npu;
  enum class state : std::uint8_t { holds, absent, not_read } is = state::holds;
  std::string value;  // if it holds one; if it was not read: why
  bool is_odd = false;
};

// A field of one object on which its witnesses disagree, or an object that some do not hold.
struct difference {
  object_ref object;
  field what = field::none;
  std::vector<witness> witnesses;
  sureness how_sure = sureness::unknown;
  std::string why;  // a sentence: "3 of 4 nodes hold 0x14000"
};

// One thing that explains findings: a node that was not read, a chip without tables, an agent that
// lost a bundle, a value that is wrong on one card, a tool that is missing.
struct cause {
  std::string title;  // one line: "BE1: global LIF is 0x14500 on 0/0/CPU0, 0x14000 on 3 others"
  object_ref object;
  std::string node;  // the odd one out; empty if none, or if it cannot be known
  std::string npu;
  layer first = layer::none;  // the first layer that differs
  sureness how_sure = sureness::unknown;
  std::string why;   // why it is this sure, or why it cannot be known
  std::string next;  // what to do, with the read-only command to type
  std::vector<difference> differences;
  std::vector<std::size_t> findings;  // indexes in run::findings
};

struct bundle_verdict {
  std::string bundle;
  verdict is = verdict::not_judged;
  layer first = layer::none;            // the first layer that differs
  std::vector<std::string> not_judged;  // what was not read for it, a phrase each
  std::vector<std::size_t> causes;      // indexes in judged_run::causes
  std::size_t findings = 0;
};

struct judged_run {
  run of;
  std::vector<cause> causes;             // the gravest first
  std::vector<bundle_verdict> bundles;   // in the order of their numbers
  std::vector<std::size_t> unexplained;  // findings that belong to no cause; notes that are normal
  bool is_wholly_judged = false;
};

// 0 nothing found, 1 findings, 3 nothing found but something was not judged. A wrong call is 2.
[[nodiscard]] int exit_status(const judged_run& of);

// More is configured than the router allows: a note, but about something that is wrong. Any thread.
[[nodiscard]] bool is_scale(const finding& one);

// The audit compares texts: these are one value in two notations, which is no fault. Any thread.
[[nodiscard]] bool is_of_notation(const finding& one);

// Nothing but such findings. Any thread.
[[nodiscard]] bool is_of_notation(const run& of, const cause& one);

// The value, "missing" or "not read".
[[nodiscard]] std::string_view words_for(const witness& one);
[[nodiscard]] std::string_view word_for(verdict is);
[[nodiscard]] std::string_view word_for(sureness is);
[[nodiscard]] std::string_view word_for(coverage_state is);
[[nodiscard]] std::string_view word_for(finding_kind is);

}  // namespace desk
