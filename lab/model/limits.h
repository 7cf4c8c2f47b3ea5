// The limits of every router, described or generated.
#pragma once

namespace lab {

inline constexpr unsigned slots = 16;      // of a chassis
inline constexpr unsigned fir_racks = 47;  // of line cards
inline constexpr unsigned most_npus = 16;  // of a node
inline constexpr unsigned last_bundle = 65535;
inline constexpr unsigned last_vlan = 4094;

}  // namespace lab
