#include "collect/dump_data.h"

#include <fmt/format.h>

#include "base/command.h"
#include "base/failure.h"
#include "base/findings.h"
#include "base/logs.h"
#include "base/numbers.h"
#include "base/print.h"
#include "base/text.h"
#include "collect/dpa_dumps.h"
#include "collect/hardware_dumps.h"
#include "collect/interface_mtus.h"
#include "parse/bundle_pd.h"
#include "parse/bundle_pi.h"
#include "run/state.h"

namespace tessel {

namespace {

constexpr std::uint64_t node_id_mask = 0xFFFFFF;
constexpr int both_route_processors = 2;

void dump_member_mtus() {
  const value output =
      execute(R"(iface_show "-i" ".*" | grep "-E" "line protocol|MTU")", "showInterfaces");
  st().mbrInfoPI.set(parse_interface_mtus(output.as_text()));
}

// Skips a node on a chassis whose two route processors both report to be active, because they may
// run different software. The probe's second id is a text and the host's id an integer, so they
// differ on every node that gets here.
void skip_peer(const std::string& nodename, map& node, const matches& ids) {
  run_state& run = st();
  if (run.activenode_cnt != both_route_processors) return;
  if (ids.size() < 2) {
    throw failure(fmt::format("no second node id for {} among {}", nodename, ids.size()));
  }
  if (value(ids.text(1)) == run.my_node_id) return;
  logger(fmt::format("INFO: Both RPs are in active mode & software may be different. Performed "
                     "TESSEL check on current node, skipped {}",
                     nodename),
         "exception");
  node.update("dump", 0);
}

// Safe without a lock: the node's worker, the only reader of the id, has not been started.
void set_node_id(map& node, const value& id) {
  if (id.is_integer()) {
    node.update("nodeid", id.as_integer());
  } else {
    node.set("nodeid", id);
  }
}

void probe_node_id(const std::string& nodename, map& node) {
  static const pattern& id = constant(R"(Node Id:(\w+))");
  const value platform_info =
      execute({"ssh  -q -o 'StrictHostKeyChecking=no'  {} /opt/nos/bin/board_api_probe",
               {{filling::address, node.at("nodeip").as_text(), nodename}}});
  const matches tmp = findall(id, platform_info.as_text());
  if (!tmp.empty()) {
    set_node_id(node, number_value(to_wide(tmp.text(0))));
  } else {
    logger(fmt::format("ERROR: Not able to get node id for {}", nodename), "exception");
    ++st().exception;
    node.update("dump", 0);
  }
  skip_peer(nodename, node, tmp);
}

void convert_node_id(const std::string& nodename, map& node) {
  const value output = execute({"node_id_convert -I {}", {{filling::node_name, nodename}}});
  node.update("nodeid", static_cast<std::int64_t>(to_low_bits(output) & node_id_mask));
}

void start_node(const std::string& nodename, const value& record_of_node) {
  run_state& run = st();
  map& node = record_of_node.as_map();
  if (node.at("nodeip") == "None") return;
  if (node.at("dump").truthy()) {
    if (run.router == aspen) {
      probe_node_id(nodename, node);
    } else {
      convert_node_id(nodename, node);
    }
  }
  if (!node.at("dump").truthy()) return;
  run.pid_list.append(
      start_worker([nodename, record_of_node] { dump_task(nodename, record_of_node); }));
}

// No worker of collection is left, so nothing is inserted any more: from now on the stores are read
// without their locks.
void end_inserts() {
  run_state& run = st();
  for (const cell* store : {&run.DPA, &run.BCM, &run.voq_usage}) {
    const value content = store->get();
    if (!content.is_map()) continue;
    content.as_map().freeze();
    content.as_map().for_each([](std::string_view, const value& inner) {
      if (inner.is_map()) inner.as_map().freeze();
    });
  }
}

std::size_t offset_in(std::string_view text, std::string_view part) {
  return static_cast<std::size_t>(part.data() - text.data());
}

}  // namespace

int dump_data() {
  run_state& run = st();
  try {
    print_title("Dumping Data");
    dump_member_mtus();
    for (const auto& [nodename, node] : run.nodeinfo.get().as_map().items()) {
      start_node(nodename, node);
    }
    run.pid_list.append(start_worker([] { dump_parse_bundle_info_PD(); }));
    run.pid_list.append(start_worker([] { dump_parse_bundle_info_PI(); }));
    run.bdlSubPI.set(
        execute("ifmgr_show database -l 0x1 -a | grep -E BE | grep -E LDP | sort | uniq", "IM_PI"));
    dump_running_config();
    // Node workers append their NPU workers to the list before they end, so these are joined too.
    run.pid_list.join_all();
    end_inserts();
    return SUCCESS;
  } catch (const std::exception& error) {
    return log_and_count(fmt::format("{}: dump data failed", error.what()));
  }
}

int dump_task(const std::string& nodename, const value& node) {
  const value nodeid = node.at("nodeid");
  const value nodeip = node.at("nodeip");
  dump_dpa_objects(nodeid, nodeip, nodename);
  if (st().nodeinfo.get().at(nodename).at("asic_supported").truthy()) {
    dump_hw_tables(node.at("npu_list"), nodeid, nodeip, nodename);
  }
  return SUCCESS;
}

int dump_running_config() {
  run_state& run = st();
  try {
    static const pattern& end_line = constant("\n\\bend\\b\n");
    constexpr std::size_t line_feed_and_end = 4;
    constexpr std::string_view what = "the running configuration";
    run.run_cfg.set(execute(" cfg_render -c -l 1 -t 1 -o 1 ", "running_cfg"));
    value output = run.run_cfg.get();
    const std::size_t cfg_start = output.as_text().find("Tarmac OS Configuration");
    if (cfg_start == std::string_view::npos) {
      print("PARSE-ERROR: Not able to find the start of the running config");
      return ERROR;
    }
    run.run_cfg.set(held_copy(run.texts, output.as_text().substr(cfg_start), what));
    output = run.run_cfg.get();  // frees what the tool has printed
    const std::string_view text = output.as_text();
    const matches cfg_end = findall(end_line, text);
    if (cfg_end.empty()) {
      print("PARSE-ERROR: Not able to find the end of the running config");
      return ERROR;
    }
    const std::size_t end = offset_in(text, cfg_end.text(0)) + line_feed_and_end;
    run.run_cfg.set(held_copy(run.texts, text.substr(0, end), what));
    return SUCCESS;
  } catch (const std::exception& error) {
    return log_and_count(fmt::format("{}: dump_running_config failed", error.what()));
  }
}

}  // namespace tessel
