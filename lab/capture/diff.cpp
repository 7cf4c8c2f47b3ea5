#include "lab/capture/diff.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdlib>
#include <limits>
#include <map>
#include <sstream>
#include <tuple>
#include <unordered_map>
#include <utility>

#include "lab/base/messages.h"
#include "lab/capture/answer_list.h"
#include "lab/capture/diff_names.h"

namespace lab {
namespace {

struct tool_layer {
  std::string_view tool;
  std::string_view layer;
};

// In the order of the report.
constexpr std::array tool_layers{
    tool_layer{"sw_version_show", "platform"}, tool_layer{"plat_nodes_show", "platform"},
    tool_layer{"node_id_convert", "platform"}, tool_layer{"board_api_probe", "platform"},
    tool_layer{"cfg_render", "configuration"}, tool_layer{"iface_show", "interfaces"},
    tool_layer{"ifmgr_show", "interfaces"},    tool_layer{"lagmgr_table_show", "PI"},
    tool_layer{"lagmgr_agent_show", "PD"},     tool_layer{"fwd_object_show", "DPA"},
    tool_layer{"asic_shell_show", "BCM"},      tool_layer{"lagmgr_health", "bundle health"}};

std::string_view tool_of(std::string_view file) {
  return file.substr(0, file.find_first_of(",;"));
}

std::size_t layer_rank(std::string_view file) {
  const std::string_view tool = tool_of(file);
  const auto found = std::find_if(tool_layers.begin(), tool_layers.end(),
                                  [&](const tool_layer& one) { return one.tool == tool; });
  return static_cast<std::size_t>(found - tool_layers.begin());
}

std::string layer_of(std::string_view file) {
  const std::size_t rank = layer_rank(file);
  return std::string{rank < tool_layers.size() ? tool_layers[rank].layer : "other tools"};
}

// The command line behind a file name, as far as a person needs it.
std::string command_of(std::string_view file) {
  std::string command;
  for (std::size_t i = 0; i < file.size(); ++i) {
    unsigned byte = 0;
    if (file[i] == '%' && i + 2 < file.size() &&
        std::from_chars(file.data() + i + 1, file.data() + i + 3, byte, 16).ec == std::errc{}) {
      command += static_cast<char>(byte);
      i += 2;
    } else {
      command += file[i] == ',' || file[i] == '+' ? ' ' : file[i];
    }
  }
  return command;
}

// All answers to a command line, by place and command; several answers are concatenated.
using answers_by_command = std::map<std::pair<std::string, std::string>, std::string>;

answers_by_command all_answers(const capture& c) {
  answers_by_command all;
  for (const auto& [key, text] : c.answers) {
    std::string& whole = all[{key.first, key.second.substr(0, key.second.find(';'))}];
    whole += key.second.ends_with(list_suffix) ? "calls and their status:\n" + text : text;
  }
  return all;
}

// The part of a line that the audit may read, without values that change by themselves.
std::string_view relevant(std::string_view tool, std::string_view line) {
  const auto holds = [&](std::string_view part) {
    return line.find(part) != std::string_view::npos;
  };
  if (tool == "iface_show" && !holds("line protocol") && !holds("MTU")) return {};
  if (tool == "cfg_render" && line.starts_with("!!")) return {};
  if (tool == "sw_version_show" && holds("uptime is")) return {};
  if (tool == "plat_nodes_show")
    return line.substr(0, line.find_last_of(' '));  // all but the uptime
  return line;
}

using counted_lines = std::map<std::pair<std::string, std::string>, int>;  // owner and line

void count_lines(std::string_view tool, std::string_view text, const handle_names& names, int step,
                 counted_lines& counts) {
  for (const owned_line& one : lines_with_owners(text, names)) {
    const std::string_view line = relevant(tool, one.line);
    if (!line.empty()) counts[{one.owner, std::string{line}}] += step;
  }
}

// Node ids to names, from the platform's answers to the node id tool.
std::map<std::string, std::string> nodes_by_id(const capture& a, const capture& b) {
  constexpr std::string_view query = "node_id_convert,-I,";
  constexpr unsigned long id_mask = 0xffffff;
  std::map<std::string, std::string> nodes;
  for (const capture* c : {&a, &b})
    for (const auto& [key, text] : c->answers)
      if (key.second.starts_with(query)) {
        const unsigned long id = std::strtoul(text.c_str(), nullptr, 0) & id_mask;
        nodes.try_emplace(std::to_string(id), command_of(key.second.substr(query.size())));
      }
  return nodes;
}

class comparison {
 public:
  comparison(const capture& a, const capture& b) : nodes_by_id_(nodes_by_id(a, b)) {
    for (const capture* c : {&a, &b}) {
      add_handle_names(*c, names_);
      for (const auto& [address, name] : c->nodes) nodes_by_address_.try_emplace(address, name);
    }
  }

