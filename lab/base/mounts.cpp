#include "lab/base/mounts.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "lab/base/error.h"

namespace lab {

namespace fs = std::filesystem;

void fail(const std::string& what) {
  throw lab_error(fmt::format("{}: {}", what, std::strerror(errno)));
}

void mount_or_fail(const std::string& from, const std::string& to, const char* type,
                   unsigned long flags, const char* options) {
  if (mount(from.c_str(), to.c_str(), type, flags, options) == 0) return;
  const int error = errno;
  const std::string what = fmt::format("mount on {}: {}", to, std::strerror(error));
  if (error == EPERM || error == EACCES) throw no_privileges{"no right to mount: " + what};
  throw lab_error(what);
}

held::held(const fs::path& path) : fd_(open(path.c_str(), O_PATH | O_CLOEXEC)) {
  if (fd_ < 0) fail(path.string());
}

held::~held() {
  close(fd_);
}

void held::bind_to(const fs::path& target) const {
  mount_or_fail(fmt::format("/proc/self/fd/{}", fd_), target.string(), nullptr, MS_BIND | MS_REC,
                nullptr);
}

void make_folder(const fs::path& folder) {
  if (mkdir(folder.c_str(), 0755) != 0 && errno != EEXIST) fail(folder.string());
}

void bind_file(const held& source, const fs::path& target) {
  const int fd = open(target.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
  if (fd < 0) fail(target.string());
  close(fd);
  source.bind_to(target);
}

void link_tools(const std::vector<std::string>& tools) {
  for (const std::string& tool : tools) {
    const std::string link = "/opt/nos/bin/" + tool;
    if (symlink("../libexec/tessel-lab", link.c_str()) != 0) fail(link);
  }
}

}  // namespace lab
