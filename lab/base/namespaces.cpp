#include "lab/base/namespaces.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <exception>

#include "lab/base/error.h"
#include "lab/base/processes.h"

namespace lab {

namespace fs = std::filesystem;

namespace {

// The kernel accepts such a setting only in one write.
void write_setting(const char* file, const std::string& text) {
  const descriptor setting = open_file(file, O_WRONLY);
  if (!setting.is_open() ||
      write(setting.number(), text.data(), text.size()) != static_cast<ssize_t>(text.size()))
    throw no_privileges{fmt::format("{}: {}", file, std::strerror(errno))};
}

// The root of a plain chroot is no mount, and the mount that holds it can be changed only at its
// own root, above. A process whose folder lies outside of its root can climb there. It comes back.
void make_private_from_above() {
  const descriptor root = open_file("/", O_RDONLY | O_DIRECTORY);
  const descriptor folder = open_file(".", O_RDONLY | O_DIRECTORY);
  if (!root.is_open() || !folder.is_open() || fchdir(root.number()) != 0 || chroot("/proc") != 0)
    throw no_privileges{fmt::format("no way out of a chroot: {}", std::strerror(errno))};
  struct stat here {};
  struct stat above {};
  while (stat(".", &here) == 0 && stat("..", &above) == 0 &&
         (here.st_ino != above.st_ino || here.st_dev != above.st_dev))
    if (chdir("..") != 0) break;
  const int failed = mount("none", ".", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 ? 0 : errno;
  if (fchdir(root.number()) != 0 || chroot(".") != 0 || fchdir(folder.number()) != 0) fail("/");
  if (failed != 0)
    throw no_privileges{
        fmt::format("the mount above / cannot be made private: {}; bind a mount to "
                    "the root of the chroot",
                    std::strerror(failed))};
}

void make_mounts_private() {
  if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0) return;
  if (errno == EINVAL) return make_private_from_above();
  mount_or_fail("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr);
}

}  // namespace

std::string namespace_problem() {
  if (errno != ENOSPC && errno != EUSERS)
    return fmt::format("unshare: {}; run as root or allow user namespaces", std::strerror(errno));
  return "no more may be made: a limit in /proc/sys/user is reached; raise it, or end programs "
         "that "
         "hold namespaces";
}

bool enter_namespace(int others) {
  const uid_t user = geteuid();
  const gid_t group = getegid();
  const bool as_root = user == 0 && unshare(CLONE_NEWNS | others) == 0;
  if (!as_root) {
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS | others) != 0)
      throw no_privileges{fmt::format("no mount namespace: {}", namespace_problem())};
    write_setting("/proc/self/setgroups", "deny");
    write_setting("/proc/self/uid_map", fmt::format("{} {} 1", user, user));
    write_setting("/proc/self/gid_map", fmt::format("{} {} 1", group, group));
  }
  make_mounts_private();
  return as_root;
}

void insist_on_namespace() {
  constexpr std::size_t longest_report = 1024;
  pipe_ends report = new_pipe();
  const pid_t child = start([&] {
    try {
      enter_namespace(0);
    } catch (const no_privileges& missing) {
      write_all(report.in.number(), missing.what);
    } catch (const std::exception&) {  // the run itself reports it
    }
    return EXIT_SUCCESS;
  });
  report.in.close();
  const std::string missing = read_up_to(report.out.number(), longest_report).value_or("");
  int ignored = 0;
  collect(child, ignored);
  if (!missing.empty()) throw no_privileges{missing};
}

void mount_or_fail(const std::string& from, const std::string& to, const char* type,
                   unsigned long flags, const char* options) {
  if (mount(from.c_str(), to.c_str(), type, flags, options) == 0) return;
  const int error = errno;
  const std::string what = fmt::format("mount on {}: {}", to, std::strerror(error));
  if (error == EPERM || error == EACCES) throw no_privileges{"no right to mount: " + what};
  throw lab_error(what);
}

held::held(const fs::path& path) : file_(open_file(path, O_PATH)) {
  if (!file_.is_open()) fail(path.string());
}

void held::bind_to(const fs::path& target) const {
  mount_or_fail(fmt::format("/proc/self/fd/{}", file_.number()), target.string(), nullptr,
                MS_BIND | MS_REC, nullptr);
}

void make_folder(const fs::path& folder) {
  if (mkdir(folder.c_str(), 0755) != 0 && errno != EEXIST) fail(folder.string());
}

void bind_file(const held& source, const fs::path& target) {
  if (!open_file(target, O_WRONLY | O_CREAT, 0644).is_open()) fail(target.string());
  source.bind_to(target);
}

}  // namespace lab
