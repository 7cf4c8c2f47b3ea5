// The blocks of a tar archive, as POSIX defines them.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace packing {

inline constexpr std::size_t block_size = 512;
inline constexpr std::uint64_t size_of_end = 2 * block_size;

// The header of an entry.
struct tar_head {
  char name[100];
  char mode[8];
  char owner[8];
  char group[8];
  char size[12];
  char changed[12];
  char sum[8];
  char kind;
  char link[100];
  char magic[6];
  char version[2];
  char owner_name[32];
  char group_name[32];
  char device[16];
  char prefix[155];
  char unused[12];
};
static_assert(sizeof(tar_head) == block_size);

// What belongs into the field `sum`.
[[nodiscard]] unsigned sum_of(const tar_head& head);

// A record "LENGTH path=NAME\n", whose length counts itself.
[[nodiscard]] std::string long_name_record(const std::string& name);

struct name_fields {
  std::string_view prefix;
  std::string_view name;
};

// The name as the header of an entry holds it; nothing if the name is too long for that.
[[nodiscard]] std::optional<name_fields> fields_of(std::string_view name);

[[nodiscard]] constexpr std::uint64_t in_whole_blocks(std::uint64_t size) {
  return (size + block_size - 1) / block_size * block_size;
}

}  // namespace packing
