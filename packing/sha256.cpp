#include "packing/sha256.h"

#include <array>
#include <cstdint>

namespace packing {

sha256::sha256() {
  sha256_init(&state_);
}

void sha256::add(std::string_view piece) {
  sha256_update(&state_, piece.size(), reinterpret_cast<const std::uint8_t*>(piece.data()));
}

std::string sha256::digits() {
  constexpr std::string_view hexadecimal = "0123456789abcdef";
  std::array<std::uint8_t, SHA256_DIGEST_SIZE> digest{};
  sha256_digest(&state_, digest.size(), digest.data());
  std::string text;
  for (const unsigned byte : digest) {
    text += hexadecimal[byte / 16];
    text += hexadecimal[byte % 16];
  }
  return text;
}

}  // namespace packing
