#include "programming/lif_map.h"

#include "base/command.h"
#include "base/text.h"
#include "run/state.h"

namespace tessel {

namespace {

constexpr std::size_t glif_digits = 4;

}  // namespace

std::string_view glif_tail(std::string_view glif) {
  return tail(glif, glif_digits);
}

value ask_lif_map(std::string_view nodename, std::string_view npu, std::string_view digits,
                  here where) {
  const value node = st().nodeinfo.get().at(nodename, where);
  const filled_value glif = {filling::glif, std::string(digits), std::string(nodename)};
  return execute_bcmd({"diag pp lif id=0x{} gl=1 type=in", {glif}}, npu, node.at("nodeid", where),
                      node.at("nodeip", where), {"glif{}", {glif}});
}

matches lif_mappings_of(std::string_view lif_map, std::string_view glif) {
  // The same as the definition, but without backtracking: if the lines below do not fit, they fit
  // no other mapping on that line either.
  const pattern mapping(
      fill(R"({} -> \w++ In_LIF:(0x\w++).*+(?:\n.*+\n.*vsid:\s(\d+)|(*SKIP)(*FAIL)))", {glif}));
  return findall(mapping, lif_map);
}

}  // namespace tessel
