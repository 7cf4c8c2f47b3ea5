#include "audit_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <fstream>
#include <sstream>

#include "audit_files.h"

namespace tessel_host {

namespace {

int open_folder() {
  return ::open(log_folder, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
}

bool is_locked_by(int descriptor, int operation) {
  int result = -1;
  do {
    result = ::flock(descriptor, operation);
  } while (result != 0 && errno == EINTR);
  return result == 0;
}

// As in /proc/locks: 08:02:131073.
std::string place_of(int descriptor) {
  struct stat state {};
  if (::fstat(descriptor, &state) != 0) return {};
  char text[64];
  std::snprintf(text, sizeof text, "%02x:%02x:%llu", major(state.st_dev), minor(state.st_dev),
                static_cast<unsigned long long>(state.st_ino));
  return text;
}

// "1: FLOCK  ADVISORY  WRITE 4711 08:02:131073 0 EOF"; who waits for a lock has "->" before FLOCK.
long holder_of(const std::string& place) {
  std::ifstream locks("/proc/locks");
  for (std::string line; std::getline(locks, line);) {
    std::istringstream words(line);
    std::string number;
    std::string kind;
    std::string ignored;
    std::string where;
    long process = 0;
    words >> number >> kind >> ignored >> ignored >> process >> where;
    if (kind == "FLOCK" && where == place && process > 0) return process;
  }
  return 0;
}

std::string named(long process) {
  return process > 0 ? " (process " + std::to_string(process) + ")" : "";
}

}  // namespace

void take_audit_lock(bool waits) {
  // Stays open: the lock is on what was opened here, and a child of fork(2) shares it.
  const int descriptor = open_folder();
  if (descriptor < 0 || is_locked_by(descriptor, LOCK_EX | LOCK_NB)) return;
  if (errno != EWOULDBLOCK) return;  // a file system without locks
  const std::string holder = named(holder_of(place_of(descriptor)));
  if (!waits) {
    ::close(descriptor);
    throw audit_running("another audit is running" + holder +
                        "; start this one with --wait to run it afterwards");
  }
  std::fprintf(stderr, "tessel-host: waiting for the end of another audit%s\n", holder.c_str());
  is_locked_by(descriptor, LOCK_EX);
}

long find_lock_holder() {
  const int descriptor = open_folder();
  if (descriptor < 0) return 0;
  const long holder = holder_of(place_of(descriptor));
  ::close(descriptor);
  return holder;
}

}  // namespace tessel_host
