#include "platform/node_inventory.h"

#include <fmt/format.h>

#include <string>

#include "base/command.h"
#include "base/failure.h"
#include "base/findings.h"
#include "base/logs.h"
#include "base/text.h"
#include "run/state.h"

namespace tessel {

namespace {

constexpr int first_rp_id = 4096;
constexpr int second_rp_id = 4352;
constexpr int slots = 16;      // line cards in a chassis, numbered from 0
constexpr int fir_slots = 47;  // line cards in a fir system

void insert_node(const std::string& nodename, int nodeid) {
  value node = make_map();
  map& fields = node.as_map();
  fields.set("nodeid", nodeid);
  fields.set("dump", 0);
  fields.set("nodetype", DEFAULT);
  fields.set("nodeip", DEFAULT);
  fields.set("act_standby", DEFAULT);
  fields.set("npu_list", make_list({"0"}));
  fields.set("band", DEFAULT);
  fields.set("asic", DEFAULT);
  fields.set("asic_supported", 1);
  st().nodeinfo.get().as_map().set(nodename, node);
}

bool is_single_node() {
  return st().router == cedarl || st().router == elm || st().router == gorse;
}

void enter_single_node() {
  map& node = st().nodeinfo.get().at("0/RP0/CPU0").as_map();
  node.set("dump", 1);
  node.set("is_active", 1);
  node.set("nodeip", "192.0.0.4");
  node.set("act_standby", "None");
  node.set("band", "FINAL");
  node.set("asic_supported", 1);
}

std::string_view column(const std::vector<std::string_view>& node_info, std::size_t at) {
  if (at < node_info.size()) return node_info[at];
  throw failure(
      fmt::format("the node listing has no column {} in a line of {}", at, node_info.size()));
}

map& node_of(const std::vector<std::string_view>& node_info) {
  st().nodename = column(node_info, 0);
  return st().nodeinfo.get().at(st().nodename).as_map();
}

// Enters what a line says about a node in any state. If the node is a route processor, stores its
// name in `route_processor`.
map& enter_common(const std::vector<std::string_view>& node_info, value& route_processor) {
  map& node = node_of(node_info);
  node.set("dump", 0);
  node.set("nodetype", column(node_info, 1));
  node.set("band", column(node_info, 4));
  if (column(node_info, 1) == "RP") route_processor = st().nodename;
  return node;
}

void enter_address(const std::vector<std::string_view>& node_info, map& node,
                   std::string_view act_standby) {
  node.set("nodeip", column(node_info, 6));
  node.set("act_standby", act_standby);
  ++st().vmcnt;
}

void enter_active(const std::vector<std::string_view>& node_info) {
  run_state& run = st();
  map& node = enter_common(node_info, run.activenodeinfo);
  if (node.at("band") == "FINAL") {
    node.set("dump", 1);
  } else {
    logger(fmt::format("{} is in {} band, not ready yet, skipping TESSEL check on this location",
                       run.nodename, column(node_info, 4)),
           "exception");
  }
  enter_address(node_info, node, "Active");
  ++run.activenode_cnt;
}

void enter_standby(const std::vector<std::string_view>& node_info) {
  run_state& run = st();
  map& node = enter_common(node_info, run.standbynodeinfo);
  enter_address(node_info, node, "Standby");
  ++run.standbynode_cnt;
}

void enter_listing_line(std::string_view line) {
  static const pattern& blanks = constant("\\s+");
  const std::vector<std::string_view> node_info = split(line, blanks);
  bool act_stb = false;
  if (line.find("ACTIVE") != std::string_view::npos) {
    enter_active(node_info);
    act_stb = true;
  }
  if (line.find("STANDBY") != std::string_view::npos) {
    enter_standby(node_info);
    act_stb = true;
  }
  // Standby nodes take part only on this router type.
  if (st().router == aspen && act_stb) {
    map& node = node_of(node_info);
    if (node.at("band") == "FINAL") node.set("dump", 1);
  }
}

}  // namespace

void nodeinfo_init() {
  const bool is_fir = st().router == fir;
  insert_node(is_fir ? "D0/CB0/CPU0" : "0/RP0/CPU0", first_rp_id);
  insert_node(is_fir ? "D1/CB0/CPU0" : "0/RP1/CPU0", second_rp_id);
  for (int number = 0; number < (is_fir ? fir_slots : slots); ++number) {
    insert_node(is_fir ? fmt::format("{}/0/CPU0", number) : fmt::format("0/{}/CPU0", number),
                number);
  }
}

value get_list_of_vms() {
  run_state& run = st();
  try {
    if (is_single_node()) {
      enter_single_node();
      return run.nodeinfo.get();
    }
    const value listing = execute("/opt/nos/bin/plat_nodes_show -v");
    for (const std::string_view line : split(listing.as_text(), "\n")) enter_listing_line(line);
    return run.nodeinfo.get();
  } catch (const std::exception& error) {
    return log_and_count(fmt::format("{}: nodeinfo init failed", error.what()));
  }
}

}  // namespace tessel
