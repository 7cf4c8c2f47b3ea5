// The signals by which a terminal, a group or an administrator ends a host.
#pragma once

#include <array>
#include <csignal>

namespace tessel_host {

inline constexpr std::array ending_signals = {SIGHUP, SIGINT, SIGQUIT, SIGTERM};

// False if it is ignored, or was blocked when the mask was `before`: who starts a host with nohup
// or in the background wants a signal to have no effect. Any thread.
[[nodiscard]] bool would_end_us(int number, const sigset_t& before);

// True if one is held back now that would have ended this process while the mask was `before`. Any
// thread.
[[nodiscard]] bool is_end_held_back(const sigset_t& before);

}  // namespace tessel_host
