#include "lab/tool/latency.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>

#include "lab/base/error.h"
#include "lab/tool/tool_names.h"

namespace lab {
namespace {

constexpr std::string_view for_all = "all";

[[noreturn]] void refuse(std::string_view part, const std::string& why) {
  throw lab_error(fmt::format("latency \"{}\": {}", part, why));
}

std::string tool_of_class(std::string_view part, std::string_view name) {
  if (name == for_all) return std::string{name};
  if (name == "chip") return "asic_shell_show";
  const auto& tools = tool_names();
  if (std::find(tools.begin(), tools.end(), name) == tools.end())
    refuse(part, fmt::format("\"{}\" is neither a tool nor one of ssh, chip and all", name));
  return std::string{name};
}

std::chrono::microseconds time_of(std::string_view part, std::string_view text) {
  constexpr double longest = 600;  // seconds
  double factor = 0;
  if (text.ends_with("ms"))
    factor = 1e-3;
  else if (text.ends_with('s'))
    factor = 1;
  else
    refuse(part, "a time needs its unit, as in 150ms or 0.15s");
  text.remove_suffix(text.ends_with("ms") ? 2 : 1);
  double number = 0;
  const auto [end, error] =
      std::from_chars(text.data(), text.data() + text.size(), number, std::chars_format::fixed);
  if (error != std::errc{} || end != text.data() + text.size() || text.front() < '0' ||
      text.front() > '9')
    refuse(part, "not a time such as 150ms or 0.15s");
  if (number * factor > longest) refuse(part, "more than 600s");
  return std::chrono::microseconds{std::llround(number * factor * 1e6)};
}

const latency* find(const std::vector<latency>& latencies, std::string_view tool) {
  const auto found = std::find_if(latencies.begin(), latencies.end(),
                                  [&](const latency& one) { return one.tool == tool; });
  return found == latencies.end() ? nullptr : &*found;
}

}  // namespace

std::vector<latency> parse_latencies(std::string_view text) {
  std::vector<latency> latencies;
  for (;;) {
    const std::size_t comma = text.find(',');
    const std::string_view part = text.substr(0, comma);
    const std::size_t equals = part.find('=');
    if (equals == std::string_view::npos) refuse(part, "not CLASS=TIME such as ssh=150ms");
    const std::string tool = tool_of_class(part, part.substr(0, equals));
    if (find(latencies, tool) != nullptr) refuse(part, "named twice");
    latencies.push_back({tool, time_of(part, part.substr(equals + 1))});
    if (comma == std::string_view::npos) return latencies;
    text.remove_prefix(comma + 1);
  }
}

std::chrono::microseconds latency_of(const std::vector<latency>& latencies, std::string_view tool,
                                     std::string_view remote_tool) {
  std::chrono::microseconds time{};
  const latency* own = find(latencies, tool);
  if (own == nullptr) own = find(latencies, for_all);
  if (own != nullptr) time = own->time;
  if (!remote_tool.empty()) time += latency_of(latencies, remote_tool, {});
  return time;
}

}  // namespace lab
