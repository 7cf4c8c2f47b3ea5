// A folder of one's own beside what is being made, on the same file system, so that the finished
// thing needs a new name only.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>

#include "lab/base/descriptors.h"

namespace lab {

// What a command line names, without what completion leaves at its end: "out" for "out/" and
// "out/.". Throws `lab_error` for an empty name.
std::filesystem::path target_named(const std::string& name);

// Throws `lab_error` if `out` exists, or nothing can be made where it is to stand.
void check_target(const std::filesystem::path& out);

// Makes the folder if need be. Throws `lab_error` if it cannot, or if nothing can be made in it.
void make_logs_folder(const std::filesystem::path& folder);

// True for the folder itself, too. Both are made absolute first.
bool lies_under(const std::filesystem::path& file, const std::filesystem::path& folder);

// Made with a name that nobody else has, ".OUT.XXXXXX", for this user alone; it goes with the
// object, whatever is in it, and if a signal ends this process, too. Throws `lab_error` if it
// cannot be made.
class folder_beside {
 public:
  explicit folder_beside(const std::filesystem::path& out);
  ~folder_beside();
  folder_beside(const folder_beside&) = delete;
  folder_beside& operator=(const folder_beside&) = delete;

  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
  descriptor lifeline_;
  pid_t remover_ = -1;
};

}  // namespace lab
