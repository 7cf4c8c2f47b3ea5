#include "packing/tar_head.h"

#include <cstring>

namespace packing {

unsigned sum_of(const tar_head& head) {
  tar_head blank = head;
  std::memset(blank.sum, ' ', sizeof blank.sum);
  std::array<unsigned char, block_size> bytes{};
  std::memcpy(bytes.data(), &blank, block_size);
  unsigned sum = 0;
  for (const unsigned char byte : bytes) sum += byte;
  return sum;
}

std::string long_name_record(const std::string& name) {
  const std::string tail = " path=" + name + "\n";
  std::size_t length = tail.size() + 1;
  while (std::to_string(length).size() + tail.size() != length) ++length;
  return std::to_string(length) + tail;
}

std::optional<name_fields> fields_of(std::string_view name) {
  if (name.size() <= sizeof tar_head::name) return name_fields{"", name};
  const std::size_t slash = name.rfind('/');
  if (slash == std::string_view::npos || slash > sizeof tar_head::prefix ||
      name.size() - slash - 1 > sizeof tar_head::name)
    return std::nullopt;
  return name_fields{name.substr(0, slash), name.substr(slash + 1)};
}

}  // namespace packing
