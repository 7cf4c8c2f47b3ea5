#include "desk/read/chip_tables.h"

#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <filesystem>
#include <map>
#include <optional>
#include <system_error>
#include <utility>

#include "lab/base/files.h"
#include "lab/base/place.h"
#include "lab/capture/answer_list.h"
#include "lab/capture/file_names.h"
#include "src/base/dump.h"
#include "src/base/numbers.h"
#include "src/base/text.h"
#include "src/base/value.h"
#include "src/parse/hardware_tables.h"
#include "src/parse/vlan_domain_rows.h"
#include "src/platform/port_numbers.h"
#include "src/programming/chip_rows.h"
#include "src/programming/lif_map.h"
#include "src/programming/sem_keys.h"
#include "src/run/state.h"

namespace desk {

namespace {

namespace fs = std::filesystem;
using tessel::value;
using state = chip_entry::state;

// ---- What the audit asks ------------------------------------------------------------------------

// A table, and which lines of it the audit lets pass: it reads the chips' shell through grep.
struct table_of_chip {
  std::string_view command;
  value (*parse)(const value& output);
  std::string_view left_out{};  // lines with these words
  std::string_view wanted{};    // only lines with both words
  std::string_view also{};
  bool may_be_empty = false;
};

value as_it_is(const value& output) {
  return output;
}

constexpr table_of_chip port_domains = {"d IHP_VTT_IN_PP_PORT_CONFIG", as_it_is, "VLAN_DOMAIN=0,"};
constexpr table_of_chip sem_a = {"diag dbal dbd 3", as_it_is, "Payload=0x00000000"};
constexpr table_of_chip sem_b = {"diag dbal dbd 4", as_it_is, "Payload=0x00000000"};
constexpr table_of_chip vsi_rows = {"d IHP_VSI_LOW_CFG_1", as_it_is, "", "IHP0", "MY_MAC=0x"};
constexpr table_of_chip port_mtus = {"dump EPNI_PACKETPROCESSING_PORT_CONFIGURATION_TABLE",
                                     tessel::parse_member_mtu};
constexpr table_of_chip port_domains_j2 = {"dbal table dump table=INGRESS_PP_PORT",
                                           tessel::parse_vlan_domain_j2};
constexpr table_of_chip lag_ports = {"vis lag", tessel::parse_bdl_pp_port};
constexpr table_of_chip local_lifs = {"dbal table dump table=IN_AC_UNTAGGED_DB",
                                      tessel::parse_lif_entries};
constexpr table_of_chip vsi_macs = {"dbal table dump table=ING_VSI_INFO_DB",
                                    tessel::parse_bdl_vsi_mac};
// An empty one lists no port with an MTU of its own; then the audit compares none.
constexpr table_of_chip port_profiles = {
    "dump ETPPC_EDITING_PER_PORT_TABLE ", tessel::get_mtu_profile, "", "", "", true};
constexpr table_of_chip profile_mtus = {"dump chg ETPPC_MTU_MAP_TABLE", tessel::parse_mtu_profiles};

std::string filtered(std::string text, const table_of_chip& of) {
  if (of.left_out.empty() && of.wanted.empty()) return text;
  std::string kept;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = std::min(text.find('\n', at), text.size());
    const std::string_view line(text.data() + at, end - at);
    const bool is_kept = of.wanted.empty()
                             ? line.find(of.left_out) == line.npos
                             : line.find(of.wanted) != line.npos && line.find(of.also) != line.npos;
    if (is_kept) kept.append(line).append(1, '\n');
    at = end + 1;
  }
  return kept;
}

// ---- The capture --------------------------------------------------------------------------------

// A command that a recorded run asked several times, or that failed, has a list of answers; the
// tables of a chip are asked for once.
std::optional<std::string> first_answer(const std::string& file) {
  const std::string list = file + std::string(lab::list_suffix);
  std::error_code error;
  if (!fs::exists(list, error)) return {};
  const auto answers = lab::parse_answer_list(lab::read_own(list), list);
  if (answers.empty()) return {};
  return lab::read_own(lab::numbered_file(file, answers.front().number));
}

// What the tool printed; nothing if it is not there. Throws `lab_error`.
std::optional<std::string> answer_in(const std::string& capture, std::string_view command,
                                     const chip_at& place) {
  const std::string name = lab::file_name(
      "asic_shell_show", {"-c", std::string(command), "-u", place.npu, "-n", place.node_id});
  const std::string folder = capture + "/" + std::string(lab::local_place) + "/";
  std::error_code error;
  if (fs::exists(folder + name, error)) return lab::read_own(folder + name);
  if (auto listed = first_answer(folder + name)) return listed;
  const std::string shared = folder + lab::shared_file_name(name);
  if (fs::exists(shared, error)) return lab::read_own(shared);
  return {};
}

// The parsers keep what they have indexed in the state of a run.
tessel::run_state& state_for_parsers() {
  static tessel::run_state& made = tessel::new_state();
  return made;
}

chip_entry holding(std::string text) {
  return {state::holds, std::move(text)};
}

// The entry of a map; nothing if there is none.
const value* look_up(const value& map, std::string_view key) {
  return map.as_map().look_up(key);
}

// The same of a map of maps.
const value* under(const value& map, std::string_view first, std::string_view second) {
  const value* inner = look_up(map, first);
  return inner == nullptr ? nullptr : look_up(*inner, second);
}

}  // namespace

