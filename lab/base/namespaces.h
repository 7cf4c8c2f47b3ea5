// A mount namespace of one's own, and the steps of which a private file tree is made in it: what to
// hold, to cover, to bind.
//
//     enter_namespace(0);
//     const held program("/home/me/build/tessel-lab");   // before a mount covers the path
//     mount_or_fail("tmpfs", "/opt", "tmpfs", MS_NODEV | MS_NOSUID, "mode=0755");
//     bind_file(program, "/opt/tessel-lab");
#pragma once

#include <filesystem>
#include <string>

#include "lab/base/descriptors.h"

namespace lab {

// A right or a facility of the machine that is missing, in one line.
struct no_privileges {
  std::string what;
};

// Exit statuses: of a child that could not be prepared, and where a right is missing.
inline constexpr int cannot_prepare = 70;
inline constexpr int missing_privileges = 77;

// Enters a mount namespace, and `others` (CLONE_NEWNET), whose mounts nobody outside sees. Root
// needs namespaces alone; anybody else gets the right to mount from a user namespace. Returns true
// if there is none, so that a process may also go back. Throws `no_privileges`.
bool enter_namespace(int others);

// Throws `no_privileges` if enter_namespace would, before anything is made.
void insist_on_namespace();

// Throws `no_privileges` where mounting is not allowed, `lab_error` for any other failure.
void mount_or_fail(const std::string& from, const std::string& to, const char* type,
                   unsigned long flags, const char* options);

// A file or folder held open while mounts may cover the path that leads to it.
class held {
 public:
  explicit held(const std::filesystem::path& path);
  void bind_to(const std::filesystem::path& target) const;

 private:
  descriptor file_;
};

// A folder that is there already is fine.
void make_folder(const std::filesystem::path& folder);

// Binds a file to a path where nothing has to be yet.
void bind_file(const held& source, const std::filesystem::path& target);

}  // namespace lab
