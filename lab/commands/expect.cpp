#include <fmt/format.h>

#include <cstdlib>

#include "lab/commands/commands.h"
#include "lab/faults/faults.h"
#include "lab/faults/ssh_faults.h"

namespace lab {

namespace {

std::string_view or_dash(const std::string& text) {
  return text.empty() ? std::string_view{"-"} : text;
}

void print_place(const fault_place& at) {
  fmt::print("{}\t{}\t{}\t{}\t{}\t{}\n", at.name, at.layer, or_dash(at.node), or_dash(at.npu),
             or_dash(at.bundle), or_dash(at.object));
}

// A fault of the connection takes a node's name or its address.
std::string name_of_node(const router& r, const std::string& given) {
  for (const node& one : r.nodes)
    if (one.address == given) return one.name;
  return given;
}

void print_places(const router& r, const std::vector<planted_ssh_fault>& of_connections) {
  for (const planted_ssh_fault& one : of_connections)
    print_place({.name = fmt::format("{}={}", one.name, one.node),
                 .layer = "tool",
                 .node = name_of_node(r, one.node),
                 .object = "ssh"});
  for (const fault_place& one : places_of_faults(r)) print_place(one);
}

}  // namespace

// For programs. With `places`: the name, layer, node, NPU, bundle and object. Otherwise the name,
// "shown", "hidden" or "none", and the finding; a hidden finding is followed by the reason why it
// may be missing. Tabs separate them.
int expect_command(const expect_options& o) {
  std::vector<std::string> faults = o.faults;
  const std::vector<planted_ssh_fault> of_connections = take_ssh_faults(faults);
  const router r = faulty_router(o.router, faults);
  if (o.places) {
    print_places(r, of_connections);
    return EXIT_SUCCESS;
  }
  for (const planted_ssh_fault& one : of_connections)
    fmt::print("{}\tshown\t{}\n", one.name, one.finding);
  for (const expectation& one : expected_findings(r))
    fmt::print("{}\t{}\t{}{}{}\n", one.name,
               one.finding.empty()  ? "none"
               : one.hidden.empty() ? "shown"
                                    : "hidden",
               one.finding, one.hidden.empty() ? "" : "\t", one.hidden);
  return EXIT_SUCCESS;
}

}  // namespace lab
