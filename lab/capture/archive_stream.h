// The two layers of a packed capture: zstd compression, and the blocks of a tar archive in it.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace lab {

struct archive_entry {
  std::string name;
  std::string text;
};

// Limits, because a packed capture is read into memory as a whole. Sizes are before compression.
struct archive_limits {
  std::uint64_t file = std::uint64_t{512} << 20;
  std::uint64_t archive = std::uint64_t{2} << 30;
  std::uint64_t heads = 4'000'000;
};

// The space that entries take up in an archive.
class archive_space {
 public:
  void add(const std::string& name, std::uint64_t size);
  // Empty if it stays within the limits, else what exceeds them: "larger than 2 GiB".
  std::string excess(const archive_limits& limits) const;

 private:
  std::uint64_t bytes_ = 0;
  std::uint64_t heads_ = 0;
};

// "512 MiB", in the largest unit that needs no fraction.
std::string size_text(std::uint64_t bytes);

class archive_writer {
 public:
  // The writer does not check the limits.
  explicit archive_writer(const std::filesystem::path& file);
  ~archive_writer();
  archive_writer(const archive_writer&) = delete;
  archive_writer& operator=(const archive_writer&) = delete;

  // Adds a regular file under this name. Throws `lab_error`.
  void add(const std::string& name, const std::filesystem::path& source);
  // Writes the end; without it the file is not a valid archive.
  void finish();

 private:
  struct state;
  std::unique_ptr<state> state_;
};

// Calls `take` for each regular file of the archive, in order; skips folders. Throws `lab_error`
// unless the file is a complete archive of regular files, and passes on what `take` throws.
void read_archive(const std::filesystem::path& file, const std::function<void(archive_entry)>& take,
                  const archive_limits& limits = {});

}  // namespace lab
