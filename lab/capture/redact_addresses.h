// Finds and replaces the addresses in a text, in one scan.
#pragma once

#include <cstddef>
#include <cstdint>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace lab {

class address_redactor {
 public:
  // `kept` are addresses that stay.
  explicit address_redactor(std::set<std::string, std::less<>> kept) : kept_(std::move(kept)) {}

  std::string redacted(std::string_view text);

  struct replaced_address {
    const char* kind;  // "ipv4", "ipv6", "mac"
    std::string original;
    std::string replacement;
  };
  // What it has replaced up to now, in no order. A MAC stands for all that differ in the bits that
  // stay; these are 0.
  std::vector<replaced_address> all() const;

  std::size_t addresses() const { return ipv4_.size() + ipv6_.size(); }
  std::size_t macs() const { return macs_.size(); }

 private:
  // The `replace` functions add a replacement to `out` and return true, or add nothing and return
  // false.
  bool replace(std::string_view word, std::string& out);
  bool replace_between_colons(std::string_view word, std::string& out);
  bool replace_likely(std::string_view text, bool in_name, std::string& out);
  bool take_mac(std::string_view& word, std::string_view separators, std::size_t most,
                std::string& out);
  void add_piece(std::string_view piece, bool in_name, std::string& out);
  void add_front(std::string_view front, std::string& out);
  void add_pieces(std::string_view word, bool in_name, std::string& out);
  void add_word(std::string_view word, std::string& out);
  std::string mac_for(std::uint64_t mac, bool upper_case, char separator);

  std::set<std::string, std::less<>> kept_;
  std::unordered_map<std::uint32_t, std::size_t> ipv4_;
  std::unordered_map<std::string, std::size_t> ipv6_;
  std::unordered_map<std::uint64_t, std::uint64_t> macs_;  // all but the low bits
};

}  // namespace lab
