#include "lab/model/router_check.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdint>
#include <map>
#include <set>
#include <tuple>
#include <utility>

#include "lab/base/error.h"
#include "lab/base/place.h"
#include "lab/model/limits.h"

namespace lab {
namespace {

constexpr unsigned last_mtu = 65535;
constexpr std::uint32_t last_system_port = 0xffffff;  // the chips' listings have no more digits

// The subject of a message.
struct subject {
  std::string_view place;
  std::string name;
};

[[noreturn]] void refuse(const subject& s, const std::string& what) {
  throw lab_error(fmt::format("{}: {}: {}", s.place, s.name, what));
}

// A kind of number that no two objects may share.
class numbers {
 public:
  explicit numbers(const char* what) : what_(what) {}

  void take(std::uint64_t number, const subject& s) {
    const auto [held, is_free] = holders_.try_emplace(number, s.name);
    if (!is_free)
      refuse(s, fmt::format("{} {:#x} is taken by {}, give each its own", what_, number,
                            held->second));
  }

 private:
  const char* what_;
  std::map<std::uint64_t, std::string> holders_;
};

subject of(const bundle& b, std::string_view file) {
  return {place_of(b.written, file), fmt::format("bundle {}", b.number)};
}

subject of(const sub_bundle& s, std::string_view file) {
  return {place_of(s.written, file), "sub-bundle " + name_of(s)};
}

subject of(const bundle& b, const member& m, std::string_view file) {
  return {place_of(m.written, file), fmt::format("bundle {}, member {}", b.number, m.port)};
}

// Nodes ------------------------------------------------------------------------------------------

bool is_slot(std::string_view text, unsigned slots_there) {
  unsigned slot = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), slot);
  return error == std::errc{} && end == text.data() + text.size() && slot < slots_there &&
         (text.front() != '0' || text.size() == 1);
}

// The audit knows the names of all nodes that a type may have.
bool is_node_of(std::string_view type, std::string_view name) {
  constexpr std::string_view end = "/CPU0";
  if (!name.ends_with(end)) return false;
  name.remove_suffix(end.size());
  if (type == "fir")
    return name == "D0/CB0" || name == "D1/CB0" ||
           (name.ends_with("/0") && is_slot(name.substr(0, name.size() - 2), fir_racks));
  return name == "0/RP0" || name == "0/RP1" ||
         (name.starts_with("0/") && is_slot(name.substr(2), slots));
}

// An address names a folder of the capture and contains no blanks; "None" means that there is none.
bool is_address(std::string_view text) {
  constexpr std::string_view plain = "._:%-";
  return !text.empty() && text.front() != '.' && text != local_place &&
         std::all_of(text.begin(), text.end(), [&](char c) {
           return std::isalnum(static_cast<unsigned char>(c)) != 0 ||
                  plain.find(c) != std::string_view::npos;
         });
}

void check_nodes(const router& r, std::string_view file) {
  const bool fir = r.type == "fir";
  for (const node& n : r.nodes)
    if (!is_address(n.address))
      refuse({place_of(n.written, file), "node " + n.name},
             fmt::format("address \"{}\" is not valid; give one such as 192.0.0.6", n.address));
  for (const node& n : r.nodes)
    if (!is_node_of(r.type, n.name))
      refuse({place_of(n.written, file), "node " + n.name},
             fmt::format("a router of type {} has {} and {}", r.type,
                         fir ? "D0/CB0/CPU0, D1/CB0/CPU0" : "0/RP0/CPU0, 0/RP1/CPU0",
                         fir ? "0/0/CPU0 to 46/0/CPU0" : "0/0/CPU0 to 0/15/CPU0"));
  if (std::none_of(r.nodes.begin(), r.nodes.end(), [](const node& n) { return n.kind == "RP"; }))
    throw lab_error(fmt::format("{}: no route processor is described, add the node {}", file,
                                fir ? "D0/CB0/CPU0" : "0/RP0/CPU0"));
}

// Members ----------------------------------------------------------------------------------------

// "0/0/0/1", "0/0/0/1/3".
bool is_port_tail(std::string_view tail) {
  std::size_t numbers = 0;
  for (;; ++numbers) {
    const std::size_t digits = std::min(tail.find_first_not_of("0123456789"), tail.size());
    if (digits == 0) return false;
    tail.remove_prefix(digits);
    if (tail.empty()) break;
    if (tail.front() != '/') return false;
    tail.remove_prefix(1);
  }
  return numbers == 3 || numbers == 4;
}

// A port is on the card that serves it, unless a route processor serves all ports.
void check_seat(const node& n, const member& m, const subject& s) {
  const std::string seat = n.name.substr(0, n.name.rfind('/') + 1);
  if (n.kind != "RP" && !port_tail(m.port).starts_with(seat))
    refuse(s, fmt::format("its node {} has the ports {}...", n.name, seat));
}

// The lanes of a breakout port, "0/0/0/2/1" and "0/0/0/2/3", share one port.
void check_ports(const router& r, const node& n, std::string_view file) {
  std::set<std::string> ports;
  for (const bundle& b : r.bundles)
    for (const member& m : b.members) {
      if (m.node != n.name) continue;
      const std::string tail = port_tail(m.port);
      const bool is_lane = std::count(tail.begin(), tail.end(), '/') == 4;
      ports.insert(is_lane ? tail.substr(0, tail.rfind('/')) : tail);
    }
  if (n.ports > 0 && ports.size() > n.ports)
    refuse({place_of(n.written, file), "node " + n.name},
           fmt::format("members on {} ports, it has {}", ports.size(), n.ports));
}

