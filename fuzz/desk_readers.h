// What the report reads, behind one interface for fuzzing: logs go in, nothing comes out, and
// nothing may crash, hang or write what its format forbids.
//
// An input holds the logs of a reader one after the other, with a `log_separator` between them.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace fuzz {

// No log has this character.
inline constexpr char log_separator = '\x1e';

struct desk_reader {
  std::string_view name;
  std::vector<std::string_view> logs;  // file names, in the order of the input
  void (*read)(const std::string& folder);
};

std::span<const desk_reader> desk_readers();

// Writes the logs into the folder, which must exist, and reads them. Aborts with a message if what
// comes of it breaks its format. One thread only.
void run(const desk_reader& reader, std::string_view input, const std::string& folder);

}  // namespace fuzz