  void compare(const std::string& place, const std::string& file, const std::string* a,
               const std::string* b) {
    if (a != nullptr && b != nullptr && *a == *b) return;
    counted_lines counts;
    const std::string_view tool = tool_of(file);
    if (a != nullptr) count_lines(tool, *a, names_, 1, counts);
    if (b != nullptr) count_lines(tool, *b, names_, -1, counts);
    const bool only_one = a == nullptr || b == nullptr;
    layer_change* change = nullptr;
    for (const auto& [line, count] : counts) {
      if (count == 0) continue;
      if (change == nullptr) change = &change_of(place, file);
      change->lines += static_cast<std::size_t>(std::abs(count));
      change->values.push_back({line.first, line.second, -count});
      if (!line.first.empty()) change->named.insert(line.first);
    }
    if (change == nullptr && only_one) change = &change_of(place, file);
    if (change != nullptr)
      change->asked.insert(command_of(file) +
                           (only_one ? a != nullptr ? " (A only)" : " (B only)" : ""));
  }

  std::vector<layer_change> result() const {
    std::vector<layer_change> all;
    for (const auto& [key, change] : changes_) all.push_back(change);
    return all;
  }

 private:
  layer_change& change_of(const std::string& place, const std::string& file) {
    const std::string where = where_of(place, file);
    layer_change& change = changes_[{layer_rank_of_layer(file), where}];
    change.layer = layer_of(file);
    change.where = where;
    return change;
  }

  // Tools of one layer share a row.
  static std::size_t layer_rank_of_layer(std::string_view file) {
    const std::string layer = layer_of(file);
    const auto found = std::find_if(tool_layers.begin(), tool_layers.end(),
                                    [&](const tool_layer& one) { return one.layer == layer; });
    return static_cast<std::size_t>(found - tool_layers.begin());
  }

  std::string where_of(const std::string& place, const std::string& file) const {
    if (place != local_place) {
      const auto found = nodes_by_address_.find(place);
      return found == nodes_by_address_.end() ? place : found->second;
    }
    const std::size_t unit = file.rfind(",-u,");
    const std::size_t node = file.rfind(",-n,");
    if (unit == std::string::npos || node == std::string::npos || node < unit) return "router";
    const std::string npu = file.substr(unit + 4, node - unit - 4);
    const std::string id = file.substr(node + 4);
    if (npu == "all") return "router";
    const auto found = nodes_by_id_.find(id);
    return fmt::format("{} NPU {}", found == nodes_by_id_.end() ? "node " + id : found->second,
                       npu);
  }

  handle_names names_;
  std::map<std::string, std::string> nodes_by_id_;
  std::map<std::string, std::string> nodes_by_address_;
  std::map<std::pair<std::size_t, std::string>, layer_change> changes_;
};

// The first few, and the number of the others.
std::string enumeration(const std::set<std::string>& names, std::size_t most) {
  std::string text;
  std::size_t shown = 0;
  for (const std::string& name : names) {
    if (shown++ == most) return fmt::format("{}, {} more", text, names.size() - most);
    text += (text.empty() ? "" : ", ") + name;
  }
  return text;
}

}  // namespace

std::vector<layer_change> changes_between(const capture& a, const capture& b) {
  const answers_by_command in_a = all_answers(a);
  const answers_by_command in_b = all_answers(b);
  comparison compared(a, b);
  for (const auto& [key, text] : in_a) {
    const auto other = in_b.find(key);
    compared.compare(key.first, key.second, &text, other == in_b.end() ? nullptr : &other->second);
  }
  for (const auto& [key, text] : in_b)
    if (!in_a.contains(key)) compared.compare(key.first, key.second, nullptr, &text);
  return compared.result();
}

namespace {

// "  - BE1       lag => 0x401", as often as the line is there. Lines of A come before those of B.
std::string values_report(const layer_change& change, std::size_t most, bool is_all) {
  constexpr std::size_t longest_line = 200;
  std::string text;
  std::size_t shown = 0;
  std::vector<changed_line> lines = change.values;
  std::stable_sort(lines.begin(), lines.end(), [](const changed_line& a, const changed_line& b) {
    return std::tuple{a.owner, a.times > 0} < std::tuple{b.owner, b.times > 0};
  });
  for (const changed_line& one : lines)
    for (int time = std::abs(one.times); time > 0; --time) {
      if (shown++ >= most) continue;
      std::string line = on_one_line(one.line);
      if (line.size() > longest_line && !is_all) line = line.substr(0, longest_line) + " ...";
      text += fmt::format("  {} {:<10} {}\n", one.times < 0 ? '-' : '+', one.owner, line);
    }
  if (shown > most) text += fmt::format("  ... and {} more lines; see --all\n", shown - most);
  return text;
}

}  // namespace

std::string change_report(const std::vector<layer_change>& changes, const change_view& view) {
  constexpr std::size_t without_end = std::numeric_limits<std::size_t>::max();
  const auto most = [&](std::size_t usual) { return view.all ? without_end : usual; };
  const std::size_t most_rows = most(20);
  const std::size_t most_names = most(5);
  const std::size_t most_commands = most(2);
  const std::size_t most_lines = most(6);
  if (changes.empty()) return "No layer changed.\n";
  std::string text = fmt::format("{:<14} {:<18} {:>6}  {}\n", "layer", "node", "lines", "about");
  std::size_t row = 0;
  for (const layer_change& change : changes) {
    if (row++ == most_rows)
      return text + fmt::format("... and {} more\n", changes.size() - most_rows);
    text += fmt::format("{:<14} {:<18} {:>6}  {}\n", change.layer, change.where, change.lines,
                        change.named.empty() ? enumeration(change.asked, most_commands)
                                             : enumeration(change.named, most_names));
    if (view.values) text += values_report(change, most_lines, view.all);
  }
  return text;
}

}  // namespace lab
