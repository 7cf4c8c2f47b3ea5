// Routers of any size, made up instead of described: for benchmarks and for soaking the audit.
//
//     generate_request wanted = default_request("birch");
//     wanted.cards = 16;
//     wanted.bundles = 256;
//     router r = generate(wanted);   // derived, checked, healthy
//
// A healthy router ends an audit with zeros as long as it stays within what its type allows; beyond
// that the audit notes the limit that is passed. Under hierarchical QoS bundles and sub-bundles
// share one limit, that of the bundles.
#pragma once

#include <cstdint>
#include <string>

#include "lab/model/router.h"

namespace lab {

enum class chip_mix { older, jericho2, mixed };

struct generate_request {
  std::string type = "birch";
  unsigned cards = 2;    // of an aspen: cards of ports alone, all of them the route processor's
  unsigned npus = 2;     // of each card; chassis types that do not tell their units have one
  unsigned bundles = 4;  // odd ones layer 3, even ones layer 2
  unsigned members = 2;  // of each bundle, spread over cards, NPUs and cores
  unsigned l2_subs = 8;  // of the whole router, spread over the bundles
  unsigned l3_subs = 4;  // the same, over the layer 3 bundles
  bool hqos = false;
  chip_mix family = chip_mix::mixed;  // mixed: card by card; where there is one chip, the older
  std::uint32_t seed = 1;             // of encapsulations, MTUs, descriptions, broken out ports
};

// A small request that the type can fulfil. Throws `lab_error` for an unknown type.
generate_request default_request(const std::string& type);

// Throws `lab_error` if no such router can be built: an unknown type, more cards than slots, more
// sub-bundles of a bundle than VLANs, a single node with cards.
router generate(const generate_request& wanted);

}  // namespace lab
