// The tables of a chip in a capture, of which the snapshot keeps no more than the LAGs. They are
// read by the audit's own parsers, so that the report understands of them what the audit does.
//
//   chip_tables chip("recorded", {"0", "1", false});
//   chip.mtu_of_port("0", "10")   // holds "9216"
//   chip.sem_of("111064")         // missing: the table has no such key
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace desk {

struct chip_at {
  std::string node_id;  // as the chips' shell takes it
  std::string npu;
  bool is_jericho2 = false;
  bool counts_across_cores = false;  // the ports, as the chassis of the type "aspen" does
};

struct chip_entry {
  enum class state : std::uint8_t {
    holds,
    missing,   // the table was read and lacks it
    not_read,  // the table is not in the capture, or empty
    not_understood,
    none  // the audit would not look for it
  };
  state is = state::none;
  std::string value;  // if it holds one
};

// What an older chip says of a global LIF.
struct chip_mapping {
  chip_entry lif;  // the local one
  chip_entry vsi;
};

// The key of an object in the older chips' SEM tables, which the audit makes from the VLAN domain
// and the tags.
struct sem_key {
  bool is_by_global_lif = false;  // the chip has to be asked for its LIF instead
  std::string key;                // empty if a tag is no number
};
[[nodiscard]] sem_key sem_key_of(std::string_view domain, const std::vector<std::string>& tags);
[[nodiscard]] std::string sem_key_of_untagged(std::string_view domain);

// Reads each table when it is first asked for. No function throws: a table that cannot
// be read leaves its entries "not read", with a line in `troubles`. Numbers are texts as the
// snapshot has them. The parsers keep their indexes in one place, so no two threads may have such
// tables.
class chip_tables {
 public:
  chip_tables(const std::string& capture, chip_at place);
  ~chip_tables();
  chip_tables(const chip_tables&) = delete;
  chip_tables& operator=(const chip_tables&) = delete;

  // Both families: the VLAN domain of a member, by its core and port.
  [[nodiscard]] chip_entry domain_of_port(const std::string& core, const std::string& port);
  // What the chip keeps of the MAC of a RIF, in hexadecimal digits.
  [[nodiscard]] chip_entry mac_of_rif(const std::string& rif);

  // The older chips: the MTU of a member.
  [[nodiscard]] chip_entry mtu_of_port(const std::string& core, const std::string& port);
  // The local LIF of a key in SEMA or SEMB.
  [[nodiscard]] chip_entry sem_of(const std::string& key);
  [[nodiscard]] chip_mapping mapping_of(const std::string& global_lif);

  // Jericho2: of a LAG on a core, by its id.
  [[nodiscard]] chip_entry mtu_of_lag(const std::string& lag, const std::string& core);
  [[nodiscard]] chip_entry local_lif_of_lag(const std::string& lag, const std::string& core);

  // "vis lag: not in the capture", a line for each table or query that was asked for in vain.
  [[nodiscard]] const std::vector<std::string>& troubles() const;

 private:
  struct content;
  std::unique_ptr<content> of_;
};

}  // namespace desk
