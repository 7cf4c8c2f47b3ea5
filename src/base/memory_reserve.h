// A little memory for the words about a lack of memory: without it, the handler of a failed
// allocation could neither log nor count.
#pragma once

namespace tessel {

// From now on an allocation by `new` that fails takes from the reserve if its thread is handling a
// failure or is within `words_first`; any other one fails. Replaces the handler of `new`, which is
// that of the whole process only where the library shares the C++ library with its host. Where
// memory is short already, the reserve is smaller. Main thread.
void keep_memory_reserve();

// Fills the reserve again if something was taken and there is memory for it. Any thread.
void refill_memory_reserve();

// Releases the reserve for good and puts the handler back that was there before. Main thread.
void end_memory_reserve();

// While it lives, its thread may take from the reserve: for a line that must not be lost. Fills the
// reserve again at its end.
class words_first {
 public:
  words_first();
  ~words_first();
  words_first(const words_first&) = delete;
  words_first& operator=(const words_first&) = delete;
};

}  // namespace tessel
