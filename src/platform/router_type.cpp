#include "platform/router_type.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <string>
#include <utility>

#include "base/command.h"
#include "base/findings.h"
#include "base/logs.h"
#include "base/print.h"
#include "base/text.h"
#include "run/state.h"

namespace tessel {

namespace {

// The first name found in the model decides, so the longer TRCEDARX comes before TRCEDAR. TR-BIRCH1
// already matches TR-BIRCH; it is listed because it is a model of its own.
constexpr std::array<std::pair<std::string_view, router_type>, 9> models = {{
    {"TR-BIRCH", birch},
    {"TR-BIRCH1", birch},
    {"TR-ASPEN", aspen},
    {"TR-CEDAR ()", cedar},
    {"TRCEDARX", gorse},
    {"TRCEDAR", cedarl},
    {"TR-ELM1", elm},
    {"FIR", fir},
    {"TR-DOGWOOD-R8", dogwood},
}};

struct supported_asic {
  std::string_view type;  // as "show unit" reports it
  std::string_view family;
};

constexpr std::array<supported_asic, 6> supported_asics = {{
    {"BCM8847", "QAX"},
    {"BCM8837", "QMX"},
    {"BCM8827", "QUX"},
    {"BCM8868", "Jericho+"},
    {"BCM8867", "Jericho"},
    {"BCM8869", "Jericho2"},
}};

constexpr std::string_view jericho2 = "BCM8869";

// The text before "processor" on the first line where that text is not empty. This is the first
// match of "(.+?)(?=processor)", found without trying every start on every line.
std::string_view model_of(std::string_view shversion) {
  for (const std::string_view line : split(shversion, "\n")) {
    const std::size_t end = line.find("processor", 1);
    if (end != std::string_view::npos) return line.substr(0, end);
  }
  return "";
}

router_type type_of_model(std::string_view rtrtype) {
  for (const auto& [name, type] : models) {
    if (rtrtype.find(name) != std::string_view::npos) return type;
  }
  return invalid;
}

bool is_supported(std::string_view asic) {
  return std::any_of(supported_asics.begin(), supported_asics.end(),
                     [asic](const supported_asic& known) { return known.type == asic; });
}

// Enters for each node the units that the R/S/I lines list under it. Only two chassis types need
// it.
void read_npu_lists(std::string_view asic_dump, const matches& asic_info) {
  value npu_lists = make_ordered_map();
  for (std::size_t at = 0; at < asic_info.size(); ++at) {
    npu_lists.as_map().set(asic_info[at][0], make_list());
  }
  static const pattern& slot_and_unit = constant(R"(R\/S\/I:\s\d+\/(\d+)\/(\d+))");
  static const pattern& rack_and_unit = constant(R"(R\/S\/I:\s(\d+)\/\d+\/(\d+))");
  const bool by_slot = st().router == birch;
  const matches npuinfo = findall(by_slot ? slot_and_unit : rack_and_unit, asic_dump);
  for (std::size_t at = 0; at < npuinfo.size(); ++at) {
    const std::string_view place = npuinfo[at][0];
    const std::string nodename =
        by_slot ? fmt::format("0/{}/CPU0", place) : fmt::format("{}/0/CPU0", place);
    npu_lists.at(nodename).as_list().emplace_back(npuinfo[at][1]);
  }
  const value nodeinfo = st().nodeinfo.get();
  for (const auto& [nodename, npu_list] : npu_lists.as_map().items()) {
    nodeinfo.at(nodename).as_map().set("npu_list", npu_list);
  }
}

void enter_asic(std::string_view nodename, std::string_view asic) {
  map& node = st().nodeinfo.get().at(nodename).as_map();
  node.set("asic", asic);
  if (!node.at("npu_list").is_list()) {
    logger(fmt::format("{}: NPU not found, skipping TESSEL check on this location.", nodename),
           "exception");
    ++st().info;
    node.set("dump", 0);
  }
  if (!is_supported(asic)) {
    node.set("asic_supported", 0);
    logger(fmt::format("INFO: Found unsupported ASIC {}x. TESSEL doesn't guarantee consistency "
                       "check on this node {}",
                       asic, nodename),
           "exception");
    ++st().info;
  }
}

}  // namespace

int get_router_type() {
  run_state& run = st();
  try {
    if (run.router != notset) return run.router;
    const value shversion = execute("/opt/nos/bin/sw_version_show");
    run.router = type_of_model(model_of(shversion.as_text()));
    return run.router;
  } catch (const std::exception& error) {
    log_and_count(fmt::format("{}: get_router_type failed", error.what()));
    return invalid;
  }
}

matches first_units_of(std::string_view unit_list) {
  // The same as first_unit_definition, with one addition: if no unit follows a head, the search
  // skips text that no other head on the line can need, so that a line of many heads is read once.
  static const pattern& first_unit =
      constant(R"(Node ID: (\w+\/\w+\/CPU0)(?:(?:\n|\n*.*\n)\w+\s\d+\s\w+\s(BCM\d{4}))"
               R"(|(?!\n)(?>.*?(?=Node ID: \w++\/\w++\/CPU0\n)|.*+)(*SKIP)(*FAIL)))");
  return findall(first_unit, unit_list);
}

int check_asic_support() {
  run_state& run = st();
  try {
    const value output = execute_bcmd("show unit", "all", "A", DEFAULT, "show_unit");
    const std::string_view asic_dump = output.as_text();
    const matches asic_info = first_units_of(asic_dump);
    if (run.router == birch || run.router == fir) read_npu_lists(asic_dump, asic_info);
    for (std::size_t at = 0; at < asic_info.size(); ++at) {
      enter_asic(asic_info[at][0], asic_info[at][1]);
    }
    return SUCCESS;
  } catch (const std::exception& error) {
    print(fmt::format("\n{}: Not able to get ASIC information", error.what()));
    ++run.exception;
    return ERROR;
  }
}

int is_j2(std::string_view nodename) {
  try {
    return st().nodeinfo.get().in(nodename).in("asic") == jericho2 ? SUCCESS : ERROR;
  } catch (const std::exception& error) {
    print(fmt::format("\n{}: Not able to get ASIC information on the node {} ", error.what(),
                      nodename));
    ++st().exception;
    return ERROR;
  }
}

}  // namespace tessel
