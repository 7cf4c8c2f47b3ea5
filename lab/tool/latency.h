// Delays for the tools' answers.
//
//     --latency ssh=150ms,chip=0.3s,all=5ms
//
// A class is a tool's name, `chip` for asic_shell_show, or `all` for every tool without a class of
// its own. A call on another node takes both times: that of `ssh` and that of the tool's class.
#pragma once

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

namespace lab {

inline constexpr const char* latency_variable = "TESSEL_LAB_LATENCY";

struct latency {
  std::string tool;  // or "all"
  std::chrono::microseconds time{};
};

// Throws `lab_error`, one line that names the wrong part.
std::vector<latency> parse_latencies(std::string_view text);

// `remote_tool` is empty unless `tool` is ssh.
std::chrono::microseconds latency_of(const std::vector<latency>& latencies, std::string_view tool,
                                     std::string_view remote_tool);

}  // namespace lab
