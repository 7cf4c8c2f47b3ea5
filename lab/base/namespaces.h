// A private mount namespace, and the steps that build a private file tree in it: hold, cover, bind.
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

// One line that names the right or facility that the machine lacks.
struct no_privileges {
  std::string what;
};

// Exit statuses: of a child that could not be prepared, and of a run that lacks a right.
inline constexpr int cannot_prepare = 70;
inline constexpr int missing_privileges = 77;

// Enters a new mount namespace, whose mounts nobody outside sees, and those that `others` names
// (CLONE_NEWNET). A user other than root also enters a user namespace, which gives the right to
// mount. Returns true if no user namespace was needed, so that a process may go back. Throws
// `no_privileges`.
bool enter_namespace(int others);

// Why unshare failed, by errno, and what to do. The system's own texts for the limits of namespaces
// speak of disks and users.
std::string namespace_problem();

// Throws `no_privileges` if enter_namespace would. Call it before anything is made.
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

// Does nothing if the folder exists.
void make_folder(const std::filesystem::path& folder);

// Binds a file to a path; makes the target if it is missing.
void bind_file(const held& source, const std::filesystem::path& target);

}  // namespace lab
