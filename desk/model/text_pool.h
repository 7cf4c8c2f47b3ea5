// Texts that are kept once, however often they come.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

namespace desk {

using text_id = std::uint32_t;

// Whether two texts are equal; for those of up to 16 bytes without a call.
[[nodiscard]] inline bool same_text(std::string_view a, std::string_view b) {
  const std::size_t size = a.size();
  if (size != b.size()) return false;
  const auto differ = [&]<class Word>(Word first, Word last) {
    Word other_first = 0;
    Word other_last = 0;
    std::memcpy(&first, a.data(), sizeof first);
    std::memcpy(&last, a.data() + size - sizeof last, sizeof last);
    std::memcpy(&other_first, b.data(), sizeof first);
    std::memcpy(&other_last, b.data() + size - sizeof last, sizeof last);
    return ((first ^ other_first) | (last ^ other_last)) != 0;
  };
  if (size > 2 * sizeof(std::uint64_t)) return a == b;
  if (size >= sizeof(std::uint64_t)) return !differ(std::uint64_t{}, std::uint64_t{});
  if (size >= sizeof(std::uint32_t)) return !differ(std::uint32_t{}, std::uint32_t{});
  for (std::size_t i = 0; i < size; ++i)
    if (a[i] != b[i]) return false;
  return true;
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
