// Looks, before an audit, for what would keep it from its work.
#pragma once

#include <chrono>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

#include "audit_files.h"

namespace tessel_host {

struct examination {
  std::FILE* to = stdout;
  std::chrono::seconds for_tool{60};  // how long the doctor waits for a tool
  std::chrono::seconds for_node{15};
  bool sees_other_audits = true;
};

// A line could not be printed. It has the cause.
class doctor_unheard : public std::runtime_error {
 public:
  explicit doctor_unheard(int error) : std::runtime_error(cause_of(error)) {}
};

// Prints a line for each thing that was looked at, as soon as it is known: "ok   ", "warn " or
// "fail ", what, and what to do. Runs the platform's tools for it, and a login on each node; writes
// nothing. Returns the exit status: 0 all is well, 1 there is a warning, 2 something fails. Throws
// `doctor_unheard`.
[[nodiscard]] int examine_machine(const examination& how = {});

// The parts of it that need no router:

// The model in the output of the version tool; empty if the audit knows none.
[[nodiscard]] std::string model_in(const std::string& version);

struct listed_node {
  std::string name;
  std::string address;
};
// The nodes whose data an audit of this model reads, from the list of nodes.
[[nodiscard]] std::vector<listed_node> nodes_in(const std::string& listing,
                                                const std::string& model);

}  // namespace tessel_host
