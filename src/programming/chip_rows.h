// The raw chip tables that are searched for every sub-bundle, node and NPU. Each table is read once
// into an index.
//
//   0  1005   Payload=0x00001234                              sem_table(table).payload_of("1005")
//   IHP_VSI_LOW_CFG_1.IHP0[5]: <A=0,B=1,MY_MAC=0x2bc>         vsi_mac_of(table, "5")
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace tessel {

using raw_table = std::shared_ptr<const std::string>;

// Define one search of a table; the braces take the key, or the RIF in decimal. The key is not
// anchored on the left: it may be the tail of a longer word.
inline constexpr std::string_view sem_definition = R"({}\s+Payload=(\w+))";
inline constexpr std::string_view vsi_definition =
    R"(IHP\w+.IHP0\[{}\]: <\w+=\w+,\w+=\w+.*MY_MAC=0x(\w+))";
inline constexpr std::string_view braced_definition = R"({}\w+\s+Payload=0x\w+{})";

// The patterns that do the search, each in time that grows only with the table. A repeated part
// matches in only one way, and text that other rows may share is only looked at.
//
// A word and its payload, which may itself be the word before the next one.
inline constexpr std::string_view sem_row = R"((?<!\w)(\w++)(?=\s++Payload=(\w++)))";
inline constexpr std::string_view braced_row = R"(\{\}\w++\s++Payload=0x\w++\{\})";
// The payload after a key of fixed length. If no payload follows a run of blanks, the search does
// not start again inside the run.
inline constexpr std::string_view sem_payload = R"((?<={})\s++(?:Payload=(\w++)|(*SKIP)(*FAIL)))";
// The RIF of a row and the first character of its second field's value; the row's MAC comes after
// that. The block's name may be the tail of a word.
inline constexpr std::string_view vsi_head =
    R"((?<!\w)(?>\w*?IHP)\w+.IHP0\[(-?\d++)\](?=: <\w++=\w++,\w++=(\w)))";
inline constexpr std::string_view vsi_mac = R"(MY_MAC=0x(?=(\w++)))";

class sem_rows;

// One of a chip's two tables of keys and payloads, for many look-ups.
enum class sem_name : std::uint8_t { a, b };

// The functions throw `failure` if the table cannot be searched. Copies share the index of the
// table, which any number of threads may use; the object itself remembers where that is, so each
// thread needs its own.
class sem_table {
 public:
  explicit sem_table(raw_table table) : table_(std::move(table)) {}

  // The payload in the first row of `key`, as printed; nothing if there is no such row. A key with
  // more than plain characters and points costs as much as its pattern, but no run has such a key.
  std::optional<std::string_view> payload_of(std::string_view key) const;
  // True if the table has a row in braces. Only such a row can match a search for a given LIF,
  // because its pattern keeps the braces as literal characters.
  bool has_braced_row() const;

 private:
  const sem_rows& rows() const;

  raw_table table_;
  mutable std::shared_ptr<const sem_rows> rows_;
};

// The field MY_MAC, in hexadecimal digits, of the first row of `rif` (decimal text); nothing if
// there is no such row. Throws `failure` if the table cannot be searched. Any thread.
std::optional<std::string> vsi_mac_of(const raw_table& table, std::string_view rif);

}  // namespace tessel
