// Steps of sixteen bytes over blanks and over the plain bytes of a text.
//
// One function differs between machines. Its portable form is always there, so that a test compares
// the two; the parser takes the form of the machine that it is built for.
#pragma once

#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace desk {

// Sixteen bytes that are looked at in one step. They are read where fewer may be left: who steps
// must have some behind the end.
using some_bytes = signed char __attribute__((vector_size(16)));

inline some_bytes bytes_at(const char* from) {
  some_bytes bytes{};
  std::memcpy(&bytes, from, sizeof bytes);
  return bytes;
}

constexpr some_bytes each_is(signed char c) {
  return some_bytes{c, c, c, c, c, c, c, c, c, c, c, c, c, c, c, c};
}

// ---- How many stand before the first byte that is marked with ones ------------------------------

struct portable_step {
  static_assert(std::endian::native == std::endian::little,
                "the first byte of a half is looked for among its lowest bits");

  [[gnu::always_inline]] static std::size_t before_marked(some_bytes marks) {
    std::array<std::uint64_t, 2> halves{};
    static_assert(sizeof halves == sizeof marks);
    std::memcpy(halves.data(), &marks, sizeof marks);
    if (halves[0] != 0) return static_cast<std::size_t>(std::countr_zero(halves[0])) / 8;
    if (halves[1] != 0) return 8 + static_cast<std::size_t>(std::countr_zero(halves[1])) / 8;
    return sizeof marks;
  }
};

#ifdef __SSE2__
struct sse2_step {
  // One instruction takes a bit of each byte.
  [[gnu::always_inline]] static std::size_t before_marked(some_bytes marks) {
    const auto bits = static_cast<unsigned>(_mm_movemask_epi8(std::bit_cast<__m128i>(marks)));
    return static_cast<std::size_t>(std::countr_zero(bits | 0x10000U));
  }
};
using usual_step = sse2_step;
#else
using usual_step = portable_step;
#endif

// ---- The steps ----------------------------------------------------------------------------------

// Marks quotes, backslashes, control characters and what is no ASCII, which is below zero.
inline some_bytes odd_of(some_bytes bytes) {
  return (bytes == each_is('"')) | (bytes == each_is('\\')) | (bytes < each_is(' '));
}

// Behind the blanks that begin here, or behind `end`. Some of the bytes behind `end` are read.
template <class step = usual_step>
[[gnu::always_inline]] inline const char* behind_blanks(const char* at, const char* end) {
  while (at < end) {
    const std::size_t blanks = step::before_marked(bytes_at(at) != each_is(' '));
    at += blanks;
    if (blanks != sizeof(some_bytes)) break;
  }
  return at;
}

// The same for the bytes of a text that stand for themselves.
template <class step = usual_step>
[[gnu::always_inline]] inline const char* behind_plain(const char* at, const char* end) {
  while (at < end) {
    const std::size_t plain = step::before_marked(odd_of(bytes_at(at)));
    at += plain;
    if (plain != sizeof(some_bytes)) break;
  }
  return at;
}

}  // namespace desk
