// A host takes the lock of the machine's audits. Root's tests have a /var/log of their own, so that
// they meet neither an audit nor each other.
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cstdio>

namespace {

bool has_private_logs() {
  return ::unshare(CLONE_NEWNS) == 0 &&
         ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
         ::mount("tmpfs", "/var/log", "tmpfs", MS_NOSUID | MS_NODEV, "mode=0755") == 0;
}

}  // namespace

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  if (::geteuid() == 0 && !has_private_logs()) {
    std::perror("host_tests: cannot mount a /var/log of its own");
    return 1;
  }
  return RUN_ALL_TESTS();
}
