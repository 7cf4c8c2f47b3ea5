// How often each part of each pattern, and of each text that is read without one, may occur.
#include <fmt/format.h>

#include <array>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "base/dump.h"
#include "base/filled_line.h"
#include "base/text.h"
#include "collect/dump_data.h"
#include "collect/interface_mtus.h"
#include "consistency/im_handles.h"
#include "hygiene/bundle_health.h"
#include "hygiene/stale_entries.h"
#include "parse/block_fields.h"
#include "parse/bundle_pi.h"
#include "parse/dpa_objects.h"
#include "parse/hardware_tables.h"
#include "parse/interface_text.h"
#include "parse/lag_rows.h"
#include "parse/running_config.h"
#include "parse/slot_fields.h"
#include "parse/vlan_domain_rows.h"
#include "platform/node_inventory.h"
#include "platform/router_type.h"
#include "programming/chip_rows.h"
#include "programming/entry_checks.h"
#include "programming/lif_map.h"
#include "support/chip_world.h"
#include "support/fake_router.h"
#include "support/hostile.h"
#include "support/widths.h"

namespace tessel {
namespace {

using pattern_widths_test = router_test;

constexpr std::string_view node = "0/0/CPU0";

template <std::size_t Size>
void expect_all(const std::array<width_row, Size>& rows) {
  for (const width_row& row : rows) expect_widths(row);
}

// What a map has, each entry as "key=content"; nothing for an empty one.
std::string entries_of(const value& entries) {
  std::string all;
  for (const auto& [key, content] : entries.as_map().items()) {
    if (!all.empty()) all += ' ';
    all += key + "=" + (content.is_map() ? "(" + entries_of(content) + ")" : printed(content));
  }
  return replace_all(all, "'", "");
}

template <value (*Parse)(const value&)>
std::string table(std::string_view text) {
  return entries_of(Parse(text));
}

std::shared_ptr<const std::string> shared(std::string_view text) {
  return std::make_shared<const std::string>(text);
}

// The groups of all matches of a definition, in which `Name` fills the braces.
constexpr std::string_view no_name;
template <const std::string_view& Definition, const std::string_view& Name = no_name>
std::string by_definition(std::string_view text) {
  std::string all;
  const matches found = findall(pattern(fill(Definition, {Name})), text);
  for (std::size_t at = 0; at < found.size(); ++at) {
    std::string_view between;
    for (const std::string_view part : found[at]) {
      all.append(between).append(part);
      between = "/";
    }
  }
  return all;
}

// --- Chip tables

TEST_F(pattern_widths_test, rows_of_chip_tables) {
  expect_all(std::array{
      width_row{"an MTU of a port", table<parse_member_mtu>,
                "EPNI_PACKETPROCESSING_PORT_CONFIGURATION_TABLE.EPNI{+=:0}[{+=:7}]:{+: }<{+:A}MTU="
                "{+=:x}>",
                "$1=($2=$3)"},
      width_row{"a profile of a port", table<get_mtu_profile>,
                "ETPPC_EDITING_PER_PORT_TABLE.ETPPC{+=:0}[{+=:7}]:{+: }<{+:a}MTU_PROFILE={+=:5}>",
                "$1=($2=$3)"},
      width_row{"an MTU of a profile", table<parse_mtu_profiles>,
                "ETPPC_MTU_MAP_TABLE.ETPPC{+=:0}[{+:0}]:{1: }<{+:A}MTU={+=:x}>", "$1=(0=$2)"},
      width_row{"a MAC of a VSI", table<parse_bdl_vsi_mac>,
                "|{+: }{+:0}{+: }|{+: }{+=:7}{+: }||{+: }{+:0}{+: }|{+: }{+=:4}", "$1=$2"},
      width_row{"a LIF of a port", table<parse_lif_entries>,
                "|{+: }{+:0}{+: }|{+: }{+=:7}{+: }|{+: }{+:1}{+: }||{+: }{+=:4}", "$1=$2"},
      width_row{"a VLAN domain of a port", table<parse_vlan_domain_j2>,
                "|{+: }{+:0}{+: }|{+: }{+=:1}{+: }|{+: }{+=:5}{+: }||{+: }{+=:6}", "$1=($2=$3)"},
      width_row{"the two ports of a LAG", table<parse_bdl_pp_port>,
                "|{1: }{+:0}{+: }|{+: }{+=:1}{+: }|{+: }{+=:2}{+: }|{1: }{+=:3}{+: }|{+: }{+:4}"
                "{+: }|{+: }{+:5}{+: }|{1:\n}|{+: }|{+: }|{+: }{+=:6}{+: }|{+: }{+=:7}",
                "$1=($2=$3 $4=$5)"},
  });
}

template <char Core, char Port>
std::string vlan_domain(std::string_view text) {
  const auto found = vlan_domain_of(shared(text), std::string(1, Core), std::string(1, Port));
  return found ? "=" + *found : "";
}

std::string of_twenty(std::string_view text) {
  return vlan_domain_of(shared(text), std::string(20, '1'), std::string(20, '2')).value_or("");
}

TEST_F(pattern_widths_test, rows_of_vlan_domains) {
  constexpr std::string_view row =
      "{0:T}{1:.}IHP{1:0}[{1:3}]:{1: }<{+:P}={+:1},VLAN_DOMAIN={+=:7},";
  expect_widths({"of a name", vlan_domain<'0', '3'>, row, "=$1"});
  expect_widths({"of a pattern", vlan_domain<'0', '.'>, row, "=$1"});
  const std::string head = "T.IHP" + std::string(20, '1') + "[" + std::string(20, '2');
  expect_widths({"of the longest name", of_twenty, head + "]: <P=1,VLAN_DOMAIN={+=:7},", "$1"});
  EXPECT_EQ(vlan_domain_of(shared("T.IHP[]: <P=1,VLAN_DOMAIN=7,"), "", ""), "7");
}

std::string payload_of_1005(std::string_view text) {
  return std::string(sem_table(shared(text)).payload_of("1005").value_or(""));
}

std::string payload_of_point(std::string_view text) {
  return std::string(sem_table(shared(text)).payload_of("10.5").value_or(""));
}

std::string payload_of_pattern(std::string_view text) {
  return std::string(sem_table(shared(text)).payload_of("10[0]5").value_or(""));
}

std::string braced(std::string_view text) {
  return sem_table(shared(text)).has_braced_row() ? "yes" : "";
}

std::string braced_digit(std::string_view text) {
  return braced("{}" + std::string(text) + "{}");
}

std::string mac_of_5(std::string_view text) {
  return vsi_mac_of(shared(text), "5").value_or("");
}

TEST_F(pattern_widths_test, rows_that_are_searched_for_a_key) {
  expect_all(std::array{
      width_row{"a payload of a word", payload_of_1005, "1005{+: }Payload={+=:x}", "$1"},
      width_row{"a payload of a point", payload_of_point, "1005{+: }Payload={+=:x}", "$1"},
      width_row{"a payload of a pattern", payload_of_pattern, "1005{+: }Payload={+=:x}", "$1"},
      width_row{"a row in braces", braced_digit, "{+:k}{+: }Payload=0x{+:1}", "yes"},
      width_row{"a MAC", mac_of_5,
                "IHP{+:A}{1:.}IHP0[{1:5}]: <{+:A}={+:0},{+:B}={+:1}{*:,}MY_MAC=0x{+=:7}", "$1"},
      width_row{"a MAC behind a word", mac_of_5, "{*:x}IHPA.IHP0[5]: <A=0,B=1MY_MAC=0x{+=:7}",
                "$1"},
      width_row{"the last MAC", mac_of_5, "IHPA.IHP0[5]: <A=0,B=1MY_MAC=0x1{*:,}MY_MAC=0x{m=:7}",
                "$1"},
  });
}

TEST_F(pattern_widths_test, a_row_of_a_mac_with_a_sign_is_of_no_rif) {
  constexpr std::string_view rest = "5]: <A=0,B=1,MY_MAC=0x7";
  EXPECT_EQ(mac_of_5(std::string("IHPA.IHP0[-").append(rest)), "");
  EXPECT_EQ(vsi_mac_of(shared(std::string("IHPA.IHP0[-").append(rest)), "-5"), "7");
  EXPECT_EQ(vsi_mac_of(shared(std::string("IHPA.IHP0[--").append(rest)), "-5"), std::nullopt);
}

std::string mappings(std::string_view text) {
  std::string all;
  const matches found = lif_mappings_of(text, "4001");
  for (std::size_t at = 0; at < found.size(); ++at) {
    all.append(found[at][0]).append(1, '/').append(found[at][1]);
  }
  return all;
}

std::string in_lif(std::string_view text) {
  st().exception = 0;
  set_up_nodes();
  set_tables(j2_node, "0", ordered_map_of({{"lif", map_of({{"7", "4660"}})}}));
  tool_prints("asic_shell_show", text);
  const int found = verify_sem_entry_j2("", {j2_node, "0"}, "7", "0x1");
  return st().exception != 0 ? "" : found == SUCCESS ? "this" : "other";
}

TEST_F(pattern_widths_test, what_a_chip_answers) {
  expect_all(std::array{
      width_row{"a mapping", mappings,
                "4001 -> {+:w} In_LIF:0x{+=:1}{*: }{1:\n}{*:x}{1:\n}{*:y}vsid:{1: }{+=:5}",
                "0x$1/$2"},
      width_row{"a LIF of its own", in_lif, "x{+: }IN_LIF{+: }4660", "this"},
      width_row{"the whole of its digits", in_lif, "x IN_LIF {0:4}660", "this", "other"},
      width_row{"a LIF without digits", in_lif, "x IN_LIF {0:4660}", "this"},
  });
}

// --- LAGs

std::string diag_rows(std::string_view text) {
  std::vector<diag_lag_row> rows;
  find_diag_lag_rows(text, rows);
  std::string all;
  for (const diag_lag_row& row : rows) {
    all.append(row.member).append(1, ',').append(row.gport).append(1, ',').append(row.is_active);
  }
  return all;
}

std::string diag_id(std::string_view text) {
  return std::string(diag_lag_id(text));
}

std::string tm_pieces(std::string_view text) {
  tm_lag_pieces pieces(text);
  std::string all;
  while (pieces.next()) all.append(1, '(').append(pieces.piece()).append(1, ')');
  return all;
}

std::string tm_rows(std::string_view text) {
  tm_lag_rows rows(text);
  std::string all;
  while (rows.next()) all.append(rows.lag_id()).append(1, '/').append(rows.gport());
  return all;
}

TEST_F(pattern_widths_test, rows_of_lags) {
  expect_all(std::array{
      width_row{"an id", diag_id, "ID:{1: }{+=:7}", "$1"},
      width_row{"a row", diag_rows, "{+=:1}{+: }|{+: }{+=:x}{+: }|{+: }{0:Y}", "$1,$2,Y"},
      width_row{"a cut", tm_pieces, "|{+: }{+:1}{+: }|{+: }{+:2}{+: }{0:|}", "()"},
      width_row{"a cut and what is behind it", tm_pieces, "|{+: }{+:1}{+: }|{+: }{+:2}{+: }|z",
                "(z)"},
      width_row{"a row with a cell of each kind", tm_rows,
                "{*:1}{+: }|{+: }{*=:2}{+: }|{+: }{*:m}{+: }|{+: }{*=:p}{+: }|{+: }{*:s}{+: }|"
                "{0:\n}",
                "$1/$2"},
      width_row{"blank cells", tm_rows, " | {+: }| {+: }| {+: }| {+: }|\n", "/"},
  });
}

// --- Forwarding objects

std::string words(std::string_view text) {
  std::string all;
  const field_lines lines(field_lines::values::words, text);
  for (const auto& [name, content] : lines.lines()) {
    all.append(name).append(1, '/').append(content);
  }
  return all;
}

std::string words_and_colons(std::string_view text) {
  const field_lines lines(field_lines::values::words_and_colons, text);
  std::string all;
  for (const auto& [name, content] : lines.lines()) {
    all.append(name).append(1, '/').append(content);
  }
  return all;
}

std::string lagport_head(std::string_view text) {
  const auto head = lagport_head_of(text);
  return head ? std::string(head->ifh).append(1, '/').append(head->lagid) : "";
}

std::string member_limit(std::string_view text) {
  return std::string(member_limit_of(text));
}

std::string interface_handle(std::string_view text) {
  return std::string(interface_handle_of(text));
}

TEST_F(pattern_widths_test, fields_of_forwarding_objects) {
  expect_all(std::array{
      width_row{"a field", words, "{+=:n}{1: }=>{1: }{+=:w}", "$1/$2"},
      width_row{"a field that may be empty", words_and_colons, "{+=:n}{1: }=>{0: }{*=:w}{*=::}",
                "$1/$2$3"},
      width_row{"a field behind two blanks", words_and_colons, "n => {*: }", "n/"},
      width_row{"the head of a bundle", lagport_head,
                "dpa_intf_t{1: }intf{1: }=>{1: }{+=:h}{+:\n}{+: }{+:t}{1: }lag_id{1: }={1:>}"
                "{1: }{+=:7}",
                "$1/$2"},
      width_row{"a limit", member_limit, "uint32_t max_member_count{+: }=>{+: }{+=:6}", "$1"},
      width_row{"a handle", interface_handle, "@dpa_intf_t{+: }intf{+: }=>{+: }{+=:h}", "$1"},
  });
}

std::string slots(std::string_view text) {
  slot_fields fields;
  fields.read(text);
  std::string all;
  for (const auto& [slot, handle] : fields.members()) {
    all.append(slot).append(1, '/').append(handle);
  }
  for (const auto& found : {fields.npu_of("3"), fields.weight_of("3"), fields.port_class_of("3")}) {
    if (found) all.append(*found);
  }
  return all;
}

TEST_F(pattern_widths_test, fields_of_slots) {
  expect_all(std::array{
      width_row{"a member", slots, "{+=:3}:dpa_intf_t{1: }mifh{1: }=>{1: }{+=:h}", "$1/$2"},
      width_row{"an NPU", slots, "3:uint8_t mbr_npu_id{1: }=>{1: }{+=:6}", "$1"},
      width_row{"a weight", slots, "3:uint16_t{+: }weight{+: }=>{+: }{+=:6}", "$1"},
      width_row{"a port class", slots, "3:uint16_t port_class_id =>{1: }{+=:6}", "$1"},
  });
}

std::string port_names(std::string_view text) {
  st().nodeinfo.get().as_map().set(node, map_of({{"dump", 1}}));
  st().voq_usage.set(make_map());
  const std::string block = "l1port element 0\n" + std::string(text) +
                            "\nintf => 0x1\npp_port_id => 1\ndevice => 0\ncore => 0\nmtu => 1\n";
  EXPECT_EQ(parse_l1port_object_DPA(block, node), SUCCESS);
  std::string all;
  for (const std::string& name : st().voq_usage.get().as_map().keys()) all += name;
  return all;
}

TEST_F(pattern_widths_test, names_of_ports) {
  expect_widths({"a name", port_names, "intf_name{1: }=>{1: }{+:H}{+=:0}", "$1"});
  expect_widths({"letters go to the type, but for the last", port_names, "intf_name => {+:A}{m=:B}",
                 "B", ""});
}

// --- The bundle manager

std::string bundles(std::string_view text) {
  const value all = parse_bundle_info_PI(text);
  if (!all.is_map()) return "";
  std::string shown;
  for (const auto& [name, bundle] : all.as_map().items()) {
    shown += name;
    for (const char* field : {"ifh", "mac", "mtu"}) {
      shown.append(1, ' ').append(bundle.at(field).as_text());
    }
    for (const auto& [port, member] : bundle.at("members").as_map().items()) {
      shown.append(1, ' ').append(port).append(1, '=').append(member.at("mifh").as_text());
    }
  }
  return shown;
}

TEST_F(pattern_widths_test, lines_of_bundles) {
  constexpr std::string_view mac = "MAC address aaaa.bbbb.cccc\n";
  constexpr std::string_view mtu = "Operational MTU 7\n";
  constexpr std::string_view head = "Bundle interface handle BE1 (0x5\n";
  constexpr std::string_view member = "Member interface Hu0/0/0 (6)\n";
  const std::string heads = std::string("Bundle interface handle{+: }BE{+=:1}{1: }{1:(}{+=:5}\n")
                                .append(mac)
                                .append(mtu)
                                .append(member);
  expect_widths({"a head", bundles, heads, "BE$1 0x$h2 aaaa.bbbb.cccc 7 0/0/0=0x6"});
  const std::string macs = std::string(head).append(mtu).append(member).append(
      "MAC address{+: }{1:a}{1:a}{1:a}{1:a}{1:.}{1:b}{1:b}{1:b}{1:b}{1:.}{0:c}{0:c}{0:c}{0:c}\n");
  expect_widths({"a MAC", bundles, macs, "BE1 0x5 aaaa.bbbb.cccc 7 0/0/0=0x6"});
  const std::string mtus =
      std::string(head).append(mac).append(member).append("Operational MTU{+: }{+=:7}\n");
  expect_widths({"an MTU", bundles, mtus, "BE1 0x5 aaaa.bbbb.cccc $1 0/0/0=0x6"});
  const std::string members = std::string(head).append(mac).append(mtu).append(
      "Member interface{+: }Hu{+=:0}/{+=:1}/{+=:2}{*=:.}{0: }({+=:6})\n");
  expect_widths({"a member", bundles, members, "BE1 0x5 aaaa.bbbb.cccc 7 $1/$2/$3$4=0x$h5"});
}

TEST_F(pattern_widths_test, a_mac_ends_with_its_twelfth_character) {
  EXPECT_EQ(bundles("Bundle interface handle BE1 (0x5\nMAC address aaaa.bbbb.ccccd\n"
                    "Operational MTU 7\nMember interface Hu0/0/0 (6)\n"),
            "BE1 0x5 aaaa.bbbb.cccc 7 0/0/0=0x6");
}

TEST_F(pattern_widths_test, a_line_without_a_name_may_have_another) {
  for (const char* torn : {"Hu0//0", "Hu0/0/", "0/0/0"}) {
    EXPECT_EQ(bundles("Bundle interface handle BE1 (0x5\nMAC address aaaa.bbbb.cccc\n"
                      "Operational MTU 7\nMember interface " +
                      std::string(torn) + " Member interface Hu0/0/1 (7)\n"),
              "BE1 0x5 aaaa.bbbb.cccc 7 0/0/1=0x7")
        << torn;
  }
}

TEST_F(pattern_widths_test, a_members_name_ends_before_its_first_handle) {
  constexpr std::string_view rest =
      "Bundle interface handle BE1 (0x5\nMAC address aaaa.bbbb.cccc\nOperational MTU 7\n";
  EXPECT_EQ(bundles(std::string(rest) + "Member interface Hu0/0/0  (6) (7)\n"),
            "BE1 0x5 aaaa.bbbb.cccc 7 0/0/0 =0x6");
  EXPECT_EQ(bundles(std::string(rest) + "Member interface Hu0/0/0 x Member interface\nHu0/0/1 (7)"),
            "BE1 0x5 aaaa.bbbb.cccc 7 0/0/1=0x7");
  EXPECT_EQ(
      bundles(std::string(rest) + "Member interface Hu0/0/0 x Member interface  \nHu0/0/1 (7)"),
      "BE1 0x5 aaaa.bbbb.cccc 7 0/0/1=0x7");
}

std::string health(std::string_view text) {
  return parse_bundle_health(text).first;
}

constexpr std::string_view information =
    "{+:x}:{+: }{+:7}{+: }{+:a}{+:\n}{+: }{+:b}{+:\n}{+: }{+:c}!";
constexpr std::string_view blank_information = "x: 7{m:\t}{m: }{+:\n}{m: }{m: }{+:\n}{m: }{m: }!";

std::string block(std::string_view text) {
  static const pattern& search = constant(information_block);
  const bool is_found = !findall(search, text).empty();
  const std::string report = "INFO: " + std::string(text);
  EXPECT_EQ(health(report).ends_with("INFO: !"), is_found) << quoted(health(report));
  return is_found ? "found" : "";
}

std::string block_by_definition(std::string_view text) {
  return by_definition<information_block_definition>(text).empty() ? "" : "found";
}

TEST_F(pattern_widths_test, lines_of_the_health_report) {
  expect_widths({"a rule", health, "x--{*:-}y", "   \n   xy"});
  EXPECT_EQ(health("x-y"), "   \n   x-y");
  expect_widths({"empty lines", health, "x\n\n{*:\n}y", "   \n   x\n   y"});
  expect_all(std::array{
      width_row{"a table's head", health, "x!Process{+: }Node{+: }Result{+: }{+:w}{+: }{+:r}!y",
                "   \n   x!!y", "   \n   $0"},
      width_row{"a row behind tabs", health, "x!Process Node Result w{+:\t}r!y", "   \n   x!!y",
                "   \n   $0"},
      width_row{"a block", block, information, "found"},
      width_row{"a block by definition", block_by_definition, information, "found"},
      width_row{"a block of blanks", block, blank_information, "found"},
      width_row{"a block of blanks by definition", block_by_definition, blank_information, "found"},
  });
}

// --- The interface manager

std::string mtus(std::string_view text) {
  return entries_of(parse_interface_mtus(text));
}

std::string handle(std::string_view text) {
  return im_handle_of(shared(text), "BE1.2").value_or("");
}

TEST_F(pattern_widths_test, lines_of_the_interface_manager) {
  expect_all(std::array{
      width_row{"an MTU", mtus, "Hu{+=:0}{+: }is{+: }{*:u}{+:\n}{+: }MTU{+: }{+=:7}", "$1=$2"},
      width_row{"a handle", handle, "0x{+=:5}{1: }BE1.2{0: }x", "0x$1"},
      width_row{"a handle in a longer word", handle, "{*=:w}0x{+=:5} BE1.2 x", "0x$2"},
  });
  EXPECT_EQ(im_handle_of(shared("0x5 BE11.2 "), "BE11.2"), "0x5");
  EXPECT_EQ(im_handle_of(shared("0x5 BE1.22 "), "BE1.22"), "0x5");
  EXPECT_EQ(im_handle_of(shared("0x5 BE.2 "), "BE.2"), std::nullopt);
  EXPECT_EQ(im_handle_of(shared("0x5 BE1. "), "BE1."), std::nullopt);
}

std::string stale(std::string_view text) {
  return shows_stale_mark(map_of({{"a", text}})) ? "yes" : "";
}

TEST_F(pattern_widths_test, stale_marks_in_a_text) {
  expect_widths({"a mark", stale, "(Visited{1:)}:{1: }0{0:,}", "yes"});
}

// --- Nodes and units

std::string units(std::string_view text) {
  std::string all;
  const matches found = first_units_of(text);
  for (std::size_t at = 0; at < found.size(); ++at) {
    all.append(found[at][0]).append(1, '=').append(found[at][1]);
  }
  return all;
}

// The units that each node gets.
std::string unit_lists(int router, std::string_view line) {
  st().router = router;
  st().exception = 0;
  nodeinfo_init();
  const std::string name = router == birch ? "0/3/CPU0" : "3/0/CPU0";
  const std::string other = router == birch ? "0/33/CPU0" : "33/0/CPU0";
  st().nodeinfo.get().as_map().set(other, map_of({{"asic", "x"}}));
  std::string listing;
  for (const std::string& each : {name, other}) {
    listing += "Node ID: " + each + "\nUnit 0 chip BCM88690_A0\n";
  }
  tool_prints("asic_shell_show", listing + std::string(line));
  output_of([] { check_asic_support(); });
  std::string all;
  for (const std::string& each : {name, other}) {
    const value list = st().nodeinfo.get().at(each).at("npu_list");
    if (list.truthy()) all += each + "=" + list.as_list().front().as_text().data();
  }
  return all;
}

std::string units_by_slot(std::string_view text) {
  return unit_lists(birch, text);
}

std::string units_by_rack(std::string_view text) {
  return unit_lists(fir, text);
}

TEST_F(pattern_widths_test, lines_of_units) {
  expect_all(std::array{
      width_row{"below the head", units,
                "Node ID: {+=:0}/{+=:1}/CPU0{0:\n}{+:w}{1: }{+:0}{1: }{+:w}{1: }BCM{0:8}{0:8}{0:6}"
                "{0:9}",
                "$1/$2/CPU0=BCM8869"},
      width_row{"below another line", units, "Node ID: 0/1/CPU0{*:\n}{*:x}\nw 0 w BCM8869",
                "0/1/CPU0=BCM8869"},
      width_row{"below the rest of the line", units, "Node ID: 0/1/CPU0{*: x}{0:\n}w 0 w BCM8869",
                "0/1/CPU0=BCM8869"},
      width_row{"in a slot", units_by_slot, "R/S/I:{1: }{+:0}/{+=:3}/{+=:7}", "0/$1/CPU0=$2"},
      width_row{"in a rack", units_by_rack, "R/S/I:{1: }{+=:3}/{+:0}/{+=:7}", "$1/0/CPU0=$2"},
  });
}

TEST_F(pattern_widths_test, the_head_behind_another_on_its_line) {
  for (const std::string_view first : {"Node ID: 0/0/CPU0 x ", "Node ID: 00/00/CPU0 "}) {
    const std::string line = std::string(first) + "Node ID: 00/11/CPU0\n\nx\ny 1 z BCM8869\n";
    EXPECT_EQ(units(line), "00/11/CPU0=BCM8869");
    EXPECT_EQ(units(replace_all(line, "x\ny", "x\nx\ny")), "");
    EXPECT_EQ(units(std::string(first) + "Node ID: 00/11/CPU0\ny 1 z BCM8869\n"),
              std::string(first).substr(9, first.find("CPU0") - 5) + "=BCM8869");
    EXPECT_EQ(units(std::string(first) + "Node ID: 00/11/CPU0\nx\ny 1 z BCM8869\n"),
              "00/11/CPU0=BCM8869");
  }
}

std::string node_address(std::string_view text) {
  st().router = birch;
  st().exception = 0;
  nodeinfo_init();
  tool_prints("plat_nodes_show", text);
  get_list_of_vms();
  return st().nodeinfo.get().at("0/0/CPU0").at("nodeip") == DEFAULT
             ? ""
             : std::string(st().nodeinfo.get().at("0/0/CPU0").at("nodeip").as_text());
}

TEST_F(pattern_widths_test, columns_of_nodes) {
  expect_widths({"an address", node_address,
                 "0/0/CPU0{m: }LC{m: }ACTIVE{m: }UP{m: }FINAL{m: }ON{m: }10.0.0.{+=:1}",
                 "10.0.0.$1", "10.0.0."});
}

// --- The configuration

template <const std::string_view& Head>
std::string tags(std::string_view text) {
  std::string all;
  for (const value& tag : tags_of(text, Head)) all.append(1, '/').append(tag.as_text());
  return all;
}

constexpr std::string_view plain_head = "interface B1.5";
constexpr std::string_view pattern_head = "interface B[1].5";

template <const std::string_view& Head>
std::string layer_2(std::string_view text) {
  return is_layer_2(text, Head) ? "yes" : "";
}

template <const std::string_view& Head>
std::string keyword(std::string_view text) {
  return has_encapsulation(text, Head) ? "yes" : "";
}

template <const std::string_view& Head>
std::string untagged(std::string_view text) {
  return is_untagged(text, Head) ? "yes" : "";
}

constexpr std::string_view head_with_tag = R"((dot\w*\s*7))";

template <const std::string_view& Head>
void expect_widths_of_interfaces() {
  expect_all(std::array{
      width_row{"layer 2", layer_2<Head>, "interface B1.5{*: }l2transport", "yes"},
      width_row{"a keyword", keyword<Head>, "{+:'}interface B1.5{*: }encapsulation", "yes"},
      width_row{"no tag", untagged<Head>,
                "interface B1.5 l2transport{*:x}encapsulation{*:y}untagged", "yes"},
      width_row{"one tag", tags<Head>, "{+:'}interface B1.5{*:x}encapsulation{1: }dot1q {+=:5}",
                "/$1"},
      width_row{"one outer tag", tags<Head>, "'interface B1.5 encapsulation dot1ad {+=:5}", "/$1"},
      width_row{"two tags", tags<Head>,
                "'interface B1.5 encapsulation dot1q {+=:5} second-dot1q {m=:6}", "/$1/$2"},
      width_row{"two tags of two kinds", tags<Head>,
                "'interface B1.5 encapsulation dot1ad {m=:5} dot1q {m=:6}", "/$1/$2"},
      width_row{"a word and a tag", tags<Head>,
                "'interface B1.5 encapsulation dot1ad {+:w} dot1q {+=:6}", "/$1"},
      width_row{"the second one without a number", tags<Head>,
                "'interface B1.5 encapsulation dot1q 5 second-dot1q {*:x}", "/5"},
      width_row{"the last of several", tags<Head>,
                "'interface B1.5 encapsulation dot1q 5 encapsulation dot1q {+=:6}", "/$1", "/5"},
  });
}

TEST_F(pattern_widths_test, encapsulations) {
  expect_widths_of_interfaces<plain_head>();
  expect_widths_of_interfaces<pattern_head>();
  expect_widths({"a tag in a head", tags<head_with_tag>,
                 "'dot{+:1}{1: }7 encapsulation dot1q {m=:5}", "/7/$1", "/$1"});
  EXPECT_EQ(tags<head_with_tag>("'dot1 7 encapsulation dot1q x"), "");
}

std::string heads(std::string_view text) {
  st().bundle_dict = make_map();
  std::string all;
  for (const std::string& each : get_bundles(parsed_config(text)).first) all += each;
  return all;
}

std::string keys(std::string_view text) {
  heads(text);
  std::string all;
  for (const std::string& each : st().bundle_dict.as_map().keys()) all += each;
  return all;
}

std::string stanzas(std::string_view text) {
  st().bundle_dict = make_map();
  return get_bundles(parsed_config(text)).second;
}

std::string ports_of_7(std::string_view text) {
  std::string all;
  const parsed_config config(std::string(text) + " bundle id 7 on");
  for (const std::string& each : config.ports_with_bundle_id("7")) all += each + " ";
  return all;
}

TEST_F(pattern_widths_test, heads_of_bundles) {
  st().dl_fd.open(LOG_FILE_DEBUG, file_mode::truncate);
  expect_all(std::array{
      width_row{"a bundle", heads, "interface Bundle-Ether{+=:1} mtu", "interface Bundle-Ether$1"},
      width_row{"its key", keys, "interface Bundle-Ether{+=:1}", "BE$1"},
      width_row{"the key of a sub-bundle", keys, "interface Bundle-Ether{+=:1}{*=:.}{*=:5}",
                "BE$1$2$3"},
      width_row{"a mention", stanzas, "interface Bundle-Ether1 x{+: }interface Bundle-Ether{+:9}y",
                "['interface Bundle-Ether1 xy']", "['$0']"},
  });
}

// The part of a port's name by which the forwarding layer must know it.
std::string port_tail(std::string_view name) {
  start_new_state();
  st().router = birch;
  st().dl_fd.open(LOG_FILE_DEBUG, file_mode::truncate);
  st().run_cfg.set(
      fmt::format("Tarmac OS Configuration\n!\ninterface Bundle-Ether12\n mtu 1\n!\n"
                  "interface {}\n bundle id 12 mode active\n!\nend",
                  name));
  EXPECT_EQ(parse_running_config(), SUCCESS);
  const std::vector<std::string> messages = kept_messages();
  if (messages.empty()) return "";
  const std::size_t start = messages[0].find('\'') + 1;
  return messages[0].substr(start, messages[0].find('\'', start) - start);
}

TEST_F(pattern_widths_test, tails_of_ports) {
  expect_widths(
      {"four numbers", port_tail, "HundredGigE{m=:1}/{m=:2}/{m=:3}/{m=:4}", "$1/$2/$3/$4"});
  expect_widths({"five numbers", port_tail, "HundredGigE{m=:1}/{m=:2}/{m=:3}/{m=:4}/{m=:5}",
                 "$1/$2/$3/$4/$5"});
}

TEST_F(pattern_widths_test, names_of_members) {
  expect_all(std::array{
      width_row{"four numbers", ports_of_7, "interface{1: }{+=:H}/{+=:0}/{+=:1}/{+=:2}",
                "$1/$2/$3/$4 "},
      width_row{"five numbers", ports_of_7, "interface{1: }{+=:H}/{+=:0}/{+=:1}/{+=:2}/{m=:3}",
                "$1/$2/$3/$4/$5 "},
      width_row{"the fifth may be missing", ports_of_7, "interface H/0/1/2/{0:3}", "H/0/1/2/3 ",
                "H/0/1/2 "},
  });
}

// --- The definitions

std::string whole_tm_row(std::string_view text) {
  static const pattern& cut = constant(tm_lag_rows::definition);
  const std::string rest = sub(cut, "", text);
  return std::string(text.substr(0, text.size() - rest.size()));
}

std::string vlan_domain_by_definition(std::string_view text) {
  const matches found = findall(pattern(fill(vlan_domain_definition, {"0", "3"})), text);
  return found.empty() ? "" : "=" + std::string(found.text(0));
}

std::string braced_by_definition(std::string_view text) {
  const std::string braced_text = "{}" + std::string(text) + "{}";
  const pattern definition(fill(braced_definition, {"\\{\\}", "\\{\\}"}));
  return findall(definition, braced_text).empty() ? "" : "yes";
}

constexpr std::string_view slot_3 = "3";
constexpr std::string_view rif_5 = "5";
constexpr std::string_view key_1005 = "1005";
constexpr std::string_view glif_4001 = "4001";
constexpr std::string_view sub_bundle_1_2 = "BE1\\.2";

TEST_F(pattern_widths_test, definitions_of_lags) {
  expect_all(std::array{
      width_row{"an id", by_definition<diag_lag_id_definition>, "ID:{1: }{+=:7}", "$1"},
      width_row{"a row", by_definition<diag_lag_row_definition>,
                "{+=:1}{+: }|{+: }{+=:x}{+: }|{+: }{0=:Y}", "$1/$2/Y"},
      width_row{"a cut", by_definition<tm_lag_pieces::definition>,
                "{0=:|}{+=: }{+=:1}{+=: }|{+=: }{+=:2}{+=: }{0:|}", "|$2$3$4|$5$6$7|"},
      width_row{"a row of a table", by_definition<tm_lag_rows::definition>,
                "{*:1}{+: }|{+: }{*=:2}{+: }|{+: }{*:m}{+: }|{+: }{*=:p}{+: }|{+: }{*=:s}{+: }|"
                "{0:\n}",
                "$1/$2/$3"},
      width_row{"a row that begins with blanks", whole_tm_row, "{+=: }| 2 | m | p | s |\n",
                "$1| 2 | m | p | s |\n"},
      width_row{"a row that begins with a number", whole_tm_row, "{*=:1} | 2 | m | p | s |\n",
                "$1 | 2 | m | p | s |\n"},
  });
}

TEST_F(pattern_widths_test, definitions_of_forwarding_objects) {
  expect_all(std::array{
      width_row{"a field", by_definition<field_lines::words_definition>, "{+=:n}{1: }=>{1: }{+=:w}",
                "$1/$2"},
      width_row{"a field that may be empty",
                by_definition<field_lines::words_and_colons_definition>,
                "{+=:n}{1: }=>{0: }{*=:w}{*=::}", "$1/$2$3"},
      width_row{"the head of a bundle", by_definition<lagport_head_definition>,
                "dpa_intf_t{1: }intf{1: }=>{1: }{+=:h}{+:\n}{+: }{+:t}{1: }lag_id{1: }={1:>}"
                "{1: }{+=:7}",
                "$1/$2"},
      width_row{"a limit", by_definition<member_limit_definition>,
                "uint32_t max_member_count{+: }=>{+: }{+=:6}", "$1"},
      width_row{"a handle", by_definition<interface_handle_definition>,
                "@dpa_intf_t{+: }intf{+: }=>{+: }{+=:h}", "$1"},
      width_row{"a member", by_definition<slot_fields::member_definition>,
                "{+=:3}:dpa_intf_t{1: }mifh{1: }=>{1: }{+=:h}", "$1/$2"},
      width_row{"an NPU", by_definition<slot_fields::npu_definition, slot_3>,
                "3:uint8_t mbr_npu_id{1: }=>{1: }{+=:6}", "$1"},
      width_row{"a weight", by_definition<slot_fields::weight_definition, slot_3>,
                "3:uint16_t{+: }weight{+: }=>{+: }{+=:6}", "$1"},
      width_row{"a port class", by_definition<slot_fields::port_class_definition, slot_3>,
                "3:uint16_t port_class_id =>{1: }{+=:6}", "$1"},
  });
}

TEST_F(pattern_widths_test, definitions_of_chip_tables) {
  expect_all(std::array{
      width_row{"a VLAN domain", vlan_domain_by_definition,
                "{0:T}{1:.}IHP{1:0}[{1:3}]:{1: }<{+:P}={+:1},VLAN_DOMAIN={+=:7},", "=$1"},
      width_row{"a payload", by_definition<sem_definition, key_1005>, "1005{+: }Payload={+=:x}",
                "$1"},
      width_row{"a row in braces", braced_by_definition, "{+:k}{+: }Payload=0x{+:1}", "yes"},
      width_row{"a MAC", by_definition<vsi_definition, rif_5>,
                "IHP{+:A}{1:.}IHP0[{1:5}]: <{+:A}={+:0},{+:B}={+:1}{*:,}MY_MAC=0x{+=:7}", "$1"},
      width_row{"the last MAC", by_definition<vsi_definition, rif_5>,
                "IHPA.IHP0[5]: <A=0,B=1MY_MAC=0x1{*:,}MY_MAC=0x{m=:7}", "$1"},
      width_row{"a mapping", by_definition<lif_mapping_definition, glif_4001>,
                "4001 -> {+:w} In_LIF:0x{+=:1}{*: }{1:\n}{*:x}{1:\n}{*:y}vsid:{1: }{+=:5}",
                "0x$1/$2"},
  });
}

TEST_F(pattern_widths_test, definitions_of_names_and_interfaces) {
  expect_all(std::array{
      width_row{"an MTU", by_definition<interface_mtu_definition>,
                "Hu{+=:0}{+: }is{+: }{*:u}{+:\n}{+: }MTU{+: }{+=:7}", "$1/$2"},
      width_row{"a handle", by_definition<im_handle_definition, sub_bundle_1_2>,
                "0x{+=:5}{1: }BE1.2{0: }x", "0x$1"},
      width_row{"a member", by_definition<member_line_definition>,
                "Member interface{+: }{+=:H}{+=:0}/{+=:1}/{+=:2}{*=:.}{0: }({+=:6})",
                "$1$2/$3/$4$5/$6"},
      width_row{"a unit", by_definition<first_unit_definition>,
                "Node ID: {+=:0}/{+=:1}/CPU0{0:\n}{+:w}{1: }{+:0}{1: }{+:w}{1: }BCM{0:8}{0:8}{0:6}"
                "{0:9}",
                "$1/$2/CPU0/BCM8869"},
      width_row{"a unit below another line", by_definition<first_unit_definition>,
                "Node ID: 0/1/CPU0{*:\n}{*:x}\nw 0 w BCM8869", "0/1/CPU0/BCM8869"},
      width_row{"layer 2", by_definition<l2_definition, plain_head>,
                "{0=:interface B1.5}{*=: }l2transport", "$1$2l2transport"},
      width_row{"a keyword", by_definition<keyword_definition, plain_head>,
                "{+:'}interface B1.5{*: }encapsulation", "encapsulation"},
      width_row{"a stale mark", by_definition<stale_mark_definition>,
                "{0=:(}Visited{1=:)}:{1: }0{0:,}", "$1Visited$2: 0,"},
      width_row{"a tag", by_definition<tag_definition>, "dot{+:1}{1: }{+=:5}", "$1"},
      width_row{"no tag", by_definition<untagged_definition, plain_head>,
                "interface B1.5 l2transport{*:x}encapsulation{*:y}untagged", "untagged"},
      width_row{"one tag", by_definition<tagged_definition, plain_head>,
                "{+:'}interface B1.5{*:x}encapsulation{1: }dot1q {+=:5}", "encapsulation/dot1q $1"},
      width_row{"one outer tag", by_definition<tagged_definition, plain_head>,
                "'interface B1.5 encapsulation dot1ad {+=:5}", "encapsulation/dot1ad $1"},
      width_row{"two tags", by_definition<tagged_definition, plain_head>,
                "'interface B1.5 encapsulation dot1q {+=:5} second-dot1q {m=:6}",
                "encapsulation/dot1q $1 second-dot1q $2"},
      width_row{"the second one without a number", by_definition<tagged_definition, plain_head>,
                "'interface B1.5 encapsulation dot1q 5 second-dot1q {*:x}",
                "encapsulation/dot1q 5"},
      width_row{"two tags of two kinds", by_definition<tagged_definition, plain_head>,
                "'interface B1.5 encapsulation dot1ad {m=:w} dot1q {m=:6}",
                "encapsulation/dot1ad $1 dot1q $2"},
      width_row{"the last of several", by_definition<tagged_definition, plain_head>,
                "'interface B1.5 encapsulation dot1q 5 encapsulation dot1q {m=:6}",
                "encapsulation/dot1q $1"},
  });
}

// --- What a command line takes

template <filling Kind>
std::string taken(std::string_view text) {
  try {
    return filled_line("{}", {{Kind, std::string(text), "x"}}).text();
  } catch (const failure&) {
    return "none";
  }
}

TEST_F(pattern_widths_test, values_of_command_lines) {
  expect_all(std::array{
      width_row{"an address", taken<filling::address>, "{+=:1}", "$1", "none"},
      width_row{"an address of two kinds", taken<filling::address>, "{0=:1}{*=:-}", "$1$2", "none"},
      width_row{"a node", taken<filling::node_name>, "{+=:1}", "$1", "none"},
      width_row{"a node in a file name", taken<filling::node_in_file_name>, "{+=:1}", "$1", "none"},
      width_row{"a node's id", taken<filling::node_id>, "{+=:1}", "$1", "none"},
      width_row{"all nodes", taken<filling::node_id>, "{1=:A}", "$1", "none"},
      width_row{"an NPU", taken<filling::npu>, "{+=:1}", "$1", "none"},
      width_row{"a GLIF", taken<filling::glif>, "{*=:1}", "$1"},
      width_row{"the longest GLIF", taken<filling::glif>, "123{?=:4}", "123$1", "none"},
      width_row{"a chip command", taken<filling::chip_command>, "{*=:c}", "$1"},
      width_row{"a capture", taken<filling::capture>, "{+=:c}", "$1", "none"},
  });
}

}  // namespace
}  // namespace tessel
