#include "steps.h"

#define PCRE2_CODE_UNIT_WIDTH 8
#include <pcre2.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>

namespace {

bool is_counting = false;
std::uint64_t steps = 0;

void add(std::size_t count) {
  if (is_counting) steps += count;
}

template <auto Free>
struct freed {
  template <class Object>
  void operator()(Object* object) const {
    Free(object);
  }
};

using match_data = std::unique_ptr<pcre2_match_data, freed<pcre2_match_data_free>>;
using match_context = std::unique_ptr<pcre2_match_context, freed<pcre2_match_context_free>>;

// The same pattern, compiled so that each item of it can be seen.
std::map<const void*, pcre2_code*>& counted_codes() {
  static auto* const made = new std::map<const void*, pcre2_code*>;
  return *made;
}

int count_item(pcre2_callout_block* tried, void* last) {
  auto& place = *static_cast<std::size_t*>(last);
  ++steps;
  // A repeated item counts once, however many bytes it takes.
  if (tried->current_position > place) steps += tried->current_position - place;
  place = tried->current_position;
  return 0;
}

}  // namespace

extern "C" {

// Called by the compiler's marks.
void __sanitizer_cov_trace_pc();
void __sanitizer_cov_trace_pc() {
  add(1);
}

void* __real_memchr(const void* text, int wanted, std::size_t size);
void* __wrap_memchr(const void* text, int wanted, std::size_t size);
void* __wrap_memchr(const void* text, int wanted, std::size_t size) {
  void* found = __real_memchr(text, wanted, size);
  const auto* start = static_cast<const char*>(text);
  add(found == nullptr ? size : static_cast<std::size_t>(static_cast<char*>(found) - start) + 1);
  return found;
}

int __real_memcmp(const void* one, const void* other, std::size_t size);
int __wrap_memcmp(const void* one, const void* other, std::size_t size);
int __wrap_memcmp(const void* one, const void* other, std::size_t size) {
  if (is_counting) {
    const auto* first = static_cast<const char*>(one);
    steps += static_cast<std::size_t>(
        std::mismatch(first, first + size, static_cast<const char*>(other)).first - first);
  }
  return __real_memcmp(one, other, size);
}

void* __real_memcpy(void* to, const void* from, std::size_t size);
void* __wrap_memcpy(void* to, const void* from, std::size_t size);
void* __wrap_memcpy(void* to, const void* from, std::size_t size) {
  add(size);
  return __real_memcpy(to, from, size);
}

void* __real_memmove(void* to, const void* from, std::size_t size);
void* __wrap_memmove(void* to, const void* from, std::size_t size);
void* __wrap_memmove(void* to, const void* from, std::size_t size) {
  add(size);
  return __real_memmove(to, from, size);
}

pcre2_code* __real_pcre2_compile_8(PCRE2_SPTR pattern, PCRE2_SIZE size, std::uint32_t options,
                                   int* error, PCRE2_SIZE* place, pcre2_compile_context* context);
pcre2_code* __wrap_pcre2_compile_8(PCRE2_SPTR pattern, PCRE2_SIZE size, std::uint32_t options,
                                   int* error, PCRE2_SIZE* place, pcre2_compile_context* context);
pcre2_code* __wrap_pcre2_compile_8(PCRE2_SPTR pattern, PCRE2_SIZE size, std::uint32_t options,
                                   int* error, PCRE2_SIZE* place, pcre2_compile_context* context) {
  pcre2_code* code = __real_pcre2_compile_8(pattern, size, options, error, place, context);
  if (code == nullptr) return code;
  // The library's shortcuts would hide what a text without them costs.
  const std::uint32_t all = options | PCRE2_AUTO_CALLOUT | PCRE2_NO_START_OPTIMIZE;
  pcre2_code* counted = __real_pcre2_compile_8(pattern, size, all, error, place, context);
  if (counted == nullptr) std::abort();
  counted_codes()[code] = counted;
  return code;
}

void __real_pcre2_code_free_8(pcre2_code* code);
void __wrap_pcre2_code_free_8(pcre2_code* code);
void __wrap_pcre2_code_free_8(pcre2_code* code) {
  if (const auto found = counted_codes().find(code); found != counted_codes().end()) {
    __real_pcre2_code_free_8(found->second);
    counted_codes().erase(found);
  }
  __real_pcre2_code_free_8(code);
}

int __real_pcre2_match_8(const pcre2_code* code, PCRE2_SPTR text, PCRE2_SIZE size, PCRE2_SIZE start,
                         std::uint32_t options, pcre2_match_data* data,
                         pcre2_match_context* context);
int __wrap_pcre2_match_8(const pcre2_code* code, PCRE2_SPTR text, PCRE2_SIZE size, PCRE2_SIZE start,
                         std::uint32_t options, pcre2_match_data* data,
                         pcre2_match_context* context);
int __wrap_pcre2_match_8(const pcre2_code* code, PCRE2_SPTR text, PCRE2_SIZE size, PCRE2_SIZE start,
                         std::uint32_t options, pcre2_match_data* data,
                         pcre2_match_context* context) {
  if (!is_counting) {
    return __real_pcre2_match_8(code, text, size, start, options, data, context);
  }
  const pcre2_code* counted = counted_codes().at(code);
  const match_data counted_data(pcre2_match_data_create_from_pattern(counted, nullptr));
  const match_context counting(pcre2_match_context_create(nullptr));
  if (!counted_data || !counting) std::abort();
  std::size_t place = start;
  pcre2_set_callout(counting.get(), count_item, &place);
  pcre2_set_match_limit(counting.get(), UINT32_MAX);
  is_counting = false;
  __real_pcre2_match_8(counted, text, size, start, options, counted_data.get(), counting.get());
  const int result = __real_pcre2_match_8(code, text, size, start, options, data, context);
  is_counting = true;
  return result;
}
}

namespace tessel {

std::uint64_t steps_of(const std::function<void()>& call) {
  steps = 0;
  is_counting = true;
  call();
  is_counting = false;
  return steps;
}

}  // namespace tessel
