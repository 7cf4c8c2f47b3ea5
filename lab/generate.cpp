#include "generate.h"

#include <fmt/format.h>

#include <random>

namespace lab {

namespace {

constexpr unsigned cores_of_npu = 2;
constexpr unsigned vlans = 4094;
constexpr unsigned slots = 16;
constexpr unsigned fir_slots = 47;

bool tells_its_units(std::string_view type) {
  return type == "birch" || type == "fir";
}

std::string chip_of(chip_mix family, unsigned card) {
  const bool newer = family == chip_mix::jericho2 || (family == chip_mix::mixed && card % 2 == 1);
  return newer ? "BCM88690" : "BCM88680";
}

void refuse_impossible(const generate_request& wanted) {
  const unsigned most_cards = wanted.type == "fir" ? fir_slots : slots;
  if (!known_type(wanted.type))
    throw lab_error(fmt::format("unknown router type \"{}\"", wanted.type));
  if (wanted.cards == 0 || wanted.cards > most_cards)
    throw lab_error(fmt::format("{} cards: a router of type {} has 1 to {}", wanted.cards,
                                wanted.type, most_cards));
  if (is_single_node(wanted.type) && wanted.cards != 1)
    throw lab_error(
        fmt::format("{} cards: a router of type {} is a single node", wanted.cards, wanted.type));
  if (wanted.npus == 0 || (wanted.npus > 1 && !tells_its_units(wanted.type)))
    throw lab_error(fmt::format("{} NPUs: the nodes of a router of type {} have one", wanted.npus,
                                wanted.type));
  if (wanted.bundles == 0 && wanted.l2_subs + wanted.l3_subs > 0)
    throw lab_error("sub-bundles need bundles");
}

node route_processor(const std::string& name, std::uint32_t id, const char* state) {
  node n;
  n.name = name;
  n.kind = "RP";
  n.id = id;
  n.state = state;
  // Its chip holds every LAG and no port of them, and `show unit` does not tell of it.
  n.chip = "BCM88470";
  n.npus = 1;
  n.in_unit_list = false;
  return n;
}

void add_nodes(const generate_request& wanted, router& r) {
  const bool fir = wanted.type == "fir";
  if (is_single_node(wanted.type)) {
    node n = route_processor("0/RP0/CPU0", 4096, "ACTIVE");
    n.chip = chip_of(wanted.family, 0);
    n.npus = wanted.npus;
    n.in_unit_list = true;
    r.nodes.push_back(n);
    return;
  }
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

// Where the ordinal-th port of the router sits.
member port(const generate_request& wanted, const router& r, unsigned ordinal) {
  const std::size_t first_card = r.nodes.size() - wanted.cards;
  const unsigned card = ordinal % wanted.cards;
  const unsigned on_card = ordinal / wanted.cards;
  member m;
  m.node = r.nodes[first_card + card].name;
  m.npu = on_card % wanted.npus;
  m.core = on_card / wanted.npus % cores_of_npu;
  m.port = wanted.type == "fir" ? fmt::format("HundredGigE{}/0/0/{}", card, on_card)
                                : fmt::format("HundredGigE0/{}/0/{}", card, on_card);
  return m;
}

std::string encapsulation(unsigned tag, std::mt19937& chance) {
  switch (chance() % 4) {
    case 0:
      return fmt::format("dot1q {} second-dot1q {}", tag, 1 + chance() % vlans);
    case 1:
      return fmt::format("dot1ad {}", tag);
    default:
      return fmt::format("dot1q {}", tag);
  }
}

void add_bundles(const generate_request& wanted, router& r, std::mt19937& chance) {
  unsigned ports = 0;
  for (unsigned at = 0; at < wanted.bundles; ++at) {
    bundle b;
    b.number = at + 1;
    b.l2 = b.number % 2 == 0;
    b.mtu = b.l2 ? 1514 : 9216;
    b.description = fmt::format("link {:06x}", chance() & 0xffffff);
    for (unsigned count = 0; count < wanted.members; ++count)
      b.members.push_back(port(wanted, r, ports++));
    r.bundles.push_back(b);
  }
}

void add_sub(bundle& b, bool l2, std::mt19937& chance) {
  sub_bundle s;
  s.number = static_cast<unsigned>(b.subs.size()) + 1;
  s.l2 = l2;
  if (s.number > vlans)
    throw lab_error(fmt::format("bundle {}: more sub-bundles than VLANs", b.number));
  s.encapsulation = encapsulation(s.number, chance);
  b.subs.push_back(s);
}

void add_subs(const generate_request& wanted, router& r, std::mt19937& chance) {
  for (unsigned at = 0; at < wanted.l2_subs; ++at)
    add_sub(r.bundles[at % wanted.bundles], true, chance);
  const unsigned layer3 = (wanted.bundles + 1) / 2;
  for (unsigned at = 0; at < wanted.l3_subs; ++at)
    add_sub(r.bundles[at % layer3 * 2], false, chance);
}

}  // namespace

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
