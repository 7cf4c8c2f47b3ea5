#include "lab/describe/description.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <set>
#include <string>
#include <utility>

#include "lab/base/error.h"
#include "lab/base/files.h"
#include "lab/base/parse_toml.h"
#include "lab/capture/capture.h"
#include "lab/faults/faults.h"
#include "lab/model/limits.h"

namespace lab {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t most_bases = 8;

// A table and the keys that were read from it, so that unknown keys can be reported.
struct section {
  const toml::table& table;
  std::string file;
  std::string what;  // "[[bundle]]"
  std::set<std::string> known;
};

[[noreturn]] void refuse(const section& s, const toml::node& at, const std::string& what) {
  throw lab_error(fmt::format("{}:{}: {}: {}", s.file, at.source().begin.line, s.what, what));
}

std::string place_of(const section& s) {
  return fmt::format("{}:{}", s.file, s.table.source().begin.line);
}

const toml::node* take(section& s, std::string_view key) {
  s.known.emplace(key);
  return s.table.get(key);
}

void read(section& s, std::string_view key, std::string& value) {
  const toml::node* found = take(s, key);
  if (found == nullptr) return;
  if (!found->is_string()) refuse(s, *found, fmt::format("{} is not a text", key));
  value = *found->value<std::string>();
}

void read(section& s, std::string_view key, bool& value) {
  const toml::node* found = take(s, key);
  if (found == nullptr) return;
  if (!found->is_boolean()) refuse(s, *found, fmt::format("{} is neither true nor false", key));
  value = *found->value<bool>();
}

template <typename Number>
requires std::is_unsigned_v<Number>
void read(section& s, std::string_view key, Number& value) {
  const toml::node* found = take(s, key);
  if (found == nullptr) return;
  const auto number = found->is_integer() ? found->value<std::int64_t>() : std::nullopt;
  if (!number || *number < 0 || std::cmp_greater(*number, std::numeric_limits<Number>::max()))
    refuse(s, *found,
           fmt::format("{} is not a number from 0 to {}", key, std::numeric_limits<Number>::max()));
  value = static_cast<Number>(*number);
}

void read(section& s, std::string_view key, std::vector<std::string>& values) {
  const toml::node* found = take(s, key);
  if (found == nullptr) return;
  const toml::array* list = found->as_array();
  if (list == nullptr) refuse(s, *found, fmt::format("{} is not a list of texts", key));
  for (const toml::node& entry : *list) {
    if (!entry.is_string()) refuse(s, entry, fmt::format("{} is not a list of texts", key));
    values.push_back(*entry.value<std::string>());
  }
}

// The value that identifies an entry in its list; empty if there is none.
std::string identity_of(const toml::table& table, std::string_view key) {
  const toml::node* found = table.get(key);
  if (found == nullptr) return {};
  if (const auto text = found->value_exact<std::string>()) return *text;
  const auto number = found->value_exact<std::int64_t>();
  return number ? std::to_string(*number) : std::string{};
}

// Calls `job` with a section for each table of a list of tables. No two tables of one file may have
// the same `identity`: the second would silently change the first.
template <typename Job>
void each(section& s, std::string_view key, const std::string& what, std::string_view identity,
          Job job) {
  std::set<std::string> seen;
  const toml::node* found = take(s, key);
  if (found == nullptr) return;
  const toml::array* list = found->as_array();
  if (list == nullptr) refuse(s, *found, fmt::format("{} is not a list of tables", key));
  for (const toml::node& entry : *list) {
    const toml::table* table = entry.as_table();
    if (table == nullptr) refuse(s, entry, fmt::format("{} is not a list of tables", key));
    section inner{*table, s.file, what, {}};
    const std::string name_of_entry = identity_of(*table, identity);
    if (!name_of_entry.empty() && !seen.insert(name_of_entry).second)
      refuse(inner, *table, fmt::format("{} {} appears twice", identity, name_of_entry));
    job(inner);
    for (const auto& [name, value] : *table)
      if (!inner.known.contains(std::string{name.str()}))
        refuse(inner, value, fmt::format("unknown key \"{}\"", name.str()));
  }
}

template <typename Number>
Number required_number(section& s, std::string_view key) {
  Number value{};
  if (s.table.get(key) == nullptr) refuse(s, s.table, fmt::format("{} is missing", key));
  read(s, key, value);
  return value;
}

std::string required_text(section& s, std::string_view key) {
  std::string value;
  if (s.table.get(key) == nullptr) refuse(s, s.table, fmt::format("{} is missing", key));
  read(s, key, value);
  return value;
}

template <typename Entry, typename Same>
Entry& entry_of(std::vector<Entry>& list, Same same) {
  const auto found = std::find_if(list.begin(), list.end(), same);
  return found == list.end() ? list.emplace_back() : *found;
}

void read_choice(section& s, std::string_view key, std::string& value,
                 const std::vector<std::string_view>& choices) {
  read(s, key, value);
  const toml::node* found = s.table.get(key);
  if (found != nullptr && std::find(choices.begin(), choices.end(), value) == choices.end())
    refuse(s, *found,
           fmt::format("{} is \"{}\", not one of {}", key, value, fmt::join(choices, ", ")));
}

void read_layer(section& s, bool& l2) {
  std::string kind = l2 ? "l2" : "l3";
  read_choice(s, "kind", kind, {"l2", "l3"});
  l2 = kind == "l2";
}

// The key's place; that of its table if a base has given the value.
const toml::node& table_or(const section& s, std::string_view key) {
  const toml::node* found = s.table.get(key);
  return found == nullptr ? s.table : *found;
}

// As the platform's listing of chips has it.
bool is_chip_name(std::string_view name) {
  constexpr std::string_view maker = "BCM";
  constexpr std::size_t digits = 5;
  return name.starts_with(maker) && name.size() == maker.size() + digits &&
         name.find_first_not_of("0123456789", maker.size()) == std::string_view::npos;
}

void read_node(section& s, router& r) {
  const std::string name = required_text(s, "name");
  node& n = entry_of(r.nodes, [&](const node& other) { return other.name == name; });
  n.name = name;
  n.written = place_of(s);
  if (name.find("RP") != std::string::npos || name.find("CB") != std::string::npos) n.kind = "RP";
  read_choice(s, "kind", n.kind, {"RP", "LC"});
  read_choice(s, "state", n.state, {"ACTIVE", "STANDBY"});
  read(s, "band", n.band);
  read(s, "address", n.address);
  read(s, "card", n.card);
  read(s, "id", n.id);
  read(s, "chip", n.chip);
  if (!n.chip.empty() && !is_chip_name(n.chip))
    refuse(s, table_or(s, "chip"),
           fmt::format("chip \"{}\" is not BCM and five digits, such as BCM88680", n.chip));
  read(s, "npus", n.npus);
  if (!n.chip.empty() && n.npus == 0 && s.table.contains("npus"))
    refuse(s, table_or(s, "npus"),
           fmt::format("npus is 0, but a node with a chip has 1 to {}; leave both out for a node "
                       "without a chip",
                       most_npus));
  read(s, "cores", n.cores);
  read(s, "ports", n.ports);
  read(s, "in_unit_list", n.in_unit_list);
  read(s, "forwarding", n.forwarding);
}

void read_member(section& s, bundle& b) {
  const std::string port = required_text(s, "port");
  member& m = entry_of(b.members, [&](const member& other) { return other.port == port; });
  m.port = port;
  m.written = place_of(s);
  read(s, "node", m.node);
  read(s, "npu", m.npu);
  read(s, "core", m.core);
  read(s, "pp_port", m.pp_port);
  read(s, "handle", m.handle);
  read(s, "system_port", m.system_port);
  read(s, "weight", m.weight);
  read(s, "mtu", m.mtu);
  read(s, "description", m.description);
  read(s, "up", m.up);
}

void read_sub(section& s, bundle& b) {
  const auto number = required_number<unsigned>(s, "number");
  sub_bundle& sub = entry_of(b.subs, [&](const sub_bundle& o) { return o.number == number; });
  sub.number = number;
  sub.written = place_of(s);
  read_layer(s, sub.l2);
  read(s, "encapsulation", sub.encapsulation);
  read(s, "description", sub.description);
  read(s, "handle", sub.handle);
  read(s, "lag", sub.lag);
  read(s, "glif", sub.glif);
  read(s, "rif", sub.rif);
}

void read_bundle(section& s, router& r) {
  const auto number = required_number<unsigned>(s, "number");
  bundle& b = entry_of(r.bundles, [&](const bundle& other) { return other.number == number; });
  b.number = number;
  b.written = place_of(s);
  read_layer(s, b.l2);
  read(s, "description", b.description);
  read(s, "handle", b.handle);
  read(s, "lag", b.lag);
  read(s, "glif", b.glif);
  read(s, "rif", b.rif);
  read(s, "mac", b.mac);
  read(s, "mtu", b.mtu);
  read(s, "vlan_domain", b.vlan_domain);
  read(s, "max_members", b.max_members);
  each(s, "members", "members", "port", [&](section& inner) { read_member(inner, b); });
  each(s, "subs", "subs", "number", [&](section& inner) { read_sub(inner, b); });
  if (b.mac.empty()) return;
  const auto dotted = [](const std::string& mac) {
    return mac.size() == 14 && mac[4] == '.' && mac[9] == '.' &&
           mac.find_first_not_of("0123456789abcdef.") == std::string::npos;
  };
  if (!dotted(b.mac))
    refuse(s, s.table, fmt::format("mac \"{}\" does not have the form 0026.5e00.0a01", b.mac));
}

std::string names_of(const std::vector<field_description>& fields) {
  std::string names;
  for (const field_description& f : fields)
    names += fmt::format("{}{}", names.empty() ? "" : ", ", f.name);
  return names;
}

void read_override(section& s, router& r) {
  override_rule rule;
  rule.written = place_of(s);
  rule.field = required_text(s, "field");
  rule.object = required_text(s, "object");
  rule.value = required_text(s, "value");
  read(s, "node", rule.node);
  unsigned npu = 0;
  read(s, "npu", npu);
  if (s.table.contains("npu")) rule.npu = static_cast<int>(npu);
  const auto& fields = override_fields();
  if (std::none_of(fields.begin(), fields.end(),
                   [&](const field_description& f) { return f.name == rule.field; }))
    refuse(s, *s.table.get("field"),
           fmt::format("unknown field \"{}\", not one of {}", rule.field, names_of(fields)));
  if (!rule.node.empty() && find_node(r, rule.node) == nullptr)
    refuse(s, s.table, fmt::format("there is no node {}", rule.node));
  r.overrides.push_back(rule);
}

void read_faults(section& s, router& r) {
  std::vector<std::string> faults;
  read(s, "faults", faults);
  for (std::size_t at = 0; at < faults.size(); ++at) try {
      r.faults.push_back(parse_fault(faults[at]));
    } catch (const lab_error& failure) {
      refuse(s, *s.table.get("faults")->as_array()->get(at), failure.what());
    }
}

void read_table(const toml::table& table, const std::string& file, router& r,
                std::vector<std::string> bases);

void read_file(const fs::path& file, router& r, const std::vector<std::string>& bases) {
  read_table(parse_toml(read_whole(file), file.string()), file.string(), r, bases);
}

// The router of that name beside the description that names it, else one of the described routers.
fs::path file_of_base(const section& s, const std::string& base) {
  const fs::path beside = fs::path{s.file}.parent_path() / (base + ".toml");
  if (fs::exists(beside)) return beside;
  fs::path described = routers_directory() / (base + ".toml");
  if (!fs::exists(described))
    refuse(s, *s.table.get("base"),
           fmt::format("there is no router \"{}\", neither {} nor {}", base, beside.string(),
                       described.string()));
  return described;
}

void read_base(section& s, router& r, std::vector<std::string> bases) {
  std::string base;
  read(s, "base", base);
  if (base.empty()) return;
  const fs::path file = file_of_base(s, base);
  const std::string whole = fs::weakly_canonical(file).string();
  if (std::find(bases.begin(), bases.end(), whole) != bases.end() || bases.size() >= most_bases)
    refuse(s, *s.table.get("base"), fmt::format("base \"{}\" leads back to itself", base));
  bases.push_back(whole);
  read_file(file, r, bases);
}

void read_table(const toml::table& table, const std::string& file, router& r,
                std::vector<std::string> bases) {
  section s{table, file, "router", {}};
  read_base(s, r, std::move(bases));
  read(s, "description", r.description);
  read(s, "type", r.type);
  if (const toml::node* type = table.get("type"); type != nullptr && !known_type(r.type))
    refuse(s, *type, fmt::format("unknown router type \"{}\"", r.type));
  read(s, "model", r.model);
  read_choice(s, "health", r.health, {"clean", "info", "errors", "mixed"});
  read(s, "hqos", r.hqos);
  read(s, "bundle_scale", r.bundle_scale);
  read(s, "host_node_id", r.host_node_id);
  bool without_bundles = false;
  read(s, "without_bundles", without_bundles);
  if (without_bundles) r.bundles.clear();
  each(s, "node", "[[node]]", "name", [&](section& inner) { read_node(inner, r); });
  each(s, "bundle", "[[bundle]]", "number", [&](section& inner) { read_bundle(inner, r); });
  each(s, "override", "[[override]]", "", [&](section& inner) { read_override(inner, r); });
  read_faults(s, r);
  for (const auto& [name, value] : table)
    if (!s.known.contains(std::string{name.str()}))
      refuse(s, value, fmt::format("unknown key \"{}\"", name.str()));
}

router finished(router r, const std::string& where) {
  derive(r);
  check(r, where);
  return r;
}

fs::path own_folder() {
  return fs::read_symlink("/proc/self/exe").parent_path();
}

}  // namespace

