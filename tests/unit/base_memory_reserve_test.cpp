#include "base/memory_reserve.h"

#include <sys/resource.h>

#include <cstdio>
#include <cstdlib>
#include <new>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include "base/findings.h"
#include "support/fake_router.h"
#include "support/limited_memory.h"

#if MEMORY_CAN_BE_LIMITED

namespace tessel {
namespace {

class memory_reserve_test : public router_test {
 protected:
  void SetUp() override {
    router_test::SetUp();
    end_memory_reserve();  // of a run that another test has begun in this process
  }
  void TearDown() override { end_memory_reserve(); }
};

// What a process has of the system, in bytes.
std::size_t address_space() {
  std::size_t pages = 0;
  if (std::FILE* const file = std::fopen("/proc/self/statm", "r")) {
    if (std::fscanf(file, "%zu", &pages) != 1) pages = 0;
    std::fclose(file);
  }
  return pages * 4096;
}

// Takes all memory that this process may still have, down to the smallest pieces, and keeps it.
[[noreturn]] void use_up_memory() {
  const rlimit limit{address_space() + (std::size_t{8} << 20), RLIM_INFINITY};
  if (::setrlimit(RLIMIT_AS, &limit) != 0) throw std::runtime_error("no limit");
  static void* kept = nullptr;
  for (std::size_t size = 8192; size >= sizeof(void*); size -= sizeof(void*)) {
    while (void* const made = std::malloc(size)) {
      *static_cast<void**>(made) = std::exchange(kept, made);
    }
  }
  throw std::bad_alloc();
}

void allow_memory_again() {
  const rlimit none{RLIM_INFINITY, RLIM_INFINITY};
  ASSERT_EQ(::setrlimit(RLIMIT_AS, &none), 0);
}

// 7 if a handler without memory could count and log its failure.
int status_of_handler() {
  open_logs();
  keep_memory_reserve();
  try {
    use_up_memory();
  } catch (const std::bad_alloc&) {
    log_and_count("std::bad_alloc: a check failed");
  }
  allow_memory_again();
  const bool is_logged =
      file_text(LOG_FILE_EXCEPTION).find("a check failed\nTraceback") != std::string::npos;
  return st().exception == 1 && is_logged ? 7 : 2;
}

TEST_F(memory_reserve_test, without_memory_a_failure_is_still_logged_with_its_traceback) {
  EXPECT_EQ(status_in_child([] { return status_of_handler(); }), 7);
}

// 7 if a check without memory could log the finding that it counted.
int status_of_finding(bool with_reserve) {
  open_logs();
  if (with_reserve) keep_memory_reserve();
  try {
    use_up_memory();
  } catch (const std::bad_alloc&) {
    // Nothing is released: the next step is no handler's.
  }
  inconsistency("Inconsistency {}: {}", std::string_view("a field of more than fifteen bytes"));
  allow_memory_again();
  return file_text(LOG_FILE_INCONSISTENT).find("fifteen bytes\n") != std::string::npos ? 7 : 2;
}

TEST_F(memory_reserve_test, without_memory_a_finding_that_is_counted_still_has_its_line) {
  EXPECT_EQ(status_in_child([] { return status_of_finding(true); }), 7);
  EXPECT_NE(status_in_child([] { return status_of_finding(false); }), 7) << "enough was left";
}

TEST_F(memory_reserve_test, an_allocation_that_fails_fails_also_with_a_reserve) {
  keep_memory_reserve();
  EXPECT_THROW(::operator delete(::operator new (std::size_t{1} << 60)), std::bad_alloc);
  refill_memory_reserve();
  EXPECT_THROW(::operator delete(::operator new (std::size_t{1} << 60)), std::bad_alloc);
}

TEST_F(memory_reserve_test, the_handler_of_the_host_comes_back) {
  static int asked = 0;
  std::set_new_handler([] {
    ++asked;
    throw std::bad_alloc();
  });
  keep_memory_reserve();
  keep_memory_reserve();
  EXPECT_THROW(::operator delete(::operator new (std::size_t{1} << 60)), std::bad_alloc);
  EXPECT_EQ(asked, 0);
  end_memory_reserve();
  EXPECT_THROW(::operator delete(::operator new (std::size_t{1} << 60)), std::bad_alloc);
  EXPECT_EQ(asked, 1);
  std::set_new_handler(nullptr);
}

}  // namespace
}  // namespace tessel

#endif
