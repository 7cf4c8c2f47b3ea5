#include "lab/capture/sums.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <vector>

#include "lab/base/descriptors.h"
#include "lab/base/error.h"
#include "packing/sha256.h"

namespace lab {
namespace {

namespace fs = std::filesystem;

class summing {
 public:
  void add(std::string_view text) {
    bytes_ += text.size();
    sum_.add(text);
  }
  file_sum end() { return {bytes_, sum_.digits()}; }

 private:
  packing::sha256 sum_;
  std::uint64_t bytes_ = 0;
};

}  // namespace

file_sum sum_of(std::string_view text) {
  summing whole;
  whole.add(text);
  return whole.end();
}

file_sum sum_of_file(const fs::path& file) {
  // A pipe without a writer would hold up whoever opens it.
  const descriptor in = open_file(file, O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
  struct stat status {};
  if (in.is_open() && fstat(in.number(), &status) == 0 && !S_ISREG(status.st_mode))
    throw lab_error(fmt::format("{}: not a regular file", file.string()));
  summing whole;
  std::vector<char> piece(std::size_t{1} << 17);
  ssize_t got = in.is_open() ? 1 : -1;
  while (got > 0) {
    got = read_some(in.number(), piece.data(), piece.size());
    if (got > 0) whole.add({piece.data(), static_cast<std::size_t>(got)});
  }
  if (got < 0)
    throw lab_error(fmt::format("{}: cannot be read: {}", file.string(), std::strerror(errno)));
  return whole.end();
}

file_sums sums_of_folder(const fs::path& folder) {
  file_sums sums;
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    const std::string name = entry.path().lexically_relative(folder).string();
    if (entry.symlink_status().type() != fs::file_type::directory && name != "manifest")
      sums.emplace(name, sum_of_file(entry.path()));
  }
  return sums;
}

}  // namespace lab
