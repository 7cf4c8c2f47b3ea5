#include "lab/model/generate.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <random>

#include "lab/base/error.h"
#include "lab/model/limits.h"

namespace lab {

namespace {

constexpr unsigned cores_of_npu = 2;
constexpr unsigned usual_members = 64;
constexpr unsigned most_ports = 65535;

bool tells_its_units(std::string_view type) {
  return type == "birch" || type == "fir";
}

// On these types all ports belong to the route processor, on any card.
bool ports_are_central(std::string_view type) {
  return type == "aspen" || is_single_node(type);
}

std::string chip_of(chip_mix family, unsigned card) {
  const bool newer = family == chip_mix::jericho2 || (family == chip_mix::mixed && card % 2 == 1);
  return newer ? "BCM88690" : "BCM88680";
}

void refuse_impossible_cards(const generate_request& wanted) {
  const unsigned most_cards = wanted.type == "fir" ? fir_racks : slots;
  if (is_single_node(wanted.type) && wanted.cards != 1)
    throw lab_error(
        fmt::format("{} cards: a router of type {} is a single node", wanted.cards, wanted.type));
  if (wanted.cards == 0 || wanted.cards > most_cards)
    throw lab_error(fmt::format("{} cards: a router of type {} has 1 to {}", wanted.cards,
                                wanted.type, most_cards));
  if (!tells_its_units(wanted.type) && wanted.npus != 1)
    throw lab_error(fmt::format("{} NPUs: the nodes of a router of type {} have one", wanted.npus,
                                wanted.type));
  if (wanted.npus == 0 || wanted.npus > most_npus)
    throw lab_error(fmt::format("{} NPUs: a card has 1 to {}", wanted.npus, most_npus));
}

void refuse_impossible(const generate_request& wanted) {
  if (!known_type(wanted.type))
    throw lab_error(fmt::format("unknown router type \"{}\"", wanted.type));
  refuse_impossible_cards(wanted);
  if (wanted.bundles == 0 || wanted.bundles > last_bundle)
    throw lab_error(fmt::format("{} bundles: a router has 1 to {}", wanted.bundles, last_bundle));
  const std::uint64_t ports = std::uint64_t{wanted.bundles} * wanted.members;
  if (ports == 0 || ports > most_ports)
    throw lab_error(fmt::format("{} members of each of {} bundles: a router has 1 to {} ports",
                                wanted.members, wanted.bundles, most_ports));
  const unsigned layer3 = (wanted.bundles + 1) / 2;
  const std::uint64_t most = (std::uint64_t{wanted.l2_subs} + wanted.bundles - 1) / wanted.bundles +
                             (std::uint64_t{wanted.l3_subs} + layer3 - 1) / layer3;
  if (most > last_vlan)
    throw lab_error(
        fmt::format("{} sub-bundles on one bundle: there are {} VLANs", most, last_vlan));
}

node route_processor(const std::string& name, std::uint32_t id, const char* state) {
  node n;
  n.name = name;
  n.kind = "RP";
  n.id = id;
  n.state = state;
  // Its chip holds every LAG without its ports, and `show unit` does not list the chip.
  n.chip = "BCM88470";
  n.npus = 1;
  n.in_unit_list = false;
  return n;
}

node central_node(const generate_request& wanted, const std::string& name, std::uint32_t id,
                  const char* state) {
  node n = route_processor(name, id, state);
  n.chip = chip_of(wanted.family, 0);
  n.in_unit_list = true;
  return n;
}

void add_central_nodes(const generate_request& wanted, router& r) {
  r.nodes.push_back(central_node(wanted, "0/RP0/CPU0", 4096, "ACTIVE"));
  if (is_single_node(wanted.type)) return;
  r.nodes.push_back(central_node(wanted, "0/RP1/CPU0", 4352, "STANDBY"));
  if (wanted.family != chip_mix::jericho2) return;
  // The audit looks for the members of a live standby with Jericho2 in the bundle manager's agent,
  // which knows only the active side; and it fails where an aspen's Jericho2 has MTU profiles.
  r.nodes.back().band = "BOOTING";
  r.overrides.push_back({"chip.lag-mtu", "*", "", -1, std::string{absent}});
}

void add_nodes(const generate_request& wanted, router& r) {
  if (ports_are_central(wanted.type)) {
    add_central_nodes(wanted, r);
    return;
  }
  const bool fir = wanted.type == "fir";
  r.nodes.push_back(route_processor(fir ? "D0/CB0/CPU0" : "0/RP0/CPU0", 4096, "ACTIVE"));
  r.nodes.push_back(route_processor(fir ? "D1/CB0/CPU0" : "0/RP1/CPU0", 4352, "STANDBY"));
  for (unsigned card = 0; card < wanted.cards; ++card) {
    node n;
    n.name = fir ? fmt::format("{}/0/CPU0", card) : fmt::format("0/{}/CPU0", card);
    n.id = card;
    n.chip = chip_of(wanted.family, card);
    n.npus = wanted.npus;
    r.nodes.push_back(n);
  }
}

// The place of the ordinal-th port of the router.
member port(const generate_request& wanted, const router& r, unsigned ordinal,
            std::mt19937& chance) {
  constexpr unsigned one_in = 8;
  const bool central = ports_are_central(wanted.type);
  const unsigned card = ordinal % wanted.cards;
  const unsigned on_card = ordinal / wanted.cards;
  // If a node has the ports of all cards, neighbours on one card alternate between the cores.
  const unsigned on_npu = central ? ordinal : on_card / wanted.npus;
  const std::string seat = fmt::format(fmt::runtime(wanted.type == "fir" ? "{}/0" : "0/{}"), card);
  member m;
  m.node = central ? r.nodes.front().name : r.nodes[r.nodes.size() - wanted.cards + card].name;
  m.npu = on_card % wanted.npus;
  m.core = on_npu % cores_of_npu;
  m.port = chance() % one_in == 0 ? fmt::format("TwentyFiveGigE{}/0/{}/0", seat, on_card)
                                  : fmt::format("HundredGigE{}/0/{}", seat, on_card);
  return m;
}

std::string encapsulation(unsigned tag, std::mt19937& chance) {
  const unsigned other = 1 + static_cast<unsigned>(chance() % last_vlan);
  switch (chance() % 8) {
    case 0:
    case 1:
      return fmt::format("dot1q {} second-dot1q {}", tag, other);
    case 2:
      return fmt::format("dot1ad {}", tag);
    case 3:
      return fmt::format("dot1ad {} dot1q {}", tag, other);
    case 4:
      return fmt::format("dot1ad any dot1q {}", tag);
    default:
      return fmt::format("dot1q {}", tag);
  }
}

void add_bundles(const generate_request& wanted, router& r, std::mt19937& chance) {
  constexpr std::array<unsigned, 4> mtus{1514, 4470, 9000, 9216};
  unsigned ports = 0;
  for (unsigned at = 0; at < wanted.bundles; ++at) {
    bundle b;
    b.number = at + 1;
    b.l2 = b.number % 2 == 0;
    b.mtu = mtus.at(chance() % mtus.size());
    b.description = fmt::format("link {:06x}", chance() & 0xffffff);
    b.max_members = std::max(wanted.members, usual_members);
    for (unsigned count = 0; count < wanted.members; ++count)
      b.members.push_back(port(wanted, r, ports++, chance));
    r.bundles.push_back(b);
  }
}

void add_sub(bundle& b, bool l2, std::mt19937& chance) {
  sub_bundle s;
  s.number = static_cast<unsigned>(b.subs.size()) + 1;
  s.l2 = l2;
  s.encapsulation = encapsulation(s.number, chance);
  b.subs.push_back(s);
}

void add_subs(const generate_request& wanted, router& r, std::mt19937& chance) {
  for (unsigned at = 0; at < wanted.l2_subs; ++at)
    add_sub(r.bundles[at % wanted.bundles], true, chance);
  const unsigned layer3 = (wanted.bundles + 1) / 2;
  for (unsigned at = 0; at < wanted.l3_subs; ++at)
    add_sub(r.bundles[std::size_t{at % layer3} * 2], false, chance);
}

}  // namespace

generate_request default_request(const std::string& type) {
  if (!known_type(type)) throw lab_error(fmt::format("unknown router type \"{}\"", type));
  generate_request wanted;
  wanted.type = type;
  if (is_single_node(type)) wanted.cards = 1;
  if (!tells_its_units(type)) wanted.npus = 1;
  return wanted;
}

router generate(const generate_request& wanted) {
  refuse_impossible(wanted);
  std::mt19937 chance(wanted.seed);
  router r;
  r.name = fmt::format("generated-{}", wanted.type);
  r.description = fmt::format("{} cards, {} bundles, {} sub-bundles, seed {}", wanted.cards,
                              wanted.bundles, wanted.l2_subs + wanted.l3_subs, wanted.seed);
  r.type = wanted.type;
  r.hqos = wanted.hqos;
  add_nodes(wanted, r);
  add_bundles(wanted, r, chance);
  add_subs(wanted, r, chance);
  derive(r);
  check(r, r.name);
  return r;
}

}  // namespace lab
