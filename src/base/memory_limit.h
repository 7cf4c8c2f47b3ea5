// How much memory the audit may use, and how much of it the tools' texts may take. A tool may print
// more than the machine has memory, and a process that asks for too much ends the host.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "base/value.h"

namespace tessel {

// The least of what bounds the memory of this process.
struct memory_limit {
  std::uint64_t bytes = UINT64_MAX;
  const char* from = "the memory";  // what bounds it, in words
};

// Reads the memory limits of the process's control groups, the free memory of the machine and
// RLIMIT_AS. One that cannot be read does not count. Needs no memory itself. `proc` and `groups`
// are where the system shows them. Any thread.
memory_limit read_memory_limit(std::string_view proc = "/proc",
                               std::string_view groups = "/sys/fs/cgroup");

// How many bytes of tools' texts are held at this moment, and how many may be. It must outlive the
// texts. Any thread, without a lock.
class text_account {
 public:
  // Texts may take half of the memory, what is made of them the other half. Call it before the
  // first text is held.
  void set_limit(const memory_limit& limit);
  // Enters `size` bytes. Throws `failure` with `what` and both numbers if they are too many; then
  // nothing is entered.
  void take(std::uint64_t size, std::string_view what);
  void give_back(std::uint64_t size) { held_.fetch_sub(size, std::memory_order_relaxed); }
  std::uint64_t held() const { return held_.load(std::memory_order_relaxed); }

 private:
  std::uint64_t most_ = UINT64_MAX;
  const char* from_ = "";
  std::atomic<std::uint64_t> held_ = 0;
};

// A part of an account, given back at the end of its life.
class text_share {
 public:
  // Throws what `take` throws.
  text_share(text_account& account, std::uint64_t size, std::string_view what);
  text_share(text_share&& other) noexcept;
  text_share& operator=(text_share&&) = delete;
  ~text_share();

 private:
  text_account* account_;
  std::uint64_t size_;
};

// A text value whose share is given back with the last copy of the value.
value held_text(std::string text, text_share share);

// A copy of `part`, entered as `what`. Throws what `take` throws.
value held_copy(text_account& account, std::string_view part, std::string_view what);

}  // namespace tessel
