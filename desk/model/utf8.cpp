#include "desk/model/utf8.h"

namespace desk {

utf8_character first_character(std::string_view text) {
  const auto lead = static_cast<unsigned char>(text.front());
  if (lead < 0x80) return {true, lead, 1};
  const std::size_t wanted = length_from_lead(text.front());
  std::uint32_t code = lead & (0xffU >> (wanted + 1));
  std::size_t length = 1;
  while (length < wanted && length < text.size() && continues_character(text[length]))
    code = code << 6U | (static_cast<unsigned char>(text[length++]) & 0x3fU);
  constexpr std::uint32_t least[] = {0, 0, 0x80, 0x800, 0x10000};
  const bool is_surrogate = code >= 0xd800 && code <= 0xdfff;
  if (length != wanted || lead < 0xc2 || lead > 0xf4 || code < least[wanted] || code > 0x10ffff ||
      is_surrogate)
    return {false, replacement_code, length};
  return {true, code, length};
}

}  // namespace desk
