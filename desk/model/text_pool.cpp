#include "desk/model/text_pool.h"

#include <cstring>
#include <utility>

namespace desk {

namespace {

constexpr std::size_t word_size = sizeof(std::uint64_t);

std::uint64_t word_at(const char* from, std::size_t bytes = word_size) {
  std::uint64_t word = 0;
  std::memcpy(&word, from, bytes);
  return word;
}

constexpr std::uint64_t odd = 0x9e3779b97f4a7c15U;

// A product mixes upwards only, so its upper half is folded back.
std::uint64_t mixed(std::uint64_t sum, std::uint64_t word) {
  sum = (sum ^ word) * odd;
  return sum ^ sum >> 32U;
}

// Nearly all texts are handles, ids and numbers of up to 16 bytes.
std::uint64_t sum_of(std::string_view text) {
  const char* const first = text.data();
  const std::size_t size = text.size();
  constexpr std::size_t half = word_size / 2;
  std::uint64_t sum = size;
  if (size < half) {
    for (const char c : text) sum = sum << 8U | static_cast<unsigned char>(c);
    return sum;
  }
  if (size < word_size)
    return mixed(sum, word_at(first, half) | word_at(first + size - half, half) << 32U);
  std::size_t at = 0;
  for (; at + word_size < size; at += word_size) sum = mixed(sum, word_at(first + at));
  return mixed(sum, word_at(first + size - word_size));
}

std::uint32_t hash_of(std::string_view text) {
  return static_cast<std::uint32_t>(sum_of(text) * odd >> 32U);
}

}  // namespace

inline std::size_t text_pool::slot_of(std::string_view text, std::uint32_t hash) const {
  const std::size_t mask = slots_.size() - 1;
  std::size_t at = hash & mask;
  while (slots_[at].after != 0 &&
         (slots_[at].hash != hash || !same_text(texts_[slots_[at].after - 1], text)))
    at = (at + 1) & mask;
  return at;
}

text_id text_pool::keep(std::string_view text, text_id& last) {
  if (last < followers_.size()) {
    const text_id likely = followers_[last];
    if (same_text(texts_[likely], text)) return last = likely;
  }
  const text_id id = keep(text);
  if (last < followers_.size()) followers_[last] = id;
  return last = id;
}

text_id text_pool::keep(std::string_view text) {
  if (2 * texts_.size() >= slots_.size()) grow();
  const std::uint32_t hash = hash_of(text);
  slot& at = slots_[slot_of(text, hash)];
  if (at.after == 0) {
    texts_.push_back(copied(text));
    followers_.push_back(0);
    at = {hash, static_cast<text_id>(texts_.size())};
  }
  return at.after - 1;
}

std::optional<text_id> text_pool::find(std::string_view text) const {
  if (slots_.empty()) return {};
  const slot& at = slots_[slot_of(text, hash_of(text))];
  return at.after == 0 ? std::nullopt : std::optional(at.after - 1);
}

std::string_view text_pool::copied(std::string_view text) {
  constexpr std::size_t block = std::size_t{64} << 10U;
  if (text.empty()) return {};
  if (text.size() > block / 4) {
    char* const made = blocks_.emplace_back(std::make_unique<char[]>(text.size())).get();
    std::memcpy(made, text.data(), text.size());
    return {made, text.size()};
  }
  if (text.size() > room_) {
    free_ = blocks_.emplace_back(std::make_unique<char[]>(block)).get();
    room_ = block;
  }
  char* const made = free_;
  std::memcpy(made, text.data(), text.size());
  free_ += text.size();
  room_ -= text.size();
  return {made, text.size()};
}

void text_pool::grow() {
  constexpr std::size_t first_size = 1024;
  const std::vector<slot> old = std::move(slots_);
  slots_.assign(old.empty() ? first_size : 2 * old.size(), {});
  const std::size_t mask = slots_.size() - 1;
  for (const slot& one : old) {
    if (one.after == 0) continue;
    std::size_t at = one.hash & mask;
    while (slots_[at].after != 0) at = (at + 1) & mask;
    slots_[at] = one;
  }
}

}  // namespace desk
