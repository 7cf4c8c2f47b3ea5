// A private folder beside the target that is being made. It is on the same file system, so a rename
// puts the finished target in place.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>
#include <vector>

#include "lab/base/descriptors.h"

namespace lab {

// The path that a command line names, without what completion leaves at its end: "out" for "out/"
// and "out/.". Throws `lab_error` for an empty name.
std::filesystem::path target_named(const std::string& name);

// Throws `lab_error` if `out` exists, or if the lowest existing folder above it does not allow a
// new entry.
void check_target(const std::filesystem::path& out);

// Makes the missing folders above `out`. Throws `lab_error` that names the one that cannot be made.
// Returns those that it made, the uppermost first.
std::vector<std::filesystem::path> make_folders_above(const std::filesystem::path& out);

// Makes the folder if it is missing. Throws `lab_error` if it cannot, or if nothing can be made in
// it.
void make_logs_folder(const std::filesystem::path& folder);

// True for the folder itself, too. Makes both paths absolute first.
bool lies_under(const std::filesystem::path& file, const std::filesystem::path& folder);

// A new folder with a unique name, ".OUT.XXXXXX", that only this user can enter. Makes the missing
// folders above `out`, too. It is removed with its contents when the object ends, or when a signal
// ends this process, and so are the folders above that are empty then. Throws `lab_error` if it
// cannot be made.
class folder_beside {
 public:
  explicit folder_beside(const std::filesystem::path& out);
  ~folder_beside();
  folder_beside(const folder_beside&) = delete;
  folder_beside& operator=(const folder_beside&) = delete;

  const std::filesystem::path& path() const { return path_; }

 private:
  std::vector<std::filesystem::path> made_above_;
  std::filesystem::path path_;
  descriptor lifeline_;
  pid_t remover_ = -1;
};

}  // namespace lab