void check_mtu(unsigned mtu, const subject& s) {
  if (mtu == 0 || mtu > last_mtu)
    refuse(s, fmt::format("mtu {} is not from 1 to {}", mtu, last_mtu));
}

struct taken {
  numbers handles{"handle"};
  numbers lags{"lag"};
  numbers glifs{"glif"};
  numbers rifs{"rif"};
  numbers system_ports{"system_port"};
  std::map<std::tuple<std::string, unsigned, unsigned>, numbers> pp_ports{};  // of each core
};

void check_member(const router& r, const bundle& b, const member& m, std::string_view file,
                  taken& all) {
  const subject s = of(b, m, file);
  check_mtu(m.mtu, s);
  if (!is_port_tail(port_tail(m.port)))
    refuse(s, "a port's numbers have the form 0/0/0/1 or 0/0/0/1/3");
  check_seat(*find_node(r, m.node), m, s);
  if (m.system_port > last_system_port)
    refuse(s, fmt::format("system_port {:#x} is beyond {:#x}", m.system_port, last_system_port));
  all.handles.take(m.handle, s);
  all.system_ports.take(m.system_port, s);
  all.pp_ports.try_emplace({m.node, m.npu, m.core}, numbers{"pp_port"})
      .first->second.take(m.pp_port, s);
  constexpr unsigned cores_apart = 256;
  if (r.type == "aspen" && m.pp_port < cores_apart * m.core)
    refuse(s, fmt::format("pp_port {} does not belong to core {}, whose ports begin at {}",
                          m.pp_port, m.core, cores_apart * m.core));
}

// Sub-bundles ------------------------------------------------------------------------------------

// "10", "10-20", "10,20-30", "any".
bool is_tag_list(std::string_view text) {
  if (text == "any") return true;
  const auto take_tag = [&] {
    unsigned tag = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), tag);
    if (error != std::errc{} || tag == 0 || tag > last_vlan) return false;
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    return true;
  };
  for (;;) {
    if (!take_tag()) return false;
    if (text.starts_with('-')) {
      text.remove_prefix(1);
      if (!take_tag()) return false;
    }
    if (text.empty()) return true;
    if (!text.starts_with(',')) return false;
    text.remove_prefix(1);
  }
}

std::vector<std::string_view> words_in(std::string_view text) {
  std::vector<std::string_view> words;
  for (;;) {
    const std::size_t end = text.find(' ');
    words.push_back(text.substr(0, end));
    if (end == std::string_view::npos) return words;
    text.remove_prefix(end + 1);
  }
}

bool is_encapsulation(std::string_view text) {
  if (text.empty() || text == "default" || text == "untagged") return true;
  const std::vector<std::string_view> words = words_in(text);
  const bool outer = words.front() == "dot1q" || words.front() == "dot1ad";
  const std::string_view inner = words.front() == "dot1ad" ? "dot1q" : "second-dot1q";
  return outer && (words.size() == 2 || (words.size() == 4 && words[2] == inner)) &&
         is_tag_list(words[1]) && (words.size() == 2 || is_tag_list(words[3]));
}

void check_sub(const bundle& b, const sub_bundle& sub, std::string_view file, taken& all) {
  const subject s = of(sub, file);
  all.handles.take(sub.handle, s);
  all.glifs.take(sub.glif, s);
  if (sub.rif != 0) all.rifs.take(sub.rif, s);
  if (sub.lag != b.lag) all.lags.take(sub.lag, s);
  if (!is_encapsulation(sub.encapsulation))
    refuse(s, fmt::format("encapsulation \"{}\" is not one of \"default\", \"untagged\", "
                          "\"dot1q 10\", \"dot1q 10 second-dot1q 20\", \"dot1ad 10\", \"dot1ad 10 "
                          "dot1q 20\", with a tag from 1 to {}, 10-20, 10,20 or any",
                          sub.encapsulation, last_vlan));
}

// Overrides --------------------------------------------------------------------------------------

void check_overrides(const router& r, std::string_view file) {
  if (r.overrides.empty()) return;
  std::set<std::string> objects{"*"};
  for (const node& n : r.nodes) objects.insert(port_tail(free_port(r, n)));
  for (const bundle& b : r.bundles) {
    objects.insert(name_of(b));
    for (const member& m : b.members) objects.insert(port_tail(m.port));
    for (const sub_bundle& s : b.subs) objects.insert(name_of(s));
  }
  for (const override_rule& rule : r.overrides)
    if (!objects.contains(rule.object))
      refuse(
          {place_of(rule.written, file), "override of " + rule.field},
          fmt::format("there is no \"{}\"; an object is named such as BE1, BE1.100, 0/0/0/1 or *",
                      rule.object));
}

}  // namespace

std::string_view place_of(const std::string& written, std::string_view file) {
  return written.empty() ? file : std::string_view{written};
}

void check_values(const router& r, std::string_view file) {
  check_nodes(r, file);
  for (const node& n : r.nodes) check_ports(r, n, file);
  taken all;
  for (const bundle& b : r.bundles) {
    const subject s = of(b, file);
    if (b.number == 0 || b.number > last_bundle)
      refuse(s, fmt::format("a bundle's number is from 1 to {}", last_bundle));
    check_mtu(b.mtu, s);
    all.handles.take(b.handle, s);
    all.lags.take(b.lag, s);
    all.glifs.take(b.glif, s);
    if (b.rif != 0) all.rifs.take(b.rif, s);
    for (const member& m : b.members) check_member(r, b, m, file, all);
  }
  for (const bundle& b : r.bundles)
    for (const sub_bundle& sub : b.subs) check_sub(b, sub, file, all);
  check_overrides(r, file);
}

}  // namespace lab
