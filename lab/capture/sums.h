// The size and SHA-256 of the files of a capture, by which it knows itself again.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <string_view>

namespace lab {

struct file_sum {
  std::uint64_t bytes = 0;
  std::string sha256;  // 64 digits
  bool operator==(const file_sum&) const = default;
};

// By name in the capture: "local/sw_version_show", "calls".
using file_sums = std::map<std::string, file_sum>;

file_sum sum_of(std::string_view text);
// Reads the file piece by piece. Throws `lab_error`, also for anything but a regular file.
file_sum sum_of_file(const std::filesystem::path& file);

// All files of a capture folder but its manifest. Throws `lab_error`.
file_sums sums_of_folder(const std::filesystem::path& folder);

}  // namespace lab
