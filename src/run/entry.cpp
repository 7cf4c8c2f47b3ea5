// The exported functions of the library. The assertion of tessel_init stays in release builds too.
#undef NDEBUG
#include <array>
#include <atomic>
#include <cassert>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <mutex>
#include <new>
#include <utility>

#include "base/failure.h"
#include "base/here.h"
#include "base/journal.h"
#include "base/memory_reserve.h"
#include "base/print.h"
#include "run/run_tessel.h"
#include "run/state.h"
#include "tessel/tessel.h"

#define TESSEL_EXPORT extern "C" __attribute__((visibility("default")))

__attribute__((visibility("default"))) void* m = nullptr;

namespace {

// The exception that ended run_tessel, kept until tessel_run acts on it. Only the host's thread
// uses it. It is never destroyed, because the process may end while it is in use. It has its place
// from the start, because the exception may be the lack of memory, and none may leave a handler
// here: the host cannot catch it.
std::exception_ptr& pending() {
  alignas(std::exception_ptr) static std::array<std::byte, sizeof(std::exception_ptr)> place;
  static auto* const kept = new (place.data()) std::exception_ptr;
  return *kept;
}

// Set before the process ends. The host's atexit handlers run after that, and an audit that one of
// them starts would wait for what the ended one still holds.
std::atomic<bool> is_ending = false;

void print_traceback(const std::exception& error, tessel::here where) {
  try {
    tessel::end_open_line();
  } catch (const std::exception&) {
    // Ignored: standard output may be what failed.
  }
  tessel::print_error(tessel::traceback_of(error, where));
}

// On an exit request, flushes standard output and ends the process. Does not wait for workers that
// still run; nothing that they use is destroyed.
void act_on_pending(tessel::here where = tessel::here::current()) {
  const std::exception_ptr reason = std::exchange(pending(), nullptr);
  if (!reason) return;
  try {
    std::rethrow_exception(reason);
  } catch (const tessel::exit_request&) {
    is_ending = true;
    // Wait for a worker that is reporting a finding; no other worker starts to report one. Whoever
    // hangs there, with its disk, is not waited for.
    tessel::run_state& run = tessel::st();
    std::unique_lock until_the_end(run.finding_mutex, std::defer_lock);
    if (run.for_lines.lock(until_the_end)) until_the_end.release();
    std::fflush(stdout);
    std::exit(0);
  } catch (const std::exception& error) {
    print_traceback(error, where);
  }
}

}  // namespace

TESSEL_EXPORT void tessel_init(void) {
  if (is_ending) return;
  try {
    tessel::keep_memory_reserve();
    tessel::run_state& fresh = tessel::new_state();
    const tessel::asked_journal asked = tessel::take_asked_journal();
    fresh.journal.open(asked.descriptor);
    fresh.command_timeout = asked.timeout;
    m = &fresh;
  } catch (const std::exception&) {
    assert(0);  // no memory for the run state
  }
}

TESSEL_EXPORT int32_t run_tessel(uint32_t my_node_id) {
  if (is_ending) {
    tessel::print_error("tessel: the process is ending, no audit starts any more\n");
    return TESSEL_ABORTED;
  }
  if (m == nullptr) {
    tessel::print_error("tessel: tessel_init has not been called\n");
    return TESSEL_ABORTED;
  }
  tessel::st().journal.begin(my_node_id);
  try {
    return tessel::run_tessel_with(std::int64_t{my_node_id});
  } catch (const tessel::exit_request&) {
    pending() = std::current_exception();
  } catch (const std::exception&) {
    pending() = std::current_exception();
  }
  return TESSEL_ABORTED;
}

TESSEL_EXPORT int32_t tessel_run(int32_t node_id) {
  // The call reads the processor clock before and after the run; nothing uses the readings yet.
  static_cast<void>(std::clock());
  const int32_t result = run_tessel(static_cast<uint32_t>(node_id));
  static_cast<void>(std::clock());
  if (result == TESSEL_ABORTED) act_on_pending();
  return result;
}

TESSEL_EXPORT void tessel_finalize(void) {
  if (m != nullptr) tessel::st().journal.close();
  m = nullptr;
  tessel::end_memory_reserve();
}
