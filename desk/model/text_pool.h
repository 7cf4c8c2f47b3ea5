// Texts that are kept once, however often they come.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

namespace desk {

using text_id = std::uint32_t;

// Whether the first and the last `Word` of two texts of this size are equal.
template <class Word>
[[nodiscard, gnu::always_inline]] inline bool same_ends(const char* a, const char* b,
                                                        std::size_t size) {
  std::array<Word, 4> ends{};
  std::memcpy(&ends[0], a, sizeof(Word));
  std::memcpy(&ends[1], b, sizeof(Word));
  std::memcpy(&ends[2], a + size - sizeof(Word), sizeof(Word));
  std::memcpy(&ends[3], b + size - sizeof(Word), sizeof(Word));
  return ((ends[0] ^ ends[1]) | (ends[2] ^ ends[3])) == 0;
}

// Whether two texts are equal; for those of up to 16 bytes without a call.
[[nodiscard, gnu::always_inline]] inline bool same_text(std::string_view a, std::string_view b) {
  const std::size_t size = a.size();
  if (size != b.size()) return false;
  if (size > 2 * sizeof(std::uint64_t)) return a == b;
  if (size >= sizeof(std::uint64_t)) return same_ends<std::uint64_t>(a.data(), b.data(), size);
  if (size >= sizeof(std::uint32_t)) return same_ends<std::uint32_t>(a.data(), b.data(), size);
  if (size >= sizeof(std::uint16_t)) return same_ends<std::uint16_t>(a.data(), b.data(), size);
  return size == 0 || a.front() == b.front();
}

// Numbers the texts from 0, in the order in which each came first. Not for two threads.
class text_pool {
 public:
  text_id keep(std::string_view text);
  // The same for the texts of one column, whose last one is `last`. A text that follows the same
  // one as before is found at once: the tables of all nodes and chips name the same objects in the
  // same order.
  text_id keep(std::string_view text, text_id& last);
  [[nodiscard]] std::optional<text_id> find(std::string_view text) const;
  // Lasts as long as the pool.
  [[nodiscard]] std::string_view text(text_id id) const { return texts_[id]; }
  [[nodiscard]] std::size_t size() const { return texts_.size(); }

 private:
  struct slot {
    std::uint32_t hash = 0;
    text_id after = 0;  // the number of the text and 1; 0: the slot is free
  };

  // The slot of a text, or the free one where it belongs.
  [[nodiscard]] std::size_t slot_of(std::string_view text, std::uint32_t hash) const;
  [[nodiscard]] std::string_view copied(std::string_view text);
  void grow();

  std::vector<std::string_view> texts_;
  std::vector<text_id> followers_;  // of each text, the one that followed it last in a column
  std::vector<slot> slots_;         // a power of two, at most half of them taken
  std::vector<std::unique_ptr<char[]>> blocks_;
  char* free_ = nullptr;  // in the newest block of many texts
  std::size_t room_ = 0;
};

}  // namespace desk