struct chip_tables::content {
  std::string capture;
  chip_at place;
  std::map<std::string_view, std::optional<value>> tables{};  // by command
  std::vector<std::string> troubles{};

  void note(std::string_view command, std::string_view why) {
    troubles.push_back(fmt::format("{}: {}", tessel::strip(command), why));
  }

  std::optional<value> read(const table_of_chip& of) {
    try {
      std::optional<std::string> text = answer_in(capture, of.command, place);
      if (!text) {
        note(of.command, "not in the capture");
        return {};
      }
      if (tessel::strip(*text).empty() && !of.may_be_empty) {
        note(of.command, "empty in the capture");
        return {};
      }
      return of.parse(value(std::make_shared<const std::string>(filtered(std::move(*text), of))));
    } catch (const std::exception& error) {
      note(of.command, error.what());
      return {};
    }
  }

  const std::optional<value>& table(const table_of_chip& of) {
    const auto [at, is_new] = tables.try_emplace(of.command);
    if (is_new) at->second = read(of);
    return at->second;
  }

  // Calls `look` with the table. What it throws is about the entry: the audit has a message for it.
  template <class Look>
  chip_entry in(const table_of_chip& of, Look look) {
    const std::optional<value>& found = table(of);
    if (!found) return {state::not_read, {}};
    try {
      return look(*found);
    } catch (const std::exception&) {
      return {state::not_understood, {}};
    }
  }

  // The entry under two keys of a map of maps.
  chip_entry in(const table_of_chip& of, std::string_view first, std::string_view second) {
    return in(of, [&](const value& table) -> chip_entry {
      const value* entry = under(table, first, second);
      return entry == nullptr ? chip_entry{state::missing, {}} : holding(tessel::plain(*entry));
    });
  }

  std::string row_of(const std::string& core, const std::string& port) const {
    return place.counts_across_cores ? tessel::port_on_core(port, core) : port;
  }
};

sem_key sem_key_of(std::string_view domain, const std::vector<std::string>& tags) {
  try {
    const std::string_view vd = tessel::strip_set(domain, "0x");
    const tessel::value_list list(tags.begin(), tags.end());
    switch (tessel::way_to_entries(list)) {
      case tessel::found_by::one_tag:
        return {false, tessel::one_tag_key(vd, tessel::to_decimal(list[0]))};
      case tessel::found_by::two_tags: {
        const std::int64_t outer = tessel::to_decimal(list[0]);
        std::int64_t doubled = 0;
        if (__builtin_mul_overflow(outer, 2, &doubled)) return {};
        return {false, tessel::two_tag_key_of(vd, outer, doubled)};
      }
      case tessel::found_by::global_lif:
        break;
    }
    return {true, {}};
  } catch (const std::exception&) {
    return {};  // a tag that is no number, of which the audit says so
  }
}

std::string sem_key_of_untagged(std::string_view domain) {
  return tessel::untagged_key(tessel::strip_set(domain, "0x"));
}

chip_tables::chip_tables(const std::string& capture, chip_at place)
    : of_(std::make_unique<content>(content{capture, std::move(place)})) {
  state_for_parsers().router = of_->place.counts_across_cores ? tessel::aspen : tessel::notset;
}

chip_tables::~chip_tables() {
  state_for_parsers().indexes.clear();
}

const std::vector<std::string>& chip_tables::troubles() const {
  return of_->troubles;
}

