// The model of a router, which every renderer reads: the values of a description file, completed by
// derived ones. Each fact is one number in all layers: a bundle's LAG id is given (or derived) once
// and appears in the agent's table, in the forwarding objects of every node and in every chip. A
// value that one layer holds against the truth is an override:
//
//     router r = load_router("birch-small");
//     r.overrides.push_back({"dpa.lag", "BE1", "0/1/CPU0", -1, "0x99"});
//     overridden(r, "dpa.lag", "BE1", "0/1/CPU0");   // "0x99"; every other node keeps the truth
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace lab {

enum class chip_family { none, older, jericho2 };

struct node {
  std::string name;         // "0/0/CPU0"
  std::string kind = "LC";  // "RP" or "LC"
  std::string state = "ACTIVE";
  std::string band = "FINAL";
  std::string address;   // of the internal network, "192.0.0.6"
  std::string card;      // the card's name in the inventory
  std::uint32_t id = 0;  // the node's id in the tools
  std::string chip;      // "BCM88680", empty for a node without a chip
  unsigned npus = 0;
  unsigned cores = 2;
  unsigned ports = 0;        // on its faceplate; 0 if the description does not say
  bool in_unit_list = true;  // `show unit` lists its chips
  bool forwarding = true;    // it has forwarding objects
  std::string written{};     // "small.toml:12", its description; empty if it is generated
};

struct member {
  std::string port;  // "HundredGigE0/0/0/1"
  std::string node;
  unsigned npu = 0;
  unsigned core = 0;
  unsigned pp_port = 0;
  unsigned id = 0;  // the member's slot in its bundle
  std::uint64_t handle = 0;
  std::uint32_t system_port = 0;
  unsigned weight = 1;
  unsigned mtu = 0;
  std::string description;
  bool up = true;  // a port that is down keeps its slot in the bundle
  std::string written{};
};

struct sub_bundle {
  unsigned bundle = 0;
  unsigned number = 0;
  bool l2 = false;
  std::string encapsulation;  // as configured after the word, "dot1q 10 second-dot1q 20"
  std::string description;
  std::uint64_t handle = 0;
  std::uint32_t lag = 0;
  std::uint32_t glif = 0;
  std::uint32_t rif = 0;
  std::uint32_t local_lif = 0;
  std::string written{};
};

struct bundle {
  unsigned number = 0;
  bool l2 = false;
  std::string description;
  std::uint64_t handle = 0;
  std::uint32_t lag = 0;
  std::uint32_t glif = 0;
  std::uint32_t rif = 0;
  std::uint32_t local_lif = 0;
  std::string mac;  // "0026.5e01.0011"
  unsigned mtu = 9216;
  unsigned vlan_domain = 0;
  unsigned max_members = 64;
  std::vector<member> members;
  std::vector<sub_bundle> subs;
  std::string written{};
};

// A value that one layer holds against the truth. An empty node or an NPU of -1 means all of them.
// The value "absent" removes the row or the line.
struct override_rule {
  std::string field;   // one of override_fields()
  std::string object;  // "BE1", "BE1.100", a member's port tail or "*"
  std::string node;
  int npu = -1;
  std::string value;
  std::string written{};
};

struct planted_fault {
  std::string name;
  std::string argument{};  // after "=", empty if none was given
  unsigned place = 0;      // after "@": the number of a place that suits it
  std::size_t places = 1;  // that suit it, known once it is planted
  // Its place, known once it is planted: "BE1.100" of "BE1" on "0/0/CPU0". An empty text means all.
  std::string object{};
  std::string bundle{};
  std::string node{};
  int npu = -1;                        // of a tool's answer about one chip
  std::string harmed{};                // a tool, or a file or folder of the machine
  std::vector<override_rule> holds{};  // the values that it changed
};

struct router {
  std::string name;
  std::string description;
  std::string type;              // "birch", "elm", ...
  std::string model;             // its name in the version banner
  std::string health = "clean";  // the result of the bundle manager's own check
  bool hqos = false;
  unsigned bundle_scale = 0;  // bundles that its hw-module profile allows; 0: no profile
  std::uint32_t host_node_id = 4096;
  std::vector<node> nodes;
  std::vector<bundle> bundles;
  std::vector<override_rule> overrides;
  std::vector<planted_fault> faults;
};

inline constexpr std::string_view absent = "absent";

struct field_description {
  std::string_view name;
  std::string_view meaning;
};

// Every field that an override can change.
const std::vector<field_description>& override_fields();

// Returns the value that the layer holds instead of the truth, or nothing. The last matching rule
// counts.
std::optional<std::string> overridden(const router& r, std::string_view field,
                                      std::string_view object, std::string_view node_name = {},
                                      int npu = -1);

// True if an override removes the object.
bool is_absent(const router& r, std::string_view field, std::string_view object,
               std::string_view node_name = {}, int npu = -1);

// Derives every value that the description left out: LAG ids, handles, LIFs, port numbers.
void derive(router& r);

// Throws `lab_error` if the router is impossible: two bundles with one handle, a member on a node
// that does not exist, an unknown type. The message names `file` if it knows no line.
void check(const router& r, std::string_view file);

bool is_single_node(std::string_view type);
bool known_type(std::string_view type);
std::string model_of(std::string_view type);
// The type whose model the version banner names; empty if it names none of them.
std::string type_in_banner(std::string_view banner);

chip_family family_of(const node& n);
// False for a node whose address in the inventory is "None": nobody can ask it for anything.
bool has_address(const node& n);
const node* find_node(const router& r, std::string_view name);

// The ports in a node's tables. A standby route processor of an aspen serves the ports of the
// active one; every other node serves its own.
std::string_view port_owner(const router& r, const node& n);
std::vector<const member*> members_on(const router& r, const bundle& b, const node& n);
std::vector<const member*> members_on(const router& r, const bundle& b, const node& n,
                                      unsigned npu);

// A port of the node that no bundle uses; on a route processor, its management port.
std::string free_port(const router& r, const node& n);

// "HundredGigE0/0/0/1" -> "0/0/0/1"; the type in front -> "HundredGigE"; "Hu0/0/0/1".
std::string port_tail(std::string_view port);
std::string port_type(std::string_view port);
std::string short_name(std::string_view port);
// The numbers of a tail joined by underscores: "HundredGigE0_0_0_1".
std::string object_name(std::string_view port);

std::string name_of(const bundle& b);
std::string name_of(const sub_bundle& s);
bool has_untagged(const bundle& b);

// The VLAN tags that a chip stores for an encapsulation, outer first: "dot1q 10 second-dot1q 20" ->
// {10, 20}, "dot1q 10-20" -> {10}, "default" -> {}.
std::vector<unsigned> tags_of(std::string_view encapsulation);

// "0026.5e01.0011" -> "00:26:5e:01:00:11"; its low ten bits, as the chips hold them.
std::string colon_mac(std::string_view dotted);
unsigned low_mac_bits(std::string_view dotted);

// The row of a port in the chip's per-core tables. An aspen numbers its ports across all cores.
unsigned chip_row(const router& r, const member& m);

}  // namespace lab