fs::path routers_directory() {
  if (const char* named = std::getenv("TESSEL_LAB_ROUTERS")) return named;
  const fs::path folder = own_folder();
  const fs::path beside = folder / "routers";
  return fs::is_directory(beside) ? beside : (folder / TESSEL_BIN_TO_ROUTERS).lexically_normal();
}

router load_router(const std::string& name) {
  const bool is_file = name.ends_with(".toml");
  const fs::path file = is_file ? fs::path{name} : routers_directory() / (name + ".toml");
  if (!fs::exists(file))
    throw lab_error(is_file ? fmt::format("{}: there is no such file", name)
                            : fmt::format("there is no router \"{}\" in {}; `tessel-lab list` "
                                          "shows the names; a file name ends in .toml",
                                          name, routers_directory().string()));
  if (fs::is_directory(file)) throw lab_error(fmt::format("{}: is a folder", file.string()));
  router r;
  r.name = file.stem().string();
  read_file(file, r, {fs::weakly_canonical(file).string()});
  return finished(std::move(r), file.string());
}

router parse_router(const std::string& text, const std::string& where) {
  router r;
  r.name = where;
  read_table(parse_toml(text, where), where, r, {});
  return finished(std::move(r), where);
}

std::vector<std::string> router_names() {
  const fs::path directory = routers_directory();
  if (!fs::is_directory(directory))
    throw lab_error(fmt::format("{}: there is no such directory of routers", directory.string()));
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(directory))
    if (entry.path().extension() == ".toml") names.push_back(entry.path().stem().string());
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace lab
