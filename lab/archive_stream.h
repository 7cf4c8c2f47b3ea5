// The two layers under a packed capture: bytes through zstd, and the blocks of a tar archive in
// them.
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

class archive_writer {
 public:
  explicit archive_writer(const std::filesystem::path& file);
  ~archive_writer();
  archive_writer(const archive_writer&) = delete;
  archive_writer& operator=(const archive_writer&) = delete;

  // Adds a regular file under this name. Throws `lab_error`.
  void add(const std::string& name, const std::filesystem::path& source);
  // Writes the end; without it the file is no archive.
  void finish();

 private:
  struct state;
  std::unique_ptr<state> state_;
};

// Calls `take` for each regular file of the archive, in order; folders are passed over. Throws
// `lab_error` for whatever is no whole archive of regular files, and passes on what `take` throws.
void read_archive(const std::filesystem::path& file,
                  const std::function<void(archive_entry)>& take);

}  // namespace lab
