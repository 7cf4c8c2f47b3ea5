// Values of the tools are texts: hexadecimal with "0x", or decimal.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "desk/model/names.h"

namespace desk {

// The number of a text that is one, decimal or after "0x".
[[nodiscard]] std::optional<std::uint64_t> number_in(std::string_view text);

// The number of a chip, from 0 to 32767; -1 for any other text.
[[nodiscard]] std::int16_t npu_in(std::string_view text);

// The significant digits of a system port: what follows its leading "0" and "x"; may be empty.
[[nodiscard]] std::string_view significant_end(std::string_view system_port);

// "0x1" of "LAG 0x1", as the chips of the older families show it, and of "0x1".
[[nodiscard]] std::string_view lag_id_in(std::string_view key);

// The form in which two values of a field are compared: a number without leading zeros, the last
// four characters of a global LIF, a MAC in lower case without separators.
[[nodiscard]] std::string compared_form(field what, std::string_view value);

}  // namespace desk
