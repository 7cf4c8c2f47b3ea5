#include "parse/running_config.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <memory>
#include <unordered_set>

#include "base/dump.h"
#include "base/failure.h"
#include "base/findings.h"
#include "base/logs.h"
#include "base/records.h"
#include "base/text.h"
#include "parse/hardware_tables.h"
#include "parse/interface_text.h"
#include "run/state.h"

namespace tessel {

namespace {

constexpr std::string_view bundle_head = "interface Bundle-Ether";
constexpr std::string_view bundle_id = "bundle id ";

std::string name_of(std::string_view head) {
  return replace_all(head, bundle_head, "BE");
}

// The sub-interface heads of the whole configuration, by the head of their bundle. One search for
// all bundles finds the same heads as a search of "(?<=[^\s+])HEAD\.\d+" per bundle.
using sub_bundle_heads = std::unordered_map<std::string_view, std::vector<std::string_view>>;

sub_bundle_heads sub_bundles_by_head(std::string_view bundle_cfg) {
  static const pattern& head = constant(R"((?<=[^\s+])((interface Bundle-Ether\d+)\.\d+))");
  sub_bundle_heads heads;
  std::unordered_set<std::string_view> seen;
  const matches found = findall(head, bundle_cfg);
  for (std::size_t at = 0; at < found.size(); ++at) {
    const std::string_view sub_bdl = found[at][0];
    if (seen.insert(sub_bdl).second) heads[found[at][1]].push_back(sub_bdl);
  }
  return heads;
}

void note_switches(const parsed_config& config) {
  const bool hqos = config.text().find("hw-module profile qos hqos-enable") != std::string::npos;
  st().tesselDb.as_map().set("hqos", hqos ? 1 : 0);
  // A configured "hw-module profile bundle-scale" is ignored: BUNDLE_SCALE stays "Not set".
}

void add_members(Bundles& bdl_obj, const value& member_array) {
  static const pattern& port_tail = constant(R"((?<=\w)\d++(?:\/\d+\/\d+.*|(*SKIP)(*FAIL)))");
  const value members = bdl_obj.get("members");
  for (const value& member : member_array.as_list()) {
    const std::string_view mName = member.as_text();
    const matches tails = findall(port_tail, mName);
    if (tails.empty()) throw failure(fmt::format("no port number in {}", quoted(mName)));
    const std::string_view rsip = tails.text(0);
    const auto [nodename, port_details] = get_member_pp_port(mName, rsip);
    if (nodename == ERROR) continue;
    if (!members.contains(nodename.as_text())) members.as_map().set(nodename.as_text(), make_map());
    // A copy, because the checks write what other layers report into the bundle's members, while
    // the store keeps what the forwarding object said.
    auto own = std::make_shared<memberInfo>(static_cast<memberInfo&>(port_details.as_record()));
    members.at(nodename.as_text()).as_map().set(rsip, std::shared_ptr<record>(own));
  }
}

// Gives a live standby node the same members as the active one, to be compared with them.
void share_members_with_standby(const Bundles& bdl_obj) {
  run_state& run = st();
  if (run.router != aspen || run.standbynodeinfo == DEFAULT) return;
  const std::string_view standby = run.standbynodeinfo.as_text();
  if (!run.nodeinfo.get().at(standby).at("dump").truthy()) return;
  const value members = bdl_obj.get("members");
  members.as_map().set(standby, members.at(run.activenodeinfo.as_text()));
}

void add_sub_bundle(Bundles& bdl_obj, std::string_view name, std::string_view sub_bdl) {
  run_state& run = st();
  const std::string sub_bdl_name = name_of(sub_bdl);
  const value cfg = run.bundle_dict.at(sub_bdl_name);
  const value encap = get_encap_id(cfg, sub_bdl);
  if (encap == ERROR) return;
  if (encap.truthy() && encap.as_list().front() == "untagged") {
    bdl_obj.set("untagged", 1);
    logger(fmt::format("INFO: Found untagged encap config, SEM entry check for {} will not be "
                       "performed",
                       name),
           "exception");
    ++run.info;
  }
  auto sub_bundle = std::make_shared<subBundles>();
  bdl_obj.get("sub_bundles").as_map().set(sub_bdl_name, std::shared_ptr<record>(sub_bundle));
  const int is_l2 = get_bundle_type(cfg, sub_bdl);
  sub_bundle->set("is_l2", is_l2);
  ++(is_l2 == 1 ? run.num_sub_bundles_l2 : run.num_sub_bundles_l3);
  sub_bundle->set("encap", encap);
}

void add_bundle(std::string_view head, const parsed_config& config, const sub_bundle_heads& heads) {
  run_state& run = st();
  const std::string_view bundle = strip(head);
  ++run.num_bundles;
  const std::string name = name_of(bundle);
  auto bdl_obj = std::make_shared<Bundles>();
  const value member_array = get_members(name, config);
  // After a failure `member_array` is ERROR, not a list. `as_list` then throws, which counts the
  // failure a second time and ends the parse. Otherwise the bundle would look as if it were not
  // configured.
  if (member_array.as_list().empty()) return;
  add_members(*bdl_obj, member_array);
  share_members_with_standby(*bdl_obj);
  bdl_obj->set("is_l2", get_bundle_type(run.bundle_dict.at(name), bundle));
  if (const auto found = heads.find(bundle); found != heads.end()) {
    for (const std::string_view sub_bdl : found->second) add_sub_bundle(*bdl_obj, name, sub_bdl);
  }
  run.tesselDb.as_map().set(name, std::shared_ptr<record>(bdl_obj));
}

// Stores each interface's text under its name; the first stanza of a name wins.
void fill_bundle_dict(std::string_view bundle_cfg) {
  static const pattern& number = constant(R"(interface Bundle-Ether(\d+[^\s,']+|\d+))");
  const auto debug_log = st().dl_fd.require();
  map& bundle_dict = st().bundle_dict.as_map();
  for (const std::string_view cfg : split(bundle_cfg, ",")) {
    const matches found = findall(number, cfg);
    if (found.empty()) continue;
    const std::string key = fmt::format("BE{}", found.text(0));
    if (bundle_dict.contains(key)) {
      pprint(fmt::format("DEBUG: Duplicate Key, ignoring cfg {}", cfg), *debug_log);
    } else {
      bundle_dict.set(key, cfg);
    }
  }
  print_object(st().bundle_dict, *debug_log, "Parsed bundle config dump from running config");
}

std::vector<std::string> distinct(const matches& found) {
  std::vector<std::string> texts;
  std::unordered_set<std::string_view> seen;
  for (std::size_t at = 0; at < found.size(); ++at) {
    if (seen.insert(found.text(at)).second) texts.emplace_back(found.text(at));
  }
  return texts;
}

}  // namespace

parsed_config::parsed_config(const value& run_cfg)
    : share_(st().texts, run_cfg.as_text().size(),
             "the running configuration without its line ends"),
      text_(without_line_ends(run_cfg.as_text())) {
  stanzas_ = split(strip(text_), "!");
  index_bundle_ids();
}

void parsed_config::index_bundle_ids() {
  for (std::size_t number = 0; number < stanzas_.size(); ++number) {
    const std::string_view stanza = stanzas_[number];
    for (std::size_t at = stanza.find(bundle_id); at != std::string_view::npos;
         at = stanza.find(bundle_id, at + 1)) {
      const std::size_t start = at + bundle_id.size();
      const std::size_t end = stanza.find(' ', start);
      if (end == std::string_view::npos) break;
      auto& positions = by_bundle_id_[stanza.substr(start, end - start)];
      if (positions.empty() || positions.back() != number) positions.push_back(number);
    }
  }
}

const std::vector<std::size_t>& parsed_config::positions_of(std::string_view number) const {
  static const std::vector<std::size_t> none;
  const auto positions = by_bundle_id_.find(number);
  return positions == by_bundle_id_.end() ? none : positions->second;
}

const parsed_config::port_names& parsed_config::ports_of(std::size_t position) const {
  static const pattern& five_numbers = constant(R"((?<=interface\s)\w+\/\d+\/\d+\/\d+\/\d+)");
  static const pattern& four_numbers = constant(R"((?<=interface\s)\w+\/\d+\/\d+\/\d+)");
  if (const auto known = ports_.find(position); known != ports_.end()) return known->second;
  const std::string stanza = list_text({&stanzas_[position], 1});
  // Take out breakout ports first, because their names also contain a four-number name.
  const std::string remainder = sub(five_numbers, "", stanza);
  port_names names{distinct(findall(five_numbers, stanza)),
                   distinct(findall(four_numbers, remainder))};
  return ports_.emplace(position, std::move(names)).first->second;
}

std::vector<std::string> parsed_config::ports_with_bundle_id(std::string_view number) const {
  std::vector<std::string> names;
  std::unordered_set<std::string_view> seen;
  for (const auto kind : {&port_names::of_five_numbers, &port_names::of_four_numbers}) {
    for (const std::size_t at : positions_of(number)) {
      for (const std::string& name : ports_of(at).*kind) {
        if (seen.insert(name).second) names.push_back(name);
      }
    }
  }
  return names;
}

std::string without_line_ends(std::string_view run_cfg) {
  std::string text;
  text.reserve(run_cfg.size());
  std::size_t done = 0;
  for (std::size_t at = run_cfg.find('\n'); at != std::string_view::npos;
       at = run_cfg.find('\n', done)) {
    text += run_cfg.substr(done, at - done);
    const std::size_t first = at + 1;
    const std::size_t end = std::min(run_cfg.find_first_not_of(white_space, first), run_cfg.size());
    if (end > first && end < run_cfg.size() && run_cfg[end] == '!') {
      done = end + 1;
      continue;
    }
    std::copy_if(run_cfg.begin() + static_cast<std::ptrdiff_t>(first),
                 run_cfg.begin() + static_cast<std::ptrdiff_t>(end), std::back_inserter(text),
                 [](char c) { return c != '\n'; });
    done = end;
  }
  text += run_cfg.substr(done);
  return text;
}

int parse_running_config() {
  run_state& run = st();
  try {
    const parsed_config config(run.run_cfg.get());
    run.run_cfg.set(value());  // frees the largest text of a run before more is made of it
    note_switches(config);
    const auto [main_bundle, bundle_cfg] = get_bundles(config);
    const sub_bundle_heads heads = sub_bundles_by_head(bundle_cfg);
    for (const std::string& bundle : main_bundle) add_bundle(bundle, config, heads);
  } catch (const std::exception& error) {
    log_and_count(fmt::format("{}: parse_running_config failed", error.what()));
  }
  run.run_cfg.set(value());
  return SUCCESS;
}

std::pair<std::vector<std::string>, std::string> get_bundles(const parsed_config& config) {
  try {
    // Indented lines of other protocols mention bundles too.
    static const pattern& mention = constant(R"((?<!\s)\s++interface Bundle-Ether\d+)");
    static const pattern& head = constant(R"((?<=[^\s+])interface Bundle-Ether\d+)");
    std::vector<std::string_view> stanzas;
    for (const std::string_view stanza : config.stanzas()) {
      if (stanza.find(bundle_head) != std::string_view::npos) stanzas.push_back(strip(stanza));
    }
    std::string bundle_cfg = sub(mention, "", list_text(stanzas));
    std::vector<std::string> bundles = distinct(findall(head, bundle_cfg));
    fill_bundle_dict(bundle_cfg);
    return {std::move(bundles), std::move(bundle_cfg)};
  } catch (const std::exception& error) {
    log_and_count(fmt::format("{}: get_bundles from running config failed", error.what()));
    return {};
  }
}

int get_bundle_type(const value& l2_cfg, std::string_view bundle) {
  try {
    return is_layer_2(l2_cfg.as_text(), bundle) ? 1 : 0;
  } catch (const std::exception& error) {
    return log_and_count(
        fmt::format("{}: get_bundle_type from running config failed for {}", error.what(), bundle));
  }
}

value get_members(std::string_view bundle, const parsed_config& config) {
  try {
    const std::vector<std::string> names = config.ports_with_bundle_id(bundle.substr(2));
    return make_list({names.begin(), names.end()});
  } catch (const std::exception& error) {
    return log_and_count(fmt::format("{}: get_members failed {}", error.what(), bundle));
  }
}

std::pair<value, value> get_member_pp_port(std::string_view mName, std::string_view rsip) {
  try {
    parse_vlan_domain(rsip);
    const value port = st().voq_usage.get().at(rsip);
    return {port.as_record().get("nodename"), port};
  } catch (const std::exception& error) {
    log_and_count(fmt::format("{}: get_member_pp_port failed for {}", error.what(), mName));
    return {ERROR, ERROR};
  }
}

value get_encap_id(const value& encap_cfg, std::string_view sbName) {
  try {
    const std::string_view cfg = encap_cfg.as_text();
    if (!has_encapsulation(cfg, sbName)) {
      logger(fmt::format("{}: Dont have any encapsulation config.", sbName), "exception");
      ++st().info;
      return ERROR;
    }
    value_list tags = tags_of(cfg, sbName);
    if (tags.empty() && is_untagged(cfg, sbName)) tags.emplace_back("untagged");
    return make_list(std::move(tags));
  } catch (const std::exception& error) {
    return log_and_count(fmt::format("{}: get_encap_id failed for {}", error.what(), sbName));
  }
}

}  // namespace tessel
