// The SHA-256 of a text that comes in pieces.
#pragma once

#include <nettle/sha2.h>

#include <string>
#include <string_view>

namespace packing {

class sha256 {
 public:
  sha256();
  void add(std::string_view piece);
  // 64 digits. Nothing can be added afterwards.
  [[nodiscard]] std::string digits();

 private:
  sha256_ctx state_{};
};

}  // namespace packing
