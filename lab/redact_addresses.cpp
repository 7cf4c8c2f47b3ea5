#include "redact_addresses.h"

#include <arpa/inet.h>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <optional>

namespace lab {
namespace {

constexpr unsigned low_mac_bits = 10;  // of a MAC, that a chip's table is compared by

bool is_hex(char c) {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

// What an address consists of, and what may not stand right beside one.
bool is_address_part(char c) {
  return is_hex(c) || c == '.' || c == ':';
}
bool is_word_part(char c) {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' ||
         c == '-';
}

struct found_mac {
  std::uint64_t mac = 0;
  char separator = '.';
};

// "0026.5e00.0a02", "00:26:5e:00:0a:02" or "00-26-5e-00-0a-02".
std::optional<found_mac> mac_of(std::string_view word) {
  const bool dotted = word.size() == 14;
  if (!dotted && word.size() != 17) return std::nullopt;
  const std::size_t group = dotted ? 4 : 2;
  const char separator = dotted ? '.' : word[2];
  if (!dotted && separator != ':' && separator != '-') return std::nullopt;
  std::uint64_t mac = 0;
  for (std::size_t i = 0; i < word.size(); ++i) {
    const char c = word[i];
    if (i % (group + 1) == group) {
      if (c != separator) return std::nullopt;
      continue;
    }
    if (!is_hex(c)) return std::nullopt;
    const unsigned digit =
        c <= '9' ? static_cast<unsigned>(c - '0') : static_cast<unsigned>((c | 0x20) - 'a') + 10;
    mac = mac << 4 | digit;
  }
  return found_mac{mac, separator};
}

// Where the system's id begins in "49.0001.1921.6800.1001.00", or in "1921.6800.1001.00": an area,
// the id, which is made of an address of the router mostly, and a selector.
std::optional<std::size_t> system_id_in(std::string_view word) {
  constexpr std::size_t tail = sizeof("1921.6800.1001.00") - 1;
  if (word.size() < tail) return std::nullopt;
  const std::size_t begin = word.size() - tail;
  for (std::size_t i = 0; i < word.size(); ++i) {
    const bool is_dot = i < begin ? (begin - i) % 5 == 1 : (i - begin) % 5 == 4;
    if (is_dot ? word[i] != '.' : !is_hex(word[i])) return std::nullopt;
  }
  // The area's first group has two digits.
  if (begin > 0 && begin % 5 != 3) return std::nullopt;
  return begin;
}

std::optional<std::uint32_t> ipv4_of(const std::string& word) {
  in_addr address{};
  if (inet_pton(AF_INET, word.c_str(), &address) != 1) return std::nullopt;
  return ntohl(address.s_addr);
}

// Masks, and the address of nobody.
bool is_mask(std::uint32_t address) {
  const std::uint32_t first = address >> 24;
  return first == 255 || first == 0;
}

}  // namespace

// Half of all MACs have no letter, which would hide that two of them differ in case: each new one
// has letters.
std::string address_redactor::mac_for(std::uint64_t mac, bool upper_case, char separator) {
  constexpr std::uint64_t start = std::uint64_t{0x02aa} << 32;
  const std::uint64_t low = mac & ((1U << low_mac_bits) - 1);
  const std::uint64_t number = macs_.try_emplace(mac >> low_mac_bits, macs_.size()).first->second;
  const std::uint64_t replaced = start | number << low_mac_bits | low;
  const std::string digits =
      upper_case ? fmt::format("{:012X}", replaced) : fmt::format("{:012x}", replaced);
  const std::size_t group = separator == '.' ? 4 : 2;
  std::string text;
  for (std::size_t i = 0; i < digits.size(); ++i) {
    if (i > 0 && i % group == 0) text += separator;
    text += digits[i];
  }
  return text;
}

bool address_redactor::replace(std::string_view word, std::string& out) {
  const auto dots = std::count(word.begin(), word.end(), '.');
  const auto colons = std::count(word.begin(), word.end(), ':');
  if (const auto found = mac_of(word)) {
    const bool upper_case =
        std::any_of(word.begin(), word.end(), [](char c) { return c >= 'A' && c <= 'F'; });
    out += mac_for(found->mac, upper_case, found->separator);
    return true;
  }
  if (dots + colons < 2 || kept_.contains(word)) return false;
  if (const auto begin = system_id_in(word)) {
    out.append(word.substr(0, *begin));
    replace(word.substr(*begin, 14), out);
    out.append(word.substr(*begin + 14));
    return true;
  }
  const std::string text{word};
  if (dots == 3 && colons == 0) {
    const auto address = ipv4_of(text);
    if (!address || is_mask(*address)) return false;
    const std::size_t number = ipv4_.try_emplace(*address, ipv4_.size()).first->second + 1;
    out += fmt::format("240.{}.{}.{}", number >> 16 & 0xff, number >> 8 & 0xff, number & 0xff);
    return true;
  }
  std::array<unsigned char, 16> bytes{};
  if (word == "::") return false;
  if (inet_pton(AF_INET6, text.c_str(), bytes.data()) != 1)
    return dots >= 3 && colons > 0 && replace_pieces(word, ":", out);
  const std::string key(bytes.begin(), bytes.end());
  const std::size_t number = ipv6_.try_emplace(key, ipv6_.size()).first->second + 1;
  out += fmt::format("2001:db8::{:x}:{:x}", number >> 16 & 0xffff, number & 0xffff);
  return true;
}

// A word that is no address may be a MAC with dashes, or hold addresses between them.
void address_redactor::replace_within(std::string_view word, std::string& out) {
  const std::string_view ending = word.substr(word.find_last_not_of('.') + 1);
  const std::string_view mac = word.substr(0, word.size() - ending.size());
  if (mac_of(mac) && replace(mac, out))
    out.append(ending);
  else
    replace_pieces(word, "-_", out);
}

// The addresses in "10.1.1.1:8080" or "10.1.1.1-10.1.1.9".
bool address_redactor::replace_pieces(std::string_view word, std::string_view separators,
                                      std::string& out) {
  while (!word.empty()) {
    const std::size_t end = std::min(word.find_first_of(separators), word.size());
    std::string_view piece = word.substr(0, end);
    while (piece.ends_with('.')) piece.remove_suffix(1);
    // "a::b_c" is no IPv6 address with a suffix.
    const bool is_likely = std::count(piece.begin(), piece.end(), '.') >= 3 || mac_of(piece);
    if (!is_likely || !replace(piece, out)) out.append(piece);
    out.append(word.substr(piece.size(), std::min(end + 1, word.size()) - piece.size()));
    word.remove_prefix(std::min(end + 1, word.size()));
  }
  return true;
}

std::string address_redactor::redacted(std::string_view text) {
  std::string out;
  out.reserve(text.size() + text.size() / 16);
  std::size_t at = 0;
  while (at < text.size()) {
    if (text[at] == ':' && !text.substr(at + 1).starts_with(':')) {  // "peer:10.1.1.1"
      out += text[at++];
      continue;
    }
    std::size_t end = at;
    while (end < text.size() && is_address_part(text[end])) ++end;
    if (end == at || (end < text.size() && is_word_part(text[end]))) {
      // No address as a whole.
      while (end < text.size() && (is_word_part(text[end]) || text[end] == '.')) ++end;
      end = std::max(end, at + 1);
      replace_within(text.substr(at, end - at), out);
    } else {
      std::string_view word = text.substr(at, end - at);
      // The end of a sentence or of a heading, but not of a network ("2001:db8::").
      if (!word.ends_with("::"))
        while (!word.empty() && (word.back() == '.' || word.back() == ':')) word.remove_suffix(1);
      if (!replace(word, out)) out.append(word);
      out.append(text.substr(at + word.size(), end - at - word.size()));
    }
    at = end;
  }
  return out;
}

}  // namespace lab
