// The steps of which private file trees are made: what to hold, to cover, to bind. For a process
// that is in a mount namespace of its own.
//
//     const held program("/home/me/build/tessel-lab");   // before a mount covers the path
//     mount_or_fail("tmpfs", "/opt", "tmpfs", MS_NODEV | MS_NOSUID, "mode=0755");
//     bind_file(program, "/opt/tessel-lab");
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace lab {

// A right or a facility of the machine that is missing, in one line.
struct no_privileges {
  std::string what;
};

// Throws `lab_error` with `what` and the text of errno.
[[noreturn]] void fail(const std::string& what);

// Throws `no_privileges` where mounting is not allowed, `lab_error` for any other failure.
void mount_or_fail(const std::string& from, const std::string& to, const char* type,
                   unsigned long flags, const char* options);

// A file or folder held open while mounts may cover the path that leads to it.
class held {
 public:
  explicit held(const std::filesystem::path& path);
  held(const held&) = delete;
  held& operator=(const held&) = delete;
  ~held();

  void bind_to(const std::filesystem::path& target) const;

 private:
  int fd_;
};

// A folder that is there already is fine.
void make_folder(const std::filesystem::path& folder);

// Binds a file to a path where nothing has to be yet.
void bind_file(const held& source, const std::filesystem::path& target);

// Makes the tools in /opt/nos/bin, as links to /opt/nos/libexec/tessel-lab.
void link_tools(const std::vector<std::string>& tools);

}  // namespace lab
