#include "usage.h"

#include <cstring>
#include <fstream>
#include <string>

namespace bench {

processor_time time_of(const rusage& used) {
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
  };
  return {seconds(used.ru_utime), seconds(used.ru_stime)};
}

processor_time time_used(int who) {
  rusage used{};
  getrusage(who, &used);
  return time_of(used);
}

processor_time operator-(const processor_time& later, const processor_time& earlier) {
  return {later.user - earlier.user, later.system - earlier.system};
}

// Not ru_maxrss: that counts what the process was before it became this program.
std::size_t peak_kib() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("VmHWM:")) return std::stoul(line.substr(std::strlen("VmHWM:")));
  }
  return 0;
}

}  // namespace bench
