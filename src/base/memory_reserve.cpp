#include "base/memory_reserve.h"

#include <sys/mman.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <exception>
#include <new>

namespace tessel {

namespace {

// A piece that is released serves whoever comes first, so there are some. Those of the heap serve
// small allocations at once, but perhaps only on threads that share a heap. One that is mapped
// gives the heap of the process room to grow, which serves all; it is as large as that takes.
constexpr std::size_t heap_piece = std::size_t{32} * 1024;
constexpr std::size_t mapped_piece = std::size_t{1088} * 1024;
std::array<std::atomic<void*>, 8> heap_pieces{};
std::array<std::atomic<void*>, 2> mapped_pieces{};
std::atomic<bool> is_whole = false;
std::new_handler before = nullptr;

thread_local int words = 0;

void* map_piece() {
  // Writable, so that limits of data and of what is promised count it, too. Nobody writes to it, so
  // it takes no memory.
  void* const made =
      ::mmap(nullptr, mapped_piece, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  return made == MAP_FAILED ? nullptr : made;
}

void unmap_piece(void* made) {
  ::munmap(made, mapped_piece);
}

// A piece belongs to the thread that has exchanged it.
template <class Pieces, class Free>
bool release_one_of(Pieces& pieces, Free free) {
  for (std::atomic<void*>& each : pieces) {
    if (void* const taken = each.exchange(nullptr)) {
      free(taken);
      return true;
    }
  }
  return false;
}

template <class Pieces, class Make, class Free>
bool fill_all_of(Pieces& pieces, Make make, Free free) {
  for (std::atomic<void*>& each : pieces) {
    if (each.load() != nullptr) continue;
    void* const made = make();
    if (made == nullptr) return false;
    void* none = nullptr;
    if (!each.compare_exchange_strong(none, made)) free(made);
  }
  return true;
}

bool release_one() {
  const bool is_released =
      release_one_of(heap_pieces, std::free) || release_one_of(mapped_pieces, unmap_piece);
  is_whole = false;  // now, or a refill that has just seen the piece would stay believed whole
  return is_released;
}

void fill() {
  is_whole = true;
  const bool is_mapped = fill_all_of(mapped_pieces, map_piece, unmap_piece);
  const bool is_in_heap = fill_all_of(
      heap_pieces, [] { return std::malloc(heap_piece); }, std::free);
  if (!is_mapped || !is_in_heap) is_whole = false;
}

// `new` tries again if this returns.
void take_from_reserve() {
  const bool is_for_words = words > 0 || std::current_exception() != nullptr;
  if (!is_for_words || !release_one()) throw std::bad_alloc();
}

}  // namespace

void keep_memory_reserve() {
  fill();
  const std::new_handler found = std::set_new_handler(take_from_reserve);
  if (found != take_from_reserve) before = found;
}

void refill_memory_reserve() {
  if (!is_whole && std::get_new_handler() == take_from_reserve) fill();
}

void end_memory_reserve() {
  if (std::get_new_handler() == take_from_reserve) std::set_new_handler(before);
  while (release_one()) {
  }
}

words_first::words_first() {
  ++words;
}

words_first::~words_first() {
  --words;
  refill_memory_reserve();
}

}  // namespace tessel
