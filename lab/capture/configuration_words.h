// The words of a configuration's line, and what some of them mean.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <string_view>
#include <vector>

namespace lab {

struct word_place {
  std::size_t begin = 0;
  std::size_t size = 0;
};

std::vector<word_place> words_in(std::string_view line);

// Where the text that begins with this word ends: with it, or with the word that closes its quotes.
// What no word closes ends with the line.
std::size_t last_word_of_text(std::string_view line, const std::vector<word_place>& words,
                              std::size_t first);

// The words, a text in quotes as one.
std::vector<std::string_view> texts_in(std::string_view line);

template <std::size_t Size>
bool among(const std::array<std::string_view, Size>& list, std::string_view word) {
  return std::find(list.begin(), list.end(), word) != list.end();
}

// Behind these stands a user's text, which holds no commands.
constexpr std::array<std::string_view, 3> text_words{"description", "remark", "alias"};

// What the holder of an SNMP community may do, and by which protocol.
constexpr std::array<std::string_view, 7> rights{"RO",          "RW",      "ro",      "rw",
                                                 "SystemOwner", "LROwner", "SDROwner"};
constexpr std::array<std::string_view, 4> ip_words{"ipv4", "ipv6", "IPv4", "IPv6"};

}  // namespace lab