chip_entry chip_tables::mtu_of_port(const std::string& core, const std::string& port) {
  return of_->in(port_mtus, [&](const value& table) -> chip_entry {
    const value* mtu = under(table, core, of_->row_of(core, port));
    return mtu == nullptr ? chip_entry{state::missing, {}} : holding(tessel::plain(*mtu));
  });
}

chip_entry chip_tables::domain_of_port(const std::string& core, const std::string& port) {
  if (of_->place.is_jericho2) {
    return of_->in(port_domains_j2, [&](const value& table) -> chip_entry {
      const value* domain = under(table, core, port);
      return domain == nullptr ? chip_entry{state::missing, {}}
                               : holding(tessel::convert_to_hex(*domain));
    });
  }
  return of_->in(port_domains, [&](const value& table) -> chip_entry {
    const auto found =
        tessel::vlan_domain_of(table.as_shared_text(), core, tessel::port_on_core(port, core));
    return found ? holding(tessel::convert_to_hex(*found)) : chip_entry{state::missing, {}};
  });
}

chip_entry chip_tables::sem_of(const std::string& key) {
  const auto look = [&](const value& table) -> chip_entry {
    const tessel::sem_table rows(table.as_shared_text());
    const auto payload = rows.payload_of(key);
    return payload ? holding(tessel::convert_to_hex(*payload)) : chip_entry{state::missing, {}};
  };
  chip_entry first = of_->in(sem_a, look);
  if (first.is == state::holds) return first;
  const chip_entry second = of_->in(sem_b, look);
  // What one table lacks may be in the other one.
  return second.is == state::holds || first.is == state::missing ? second : first;
}

chip_mapping chip_tables::mapping_of(const std::string& global_lif) {
  const std::string digits(tessel::glif_tail(global_lif));
  const std::string command = fmt::format("diag pp lif id=0x{} gl=1 type=in", digits);
  const table_of_chip answer = {command, as_it_is};
  const auto text = of_->read(answer);
  if (!text) return {{state::not_read, {}}, {state::not_read, {}}};
  try {
    const tessel::matches found = tessel::lif_mappings_of(text->as_text(), digits);
    if (found.empty()) return {{state::missing, {}}, {}};
    const auto number = [](std::string_view printed) -> chip_entry {
      try {
        return holding(tessel::convert_to_hex(printed));
      } catch (const std::exception&) {
        return {state::not_understood, {}};
      }
    };
    return {number(found[0][0]), number(found[0][1])};
  } catch (const std::exception&) {
    return {{state::not_understood, {}}, {}};
  }
}

chip_entry chip_tables::mtu_of_lag(const std::string& lag, const std::string& core) {
  chip_entry profiles = of_->in(port_profiles, [](const value& table) -> chip_entry {
    return {table.as_map().empty() ? state::none : state::holds, {}};
  });
  if (profiles.is != state::holds) return profiles;
  chip_entry port = of_->in(lag_ports, tessel::plain(tessel::convert_hex_to_int(lag)), core);
  if (port.is != state::holds) return port;
  chip_entry profile = of_->in(port_profiles, core, port.value);
  if (profile.is != state::holds) return profile;
  return of_->in(profile_mtus, core, profile.value);
}

chip_entry chip_tables::local_lif_of_lag(const std::string& lag, const std::string& core) {
  chip_entry port = of_->in(lag_ports, tessel::plain(tessel::convert_hex_to_int(lag)), core);
  if (port.is != state::holds) return port;
  return of_->in(local_lifs, [&](const value& table) -> chip_entry {
    const value* lif = look_up(table, port.value);
    return lif == nullptr ? chip_entry{state::missing, {}} : holding(tessel::convert_to_hex(*lif));
  });
}

chip_entry chip_tables::mac_of_rif(const std::string& rif) {
  if (of_->place.is_jericho2)
    return of_->in(vsi_macs, [&](const value& table) -> chip_entry {
      const value* row = look_up(table, tessel::plain(tessel::convert_hex_to_int(rif)));
      const std::int64_t mac = row == nullptr ? 0 : tessel::to_decimal(*row);
      return mac == 0 ? chip_entry{state::missing, {}} : holding(fmt::format("{:x}", mac));
    });
  return of_->in(vsi_rows, [&](const value& table) -> chip_entry {
    const auto mac =
        tessel::vsi_mac_of(table.as_shared_text(), std::to_string(tessel::to_integer(rif)));
    return mac ? holding(*mac) : chip_entry{state::missing, {}};
  });
}

}  // namespace desk
