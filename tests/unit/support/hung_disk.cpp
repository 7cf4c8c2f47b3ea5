#include "support/hung_disk.h"

#include <unistd.h>

#include <array>
#include <atomic>
#include <condition_variable>
#include <mutex>

namespace tessel {

namespace {

// Never destroyed: a thread may hang when the process ends.
struct shared {
  std::mutex mutex;
  std::condition_variable changed;
  std::string file;  // empty: nobody hangs
  int writers = 0;
};

shared& all() {
  static auto& made = *new shared;
  return made;
}

std::atomic<bool> is_hung = false;

bool is_open_as(int descriptor, const std::string& file) {
  std::array<char, 4096> target{};
  const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
  const ssize_t length = ::readlink(link.c_str(), target.data(), target.size());
  return length > 0 && file == std::string_view(target.data(), static_cast<std::size_t>(length));
}

void hang_if_it_is_the_file(int descriptor) {
  std::unique_lock lock(all().mutex);
  if (all().file.empty() || !is_open_as(descriptor, all().file)) return;
  ++all().writers;
  all().changed.notify_all();
  all().changed.wait(lock, [] { return all().file.empty(); });
  --all().writers;
}

}  // namespace

hung_disk::hung_disk(std::string_view file) {
  const std::lock_guard lock(all().mutex);
  all().file = file;
  is_hung = true;
}

hung_disk::~hung_disk() {
  const std::lock_guard lock(all().mutex);
  all().file.clear();
  is_hung = false;
  all().changed.notify_all();
}

void hung_disk::wait_for_a_writer() {
  std::unique_lock lock(all().mutex);
  all().changed.wait(lock, [] { return all().writers > 0; });
}

}  // namespace tessel

// The linker puts it in front of the C library's.
extern "C" ssize_t __real_write(int descriptor, const void* data, std::size_t size);
extern "C" ssize_t __wrap_write(int descriptor, const void* data, std::size_t size);
ssize_t __wrap_write(int descriptor, const void* data, std::size_t size) {
  if (tessel::is_hung) tessel::hang_if_it_is_the_file(descriptor);
  return __real_write(descriptor, data, size);
}
