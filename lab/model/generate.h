// Generated routers of any size, for benchmarks and for soak tests of the audit.
//
//     generate_request wanted = default_request("birch");
//     wanted.cards = 16;
//     wanted.bundles = 256;
//     router r = generate(wanted);   // derived, checked, healthy
//
// The audit of a healthy router finds nothing as long as its sizes stay within the limits of its
// type; beyond them the audit notes the exceeded limit. With hierarchical QoS, bundles and
// sub-bundles share one limit, that of the bundles.
#pragma once

#include <cstdint>
#include <string>

#include "lab/model/router.h"

namespace lab {

enum class chip_mix { older, jericho2, mixed };

struct generate_request {
  std::string type = "birch";
  unsigned cards = 2;    // an aspen's cards only hold ports of the route processor
  unsigned npus = 2;     // of each card; chassis types that do not list their units have one
  unsigned bundles = 4;  // odd ones layer 3, even ones layer 2
  unsigned members = 2;  // of each bundle, spread over cards, NPUs and cores
  unsigned l2_subs = 8;  // of the whole router, spread over the bundles
  unsigned l3_subs = 4;  // the same, over the layer 3 bundles
  bool hqos = false;
  chip_mix family = chip_mix::mixed;  // mixed: card by card; where there is one chip, the older
  std::uint32_t seed = 1;             // of encapsulations, MTUs, descriptions, broken out ports
};

// A small request that suits the type. Throws `lab_error` for an unknown type.
generate_request default_request(const std::string& type);

// Throws `lab_error` if no such router is possible: an unknown type, more cards than slots, more
// sub-bundles of a bundle than VLANs, a single node with cards.
router generate(const generate_request& wanted);

}  // namespace lab
