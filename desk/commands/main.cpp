#include <malloc.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <string>
#include <string_view>
#include <vector>

#include "command_line/one_line.h"
#include "command_line/usage_error.h"
#include "desk/commands/commands.h"

namespace {

// A monitoring system reads any other status of its plug-in as an alarm.
int status_of_failure(const std::vector<std::string>& words) {
  constexpr int unknown_service = 3;
  const bool is_plugin = std::find(words.begin(), words.end(), "nagios") != words.end();
  return is_plugin ? unknown_service : desk::status_wrong_call;
}

void complain(std::string_view message) {
  const std::string line = command_line::one_line(message);
  std::fprintf(stderr, "tessel-report: %s\n", line.c_str());
}

// A run of the largest router takes 50 MiB, which grow and end together. Pages that the heap gives
// back on the way would only be taken, and cleared, again; and in large pages the kernel hands them
// out with a fifth of the work. Where it refuses, all is as without.
void prepare_heap() {
  constexpr int most_in_heap = 32 << 20;  // more, and mallopt refuses
  constexpr int never = 1 << 30;
  constexpr int room = 96 << 20;
  mallopt(M_MMAP_THRESHOLD, most_in_heap);
  mallopt(M_TRIM_THRESHOLD, never);
  mallopt(M_TOP_PAD, room);
  constexpr std::size_t large_page = 2 << 20;
  const char* const begin = static_cast<char*>(::sbrk(0));
  void* volatile block = std::malloc(large_page);  // the heap grows by it and by the room
  std::free(block);
  char* const end = static_cast<char*>(::sbrk(0));
  if (end - begin < room) return;
  char* const first = end - room;
  const std::size_t before = large_page - reinterpret_cast<std::uintptr_t>(first) % large_page;
  ::madvise(first + before, room - large_page, MADV_HUGEPAGE);
}

}  // namespace

int main(int argc, char** argv) {
  prepare_heap();
  const std::vector<std::string> words(argv, argv + argc);
  try {
    const std::vector<std::string> arguments(words.empty() ? words.begin() : words.begin() + 1,
                                             words.end());
    const int status = desk::run_command(desk::parse_options(arguments), std::cout);
    std::cout.flush();
    if (std::cout) return status;
    complain("cannot write to standard output");
  } catch (const std::exception& error) {
    complain(error.what());
  }
  return status_of_failure(words);
}
