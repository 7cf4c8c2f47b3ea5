#include "runs/chain.h"

#include <algorithm>
#include <map>
#include <numeric>
#include <sstream>
#include <string>
#include <string_view>

namespace bench {

namespace {

constexpr std::string_view collection = "Dumping Data";

// What the commands of one node took.
struct node_times {
  double over_ssh = 0;
  std::map<std::string, double> chips;  // by the unit's number

  double chain() const {
    double longest = 0;
    for (const auto& [unit, time] : chips) longest = std::max(longest, time);
    return over_ssh + longest;
  }
};

// The word that follows the last `option` of the line, or else nothing.
std::string word_after(const std::string& line, std::string_view option) {
  const std::size_t found = line.rfind(option);
  if (found == std::string::npos) return {};
  std::istringstream rest(line.substr(found + option.size()));
  std::string word;
  rest >> word;
  return word;
}

struct moments {
  double begin = 0;
  double end = 0;
};

moments time_of_collection(const measures& run) {
  double begin = 0;
  for (const phase_cost& phase : run.phases) {
    if (phase.name == collection) return {begin, begin + phase.wall};
    begin += phase.wall;
  }
  return {};
}

std::map<std::string, std::string> addresses_by_id(const lab::router& router) {
  std::map<std::string, std::string> addresses;
  for (const lab::node& node : router.nodes) addresses[std::to_string(node.id)] = node.address;
  return addresses;
}

}  // namespace

double longest_chain(const measures& run, const lab::router& router) {
  const auto addresses = addresses_by_id(router);
  const moments collecting = time_of_collection(run);
  std::map<std::string, node_times> nodes;
  double others = 0;
  for (const command_run& command : run.commands) {
    const double taken = command.end - command.begin;
    const std::string address = word_after(command.line, "'StrictHostKeyChecking=no'");
    const std::string unit = word_after(command.line, "\" -u ");
    const auto of_chip = addresses.find(word_after(command.line, " -u " + unit + " -n "));
    if (!address.empty())
      nodes[address].over_ssh += taken;
    else if (!unit.empty() && of_chip != addresses.end())
      nodes[of_chip->second].chips[unit] += taken;
    else if (nodes.empty() || command.begin >= collecting.end)
      others += taken;
  }
  const auto longer = [](double longest, const auto& node) {
    return std::max(longest, node.second.chain());
  };
  return others + std::accumulate(nodes.begin(), nodes.end(), 0.0, longer);
}

}  // namespace bench
