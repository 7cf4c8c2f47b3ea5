#include "lab/capture/redact_addresses.h"

#include <arpa/inet.h>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <optional>

namespace lab {
namespace {

constexpr unsigned low_mac_bits = 10;  // of a MAC, as a chip's table holds them
constexpr std::size_t dotted_mac_size = 14;
constexpr std::size_t paired_mac_size = 17;

bool is_hex(char c) {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

bool is_letter_or_digit(char c) {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

// The characters of an address.
bool is_address_part(char c) {
  return is_hex(c) || c == '.' || c == ':';
}

// The characters of addresses, and of names that contain them.
bool is_word_part(char c) {
  return is_letter_or_digit(c) || c == '.' || c == ':' || c == '-' || c == '_';
}

struct found_mac {
  std::uint64_t mac = 0;
  char separator = '.';
};

// "0026.5e00.0a02", "00:26:5e:00:0a:02" or "00-26-5e-00-0a-02".
std::optional<found_mac> mac_of(std::string_view word) {
  const bool dotted = word.size() == dotted_mac_size;
  if (!dotted && word.size() != paired_mac_size) return std::nullopt;
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

bool is_group_of_digits(std::string_view text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), is_hex);
}

// "mac00:26:5e:00:0a:02" and "8000.0026.5e00.0a02" contain a MAC; "0026.5e00.0a02.00" has more
// groups, so it is something else.
bool is_mac_place(std::string_view word, std::size_t begin, std::size_t end, char separator) {
  std::size_t left = begin;
  while (left > 0 && is_letter_or_digit(word[left - 1])) --left;
  if (is_group_of_digits(word.substr(left, begin - left))) return false;
  if (end == word.size()) return true;
  if (is_letter_or_digit(word[end])) return !is_hex(word[end]);
  std::size_t right = end + 1;
  while (right < word.size() && is_letter_or_digit(word[right])) ++right;
  return word[end] != separator || !is_group_of_digits(word.substr(end + 1, right - end - 1));
}

// The first MAC with one of these separators that begins within the first `most` bytes of a word;
// empty if there is none.
std::string_view mac_in(std::string_view word, std::string_view separators, std::size_t most) {
  for (std::size_t begin = 0; begin < std::min(most, word.size()); ++begin) {
    if (!is_hex(word[begin])) continue;
    for (const std::size_t size : {dotted_mac_size, paired_mac_size}) {
      const std::string_view text = word.substr(begin, size);
      const auto mac = mac_of(text);
      if (mac && separators.find(mac->separator) != std::string_view::npos &&
          is_mac_place(word, begin, begin + text.size(), mac->separator))
        return text;
    }
  }
  return {};
}

// True for a likely address within a name. "a::b" is an IPv6 address, but not likely in "a::b_c".
bool is_likely_address(std::string_view text) {
  if (std::count(text.begin(), text.end(), '.') >= 3 || mac_of(text)) return true;
  return std::count(text.begin(), text.end(), ':') >= 2 && !text.starts_with("::") &&
         std::any_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

// Strips the punctuation of a sentence or heading, but not the end of a network ("2001:db8::").
std::string_view without_ending(std::string_view text) {
  if (!text.ends_with("::"))
    while (!text.empty() && (text.back() == '.' || text.back() == ':')) text.remove_suffix(1);
  return text;
}

// The position of the colon before the last group, 0 if there is one group.
std::size_t begin_of_last_group(std::string_view groups) {
  const std::size_t colon = groups.rfind(':');
  return colon == std::string_view::npos ? 0 : colon;
}

bool may_hold_address(std::string_view word) {
  const auto count = [&](char c) { return std::count(word.begin(), word.end(), c); };
  return count('.') >= 2 || count(':') >= 2 || count('-') >= 5;
}

// The position of the system id in "49.0001.1921.6800.1001.00" or "1921.6800.1001.00": an area, the
// id, which is usually derived from an address of the router, and a selector.
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

bool is_digit(char c) {
  return c >= '0' && c <= '9';
}

// The first address in "host.10.1.1.1", "peer10.1.1.1" or, with a port, "10.1.1.1.179"; empty if
// there is none. A text with more numbers is something else.
std::string_view ipv4_in(std::string_view word) {
  constexpr auto octets = 4;
  for (std::size_t begin = 0; begin < word.size();) {
    if (!is_digit(word[begin])) {
      ++begin;
      continue;
    }
    const std::size_t end = std::min(word.find_first_not_of("0123456789.", begin), word.size());
    const std::string_view run = without_ending(word.substr(begin, end - begin));
    const auto numbers = std::count(run.begin(), run.end(), '.') + 1;
    const std::string_view address = numbers == octets + 1 ? run.substr(0, run.rfind('.')) : run;
    if ((numbers == octets || numbers == octets + 1) && ipv4_of(std::string{address}))
      return address;
    begin = end;
  }
  return {};
}

// "179" in "2001:db8::1.179"; empty if no port follows.
std::string_view port_behind(std::string_view word) {
  const std::size_t dot = word.rfind('.');
  if (dot == std::string_view::npos || word.find(':') == std::string_view::npos) return {};
  const std::string_view port = word.substr(dot + 1);
  return !port.empty() && std::all_of(port.begin(), port.end(), is_digit) ? port
                                                                          : std::string_view{};
}

// Masks and the unspecified address.
bool is_mask(std::uint32_t address) {
  const std::uint32_t first = address >> 24;
  return first == 255 || first == 0;
}

}  // namespace

namespace {

std::string ipv4_for(std::size_t number) {
  return fmt::format("240.{}.{}.{}", number >> 16 & 0xff, number >> 8 & 0xff, number & 0xff);
}

std::string ipv6_for(std::size_t number) {
  return fmt::format("2001:db8::{:x}:{:x}", number >> 16 & 0xffff, number & 0xffff);
}

// Each has a letter: a MAC without letters would hide that two notations differ in case.
std::uint64_t first_mac_for(std::uint64_t number) {
  constexpr std::uint64_t start = std::uint64_t{0x02aa} << 32;
  return start | number << low_mac_bits;
}

std::string dotted(std::uint64_t mac) {
  return fmt::format("{:04x}.{:04x}.{:04x}", mac >> 32 & 0xffff, mac >> 16 & 0xffff, mac & 0xffff);
}

std::string text_of(int family, const void* address) {
  std::array<char, INET6_ADDRSTRLEN> text{};
  inet_ntop(family, address, text.data(), text.size());
  return text.data();
}

}  // namespace

std::vector<address_redactor::replaced_address> address_redactor::all() const {
  std::vector<replaced_address> rows;
  for (const auto& [address, number] : ipv4_) {
    const std::uint32_t in_order = htonl(address);
    rows.push_back({"ipv4", text_of(AF_INET, &in_order), ipv4_for(number + 1)});
  }
  for (const auto& [bytes, number] : ipv6_)
    rows.push_back({"ipv6", text_of(AF_INET6, bytes.data()), ipv6_for(number + 1)});
  for (const auto& [high, number] : macs_)
    rows.push_back({"mac", dotted(high << low_mac_bits), dotted(first_mac_for(number))});
  return rows;
}

std::string address_redactor::mac_for(std::uint64_t mac, bool upper_case, char separator) {
  const std::uint64_t low = mac & ((1U << low_mac_bits) - 1);
  const std::uint64_t number = macs_.try_emplace(mac >> low_mac_bits, macs_.size()).first->second;
  const std::uint64_t replaced = first_mac_for(number) | low;
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
    out += ipv4_for(number);
    return true;
  }
  std::array<unsigned char, 16> bytes{};
  if (word == "::") return false;
  if (inet_pton(AF_INET6, text.c_str(), bytes.data()) != 1)
    return dots >= 3 && colons > 0 && replace_between_colons(word, out);
  const std::string key(bytes.begin(), bytes.end());
  const std::size_t number = ipv6_.try_emplace(key, ipv6_.size()).first->second + 1;
  out += ipv6_for(number);
  return true;
}

// The addresses in "10.1.1.1:8080".
bool address_redactor::replace_between_colons(std::string_view word, std::string& out) {
  while (!word.empty()) {
    const std::size_t end = std::min(word.find(':'), word.size());
    const std::string_view piece = word.substr(0, end);
    if (!replace_likely(piece, true, out)) out.append(piece);
    out.append(word.substr(end, 1));
    word.remove_prefix(std::min(end + 1, word.size()));
  }
  return true;
}

// An address, perhaps followed by punctuation. Within a name it must look more like an address.
bool address_redactor::replace_likely(std::string_view text, bool in_name, std::string& out) {
  const std::string_view address = without_ending(text);
  if ((in_name && !is_likely_address(address)) || !replace(address, out)) return false;
  out.append(text.substr(address.size()));
  return true;
}

// Takes a MAC that begins within the first `most` bytes, and the text before it, off a word.
bool address_redactor::take_mac(std::string_view& word, std::string_view separators,
                                std::size_t most, std::string& out) {
  const std::string_view mac = mac_in(word, separators, most);
  if (mac.empty()) return false;
  const auto begin = static_cast<std::size_t>(mac.data() - word.data());
  out.append(word.substr(0, begin));
  replace(mac, out);
  word.remove_prefix(begin + mac.size());
  return true;
}

// A word without dashes: "10.1.1.1", "peer:2001:db8::1", "mac0026.5e00.0a02".
void address_redactor::add_piece(std::string_view piece, bool in_name, std::string& out) {
  while (!piece.empty()) {
    if (piece.front() == ':' && !piece.starts_with("::")) {
      out += ':';
      piece.remove_prefix(1);
      continue;
    }
    const auto other = std::find_if_not(piece.begin(), piece.end(), is_address_part);
    std::size_t size = static_cast<std::size_t>(other - piece.begin());
    const bool is_whole = size == piece.size();
    // In "2001:db8::1:eth0" the last group is part of a name.
    if (!is_whole) size = begin_of_last_group(piece.substr(0, size));
    const bool is_name = size == 0;
    if (is_name) size = std::min(piece.find(':'), piece.size());
    const std::string_view front = piece.substr(0, size);
    if (!is_name && replace_likely(front, in_name || !is_whole, out)) {
      piece.remove_prefix(size);
    } else if (!take_mac(piece, ".:", size, out)) {
      add_front(front, out);
      piece.remove_prefix(size);
    }
  }
}

// A word that is not an address as a whole may be an address with a port, or a name before one.
void address_redactor::add_front(std::string_view front, std::string& out) {
  const std::string_view port = port_behind(front);
  if (!port.empty() && replace_likely(front.substr(0, front.size() - port.size() - 1), true, out)) {
    out.append(fmt::format(".{}", port));
    return;
  }
  const std::string_view address = ipv4_in(front);
  const auto begin =
      address.empty() ? front.size() : static_cast<std::size_t>(address.data() - front.data());
  out.append(front.substr(0, begin));
  if (!address.empty() && !replace(address, out)) out.append(address);
  out.append(front.substr(std::min(begin + address.size(), front.size())));
}

// The pieces between dashes: the ends of a range, or parts of a name.
void address_redactor::add_pieces(std::string_view word, bool in_name, std::string& out) {
  constexpr std::string_view separators = "-_";
  in_name = in_name || word.find_first_of(separators) != std::string_view::npos;
  while (!word.empty()) {
    const std::size_t end = std::min(word.find_first_of(separators), word.size());
    add_piece(word.substr(0, end), in_name, out);
    out.append(word.substr(end, 1));
    word.remove_prefix(std::min(end + 1, word.size()));
  }
}

void address_redactor::add_word(std::string_view word, std::string& out) {
  if (!may_hold_address(word)) {
    out.append(word);
    return;
  }
  // First the MACs that are written with dashes.
  bool in_name = false;
  for (;;) {
    const std::string_view mac = mac_in(word, "-", word.size());
    if (mac.empty()) break;
    const auto begin = static_cast<std::size_t>(mac.data() - word.data());
    add_pieces(word.substr(0, begin), true, out);
    replace(mac, out);
    word.remove_prefix(begin + mac.size());
    in_name = true;
  }
  add_pieces(word, in_name, out);
}

std::string address_redactor::redacted(std::string_view text) {
  std::string out;
  out.reserve(text.size() + text.size() / 16);
  auto at = text.begin();
  while (at != text.end()) {
    const auto word = std::find_if(at, text.end(), is_word_part);
    const auto end = std::find_if_not(word, text.end(), is_word_part);
    out.append(at, word);
    add_word({word, end}, out);
    at = end;
  }
  return out;
}

}  // namespace lab
