#include "lab/model/router.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>
#include <map>
#include <set>
#include <tuple>

#include "lab/base/error.h"
#include "lab/model/limits.h"
#include "lab/model/router_check.h"

namespace lab {
namespace {

struct type_row {
  std::string_view type;
  std::string_view model;
  bool single_node;
};

constexpr std::array<type_row, 8> router_types{{
    {"birch", "TR-BIRCH (x86_64)", false},
    {"aspen", "TR-ASPEN (x86_64)", false},
    {"cedar", "TR-CEDAR ()", false},
    {"cedarl", "TRCEDAR (x86_64)", true},
    {"dogwood", "TR-DOGWOOD-R8 (x86_64)", false},
    {"elm", "TR-ELM1 (x86_64)", true},
    {"fir", "FIR (x86_64)", false},
    {"gorse", "TRCEDARX (x86_64)", true},
}};

const type_row* type_of(std::string_view type) {
  const auto* found = std::find_if(router_types.begin(), router_types.end(),
                                   [&](const type_row& row) { return row.type == type; });
  return found == router_types.end() ? nullptr : found;
}

constexpr unsigned cores_apart = 256;  // between the first port numbers of an aspen's cores

// The number at the beginning of a text.
unsigned number_of(std::string_view digits) {
  unsigned number = 0;
  const auto read = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  return read.ec == std::errc{} ? number : std::numeric_limits<unsigned>::max();
}

}  // namespace

const std::vector<field_description>& override_fields() {
  static const std::vector<field_description> fields{
      {"interfaces.mtu", "MTU of a port in the interface listing; absent: not listed"},
      {"im.handle", "handle of a sub-bundle in the interface manager; absent: not listed"},
      {"im.second-row", "handle in a further LDP row of a sub-bundle in the interface manager"},
      {"pi.bundle", "absent: the bundle manager does not hold the bundle"},
      {"pi.mac", "MAC of a bundle in the bundle manager; absent: no such line"},
      {"pi.mtu", "MTU of a bundle in the bundle manager; absent: no such line"},
      {"pi.member", "absent: the bundle manager does not hold the member"},
      {"pi.extra-member", "a port that the bundle manager holds beside the configured ones"},
      {"pd.bundle", "absent: the agent does not hold the bundle"},
      {"pd.row", "absent: the agent's table of nodes lacks the node"},
      {"pd.lag", "LAG id of a bundle in the agent's row of a node"},
      {"pd.member", "absent: the agent does not hold the member"},
      {"pd.npu", "NPU of a member in the agent"},
      {"pd.id", "member id in the agent"},
      {"pd.system-port", "system port of a member in the agent"},
      {"pd.extra-member", "a port that the agent of a node holds beside the configured ones"},
      {"dpa.object", "absent: a node has no lagport object of the bundle or sub-bundle"},
      {"dpa.lag", "LAG id in the lagport object of a node"},
      {"dpa.pending", "pending counters of the lagport object, \"0/0/1\" for delayed delete"},
      {"dpa.max-members", "member limit of the lagport object; absent: not set"},
      {"dpa.member", "absent: the lagport object does not hold the member"},
      {"dpa.member-id", "slot of a member in the lagport object"},
      {"dpa.member-npu", "NPU of a member in the lagport object; absent: no such line"},
      {"dpa.weight", "weight of a member in the lagport object; absent: no such line"},
      {"dpa.extra-member", "a port that a lagport object holds beside the configured ones"},
      {"dpa.vlan-domain", "VLAN domain of an NPU in the lagport object, a decimal number"},
      {"dpa.glif", "global LIF in the l2port object"},
      {"dpa.rif", "RIF in the l2port object; absent: not set"},
      {"dpa.mac", "MAC in the l2port object, with colons"},
      {"dpa.l2port", "absent: a node has no l2port object of the bundle"},
      {"dpa.l2intf", "absent: a node has no l2intf object of the bundle or sub-bundle"},
      {"dpa.l3intf", "absent: a node has no l3intf object of the bundle or sub-bundle"},
      {"dpa.l2-glif", "global LIF in the l2intf object; absent: not set"},
      {"dpa.l2-vlan-domain", "VLAN domain in the l2intf object"},
      {"dpa.l3-rif", "RIF in the l3intf object; absent: not set"},
      {"dpa.port", "absent: a node has no l1port object of the port"},
      {"dpa.mtu", "MTU in the l1port object; absent: no such line"},
      {"chip.lag", "absent: the chip has no such LAG"},
      {"chip.lag-port", "absent: a Jericho2 chip has a LAG's port on core 0 alone"},
      {"chip.member", "absent: the chip's LAG has no such member"},
      {"chip.extra-lag", "a LAG of one member that is not configured"},
      {"chip.mtu", "MTU of a port (a bundle on Jericho2) in the chip"},
      {"chip.lag-mtu", "absent: a Jericho2 chip, object \"*\", gives no port an MTU profile"},
      {"chip.vlan-domain", "VLAN domain of a port in the chip"},
      {"chip.sem",
       "local LIF, in digits, of the SEM entry of a sub-bundle or untagged bundle; absent: none"},
      {"chip.mac", "low bits of the MAC in the chip's VSI table; absent: no row"},
      {"chip.glif", "local LIF that the chip gives for the global one; absent: not known"},
      {"chip.vsi", "VSI that the chip gives for the global LIF"},
  };
  return fields;
}

std::optional<std::string> overridden(const router& r, std::string_view field,
                                      std::string_view object, std::string_view node_name,
                                      int npu) {
  for (auto rule = r.overrides.rbegin(); rule != r.overrides.rend(); ++rule) {
    if (rule->field == field && (rule->object == object || rule->object == "*") &&
        (rule->node.empty() || rule->node == node_name) && (rule->npu < 0 || rule->npu == npu))
      return rule->value;
  }
  return std::nullopt;
}

bool is_absent(const router& r, std::string_view field, std::string_view object,
               std::string_view node_name, int npu) {
  const auto value = overridden(r, field, object, node_name, npu);
  return value && *value == absent;
}

bool is_single_node(std::string_view type) {
  const type_row* row = type_of(type);
  return row != nullptr && row->single_node;
}

bool known_type(std::string_view type) {
  return type_of(type) != nullptr;
}

std::string model_of(std::string_view type) {
  const type_row* row = type_of(type);
  return row == nullptr ? std::string{} : std::string{row->model};
}

std::string type_in_banner(std::string_view banner) {
  const auto* found = std::find_if(
      router_types.begin(), router_types.end(),
      [&](const type_row& row) { return banner.find(row.model) != std::string_view::npos; });
  return found == router_types.end() ? std::string{} : std::string{found->type};
}

chip_family family_of(const node& n) {
  if (n.chip.empty()) return chip_family::none;
  // The platform does not know a chip that `show unit` does not list, and treats it as an older
  // one.
  if (!n.in_unit_list) return chip_family::older;
  return n.chip.starts_with("BCM8869") ? chip_family::jericho2 : chip_family::older;
}

bool has_address(const node& n) {
  return n.address != "None";
}

const node* find_node(const router& r, std::string_view name) {
  const auto found =
      std::find_if(r.nodes.begin(), r.nodes.end(), [&](const node& n) { return n.name == name; });
  return found == r.nodes.end() ? nullptr : &*found;
}

std::string_view port_owner(const router& r, const node& n) {
  if (r.type != "aspen" || n.state != "STANDBY") return n.name;
  for (const node& other : r.nodes)
    if (other.kind == "RP" && other.state == "ACTIVE") return other.name;
  return n.name;
}

std::vector<const member*> members_on(const router& r, const bundle& b, const node& n) {
  std::vector<const member*> found;
  const std::string_view owner = port_owner(r, n);
  for (const member& m : b.members)
    if (m.node == owner) found.push_back(&m);
  return found;
}

std::vector<const member*> members_on(const router& r, const bundle& b, const node& n,
                                      unsigned npu) {
  std::vector<const member*> found = members_on(r, b, n);
  std::erase_if(found, [&](const member* m) { return m->npu != npu; });
  return found;
}

std::string free_port(const router& r, const node& n) {
  if (n.kind == "RP") return "MgmtEth" + n.name + "/63";
  const std::string seat = n.name.substr(0, n.name.rfind('/')) + "/0/";
  unsigned number = 63;
  for (const bundle& b : r.bundles)
    for (const member& m : b.members) {
      if (m.node != n.name) continue;
      const std::string tail = port_tail(m.port);
      if (tail.starts_with(seat))
        number = std::max(number, number_of(std::string_view{tail}.substr(seat.size())) + 1);
    }
  return fmt::format("HundredGigE{}{}", seat, number);
}

std::string port_type(std::string_view port) {
  std::size_t letters = 0;
  while (letters < port.size() && std::isalpha(static_cast<unsigned char>(port[letters])) != 0)
    ++letters;
  return std::string{port.substr(0, letters)};
}

std::string port_tail(std::string_view port) {
  return std::string{port.substr(port_type(port).size())};
}

std::string short_name(std::string_view port) {
  static const std::map<std::string, std::string, std::less<>> short_types{
      {"TwentyFiveGigE", "TF"}, {"FourHundredGigE", "FH"}, {"TwoHundredGigE", "TH"}};
  const std::string type = port_type(port);
  const auto known = short_types.find(type);
  return (known == short_types.end() ? type.substr(0, 2) : known->second) + port_tail(port);
}

std::string object_name(std::string_view port) {
  std::string name{port};
  std::replace(name.begin(), name.end(), '/', '_');
  return name;
}

std::string name_of(const bundle& b) {
  return fmt::format("BE{}", b.number);
}

std::string name_of(const sub_bundle& s) {
  return fmt::format("BE{}.{}", s.bundle, s.number);
}

bool has_untagged(const bundle& b) {
  return std::any_of(b.subs.begin(), b.subs.end(),
                     [](const sub_bundle& s) { return s.encapsulation == "untagged"; });
}

std::vector<unsigned> tags_of(std::string_view encapsulation) {
  std::vector<unsigned> tags;
  std::string_view keyword;
  while (!encapsulation.empty()) {
    const std::size_t end = std::min(encapsulation.find(' '), encapsulation.size());
    const std::string_view word = encapsulation.substr(0, end);
    encapsulation.remove_prefix(std::min(end + 1, encapsulation.size()));
    const std::size_t digits = std::min(word.find_first_not_of("0123456789"), word.size());
    if (keyword.find("dot1") != std::string_view::npos) {
      if (digits > 0) tags.push_back(number_of(word.substr(0, digits)));
      // Only the first tag of a list or a range counts; "dot1q any" has none.
      if (digits > 0 ? digits < word.size() : keyword == "dot1q") break;
    }
    keyword = word;
  }
  return tags;
}

std::string colon_mac(std::string_view dotted) {
  std::string digits;
  std::copy_if(dotted.begin(), dotted.end(), std::back_inserter(digits),
               [](char c) { return c != '.'; });
  std::string mac;
  for (std::size_t i = 0; i < digits.size(); ++i) {
    if (i > 0 && i % 2 == 0) mac += ':';
    mac += digits[i];
  }
  return mac;
}

unsigned low_mac_bits(std::string_view dotted) {
  constexpr unsigned kept_bits = 0x3ff;
  if (dotted.size() < 3) return 0;
  return static_cast<unsigned>(
             std::stoul(std::string{dotted.substr(dotted.size() - 3)}, nullptr, 16)) &
         kept_bits;
}

unsigned chip_row(const router& r, const member& m) {
  return r.type == "aspen" ? m.pp_port - cores_apart * m.core : m.pp_port;
}

namespace {

void derive_nodes(router& r) {
  unsigned next_address = 4;
  for (node& n : r.nodes) {
    if (n.address.empty()) n.address = fmt::format("192.0.0.{}", next_address);
    ++next_address;
    if (n.card.empty()) n.card = n.kind == "RP" ? "TC-RP-E" : "TC-LC-24H";
    if (!n.chip.empty() && n.npus == 0) n.npus = 1;
  }
}

void derive_members(router& r, bundle& b,
                    std::map<std::tuple<std::string, unsigned, unsigned>, unsigned>& used_ports,
                    std::uint32_t first_system_port, std::uint32_t& port_count) {
  constexpr std::uint32_t first_handle = 0x1000040;
  constexpr unsigned first_port = 10;
  unsigned slot = 0;
  for (member& m : b.members) {
    m.id = slot++;
    m.mtu = m.mtu == 0 ? b.mtu : m.mtu;
    if (m.pp_port == 0) {
      unsigned& used = used_ports[{m.node, m.npu, m.core}];
      m.pp_port = first_port + 2 * used++ + (r.type == "aspen" ? cores_apart * m.core : 0);
    }
    if (m.handle == 0) m.handle = first_handle + 0x40 * port_count;
    if (m.system_port == 0) m.system_port = first_system_port + port_count;
    ++port_count;
  }
}

// Chips are searched by the last digits of a system port. So all system ports of a router have the
// same number of digits, and none ends like another.
std::uint32_t first_system_port(const router& r) {
  std::size_t ports = 0;
  for (const bundle& b : r.bundles) ports += b.members.size();
  return ports < 0xf00 ? 0x101 : ports < 0xf000 ? 0x1001 : 0x10001;
}

// Bundles and sub-bundles are numbered together, so that no two of them share a number.
struct object_count {
  std::uint32_t objects = 0;
  std::uint32_t lags = 0;
  std::uint32_t rifs = 0;
};

void derive_sub(const router& r, const bundle& b, sub_bundle& s, object_count& count) {
  s.bundle = b.number;
  if (s.handle == 0) s.handle = 0x3000004 + 0x20 * count.objects;
  if (s.glif == 0) s.glif = 0x14000 + count.objects;
  s.local_lif = 0x2000 + count.objects;
  ++count.objects;
  // With hierarchical QoS a sub-bundle has its own LAG, otherwise it uses that of its bundle.
  if (s.lag == 0) s.lag = r.hqos ? ++count.lags : b.lag;
  if (s.rif == 0 && !s.l2) s.rif = 0x11 + count.rifs++;
}

void derive_bundle(bundle& b, unsigned ordinal, object_count& count) {
  if (b.lag == 0) b.lag = ++count.lags;
  if (b.handle == 0) b.handle = 0x3000004 + 0x20 * count.objects;
  if (b.glif == 0) b.glif = 0x14000 + count.objects;
  b.local_lif = 0x2000 + count.objects;
  ++count.objects;
  if (b.rif == 0 && !b.l2) b.rif = 0x11 + count.rifs++;
  // Three digits, the last of them not 0: no domain ends like another, so no chip key does either.
  if (b.vlan_domain == 0) b.vlan_domain = 0x111 + ordinal / 15 * 16 + ordinal % 15;
  if (b.mac.empty())
    b.mac = fmt::format("0026.5e{:02x}.{:04x}", b.number / 256, 0x0a01 + b.number % 256);
}

}  // namespace

void derive(router& r) {
  if (r.model.empty()) r.model = model_of(r.type);
  derive_nodes(r);
  object_count count;
  std::uint32_t port_count = 0;
  std::map<std::tuple<std::string, unsigned, unsigned>, unsigned> used_ports;
  unsigned ordinal = 0;
  for (bundle& b : r.bundles) {
    derive_bundle(b, ordinal++, count);
    derive_members(r, b, used_ports, first_system_port(r), port_count);
  }
  for (bundle& b : r.bundles)
    for (sub_bundle& s : b.subs) derive_sub(r, b, s, count);
}

namespace {

[[noreturn]] void impossible(std::string_view where, const std::string& what) {
  throw lab_error(fmt::format("{}: {}", where, what));
}

// The tools' tables are split into columns at blanks.
void check_columns(const node& n, std::string_view where) {
  for (const auto& [what, text] :
       {std::pair{"card", &n.card}, {"band", &n.band}, {"address", &n.address}})
    if (text->empty() || text->find_first_of(" \t\n") != std::string::npos)
      impossible(where,
                 fmt::format("node {}: {} \"{}\" is not a single word", n.name, what, *text));
}

void check_nodes(const router& r, std::string_view file) {
  std::set<std::string> names;
  std::set<std::string> addresses;
  std::set<std::uint32_t> ids;
  if (r.nodes.empty()) impossible(file, "no node is described");
  if (is_single_node(r.type) && (r.nodes.size() != 1 || r.nodes.front().name != "0/RP0/CPU0"))
    impossible(file, fmt::format("a router of type {} has the single node 0/RP0/CPU0", r.type));
  for (const node& n : r.nodes) {
    const std::string_view where = place_of(n.written, file);
    if (!names.insert(n.name).second)
      impossible(where, fmt::format("node {} appears twice", n.name));
    if (has_address(n) && !addresses.insert(n.address).second)
      impossible(where, fmt::format("node {}: address {} is taken", n.name, n.address));
    check_columns(n, where);
    if (n.chip.empty() && n.npus > 0)
      impossible(where, fmt::format("node {}: {} NPUs but no chip", n.name, n.npus));
    if (n.npus > most_npus)
      impossible(where,
                 fmt::format("node {}: {} NPUs, a node has at most {}", n.name, n.npus, most_npus));
    if (family_of(n) == chip_family::jericho2 && n.cores != 2)
      impossible(where, fmt::format("node {}: {} cores, a Jericho2 has two", n.name, n.cores));
    // The tools address a chip by its node's id, so only one of two nodes with the same id could
    // answer.
    if (!ids.insert(n.id).second)
      impossible(where,
                 fmt::format("node {}: id {:#x} is taken, give each node its own", n.name, n.id));
  }
}

void check_member(const router& r, const bundle& b, const member& m, std::string_view where,
                  std::set<std::string>& ports) {
  const node* owner = find_node(r, m.node);
  const std::string place = fmt::format("bundle {}, member {}", b.number, m.port);
  if (port_type(m.port).size() < 2 || port_tail(m.port).empty())
    impossible(where, place + ": a port is a type and numbers, such as HundredGigE0/0/0/1");
  if (owner == nullptr) impossible(where, fmt::format("{}: there is no node {}", place, m.node));
  if (m.npu >= owner->npus)
    impossible(where, fmt::format("{}: node {} has {} NPUs, not number {}", place, m.node,
                                  owner->npus, m.npu));
  if (m.core >= owner->cores)
    impossible(where, fmt::format("{}: an NPU of {} has {} cores", place, m.node, owner->cores));
  // A Jericho2 has one MTU for all ports of a LAG.
  if (family_of(*owner) == chip_family::jericho2 && m.mtu != b.members.front().mtu)
    impossible(where, fmt::format("{}: mtu {}, but {} on {}; a Jericho2 has one MTU for a bundle",
                                  place, m.mtu, b.members.front().mtu, b.members.front().port));
  if (!ports.insert(port_tail(m.port)).second)
    impossible(where, place + ": the port is a member already");
}

}  // namespace

void check(const router& r, std::string_view file) {
  if (r.type.empty())
    impossible(file, "type is missing: give the router's type, such as type = \"birch\"");
  if (!known_type(r.type)) impossible(file, fmt::format("unknown router type \"{}\"", r.type));
  check_nodes(r, file);
  std::set<unsigned> numbers;
  std::set<std::string> ports;
  for (const bundle& b : r.bundles) {
    const std::string_view where = place_of(b.written, file);
    if (!numbers.insert(b.number).second)
      impossible(where, fmt::format("bundle {} appears twice", b.number));
    if (b.members.size() > b.max_members)
      impossible(where, fmt::format("bundle {}: {} members where {} are allowed", b.number,
                                    b.members.size(), b.max_members));
    for (const member& m : b.members) check_member(r, b, m, place_of(m.written, file), ports);
    std::set<unsigned> sub_numbers;
    for (const sub_bundle& s : b.subs) {
      const std::string_view at = place_of(s.written, file);
      if (!sub_numbers.insert(s.number).second)
        impossible(at, fmt::format("sub-bundle {} appears twice", name_of(s)));
    }
  }
  check_values(r, file);
}

}  // namespace lab
