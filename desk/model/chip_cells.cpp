#include "desk/model/chip_cells.h"

#include <algorithm>
#include <map>
#include <string_view>
#include <utility>
#include <vector>

#include "desk/read/chip_tables.h"

namespace desk {

namespace {

// Members by their chip, in the order of the nodes.
using chip_members = std::map<std::pair<std::int16_t, std::int16_t>, std::vector<std::size_t>>;

chip_members members_by_chip(const run& of) {
  chip_members made;
  for (const auto& [member, at] : of.places) {
    if (at.node == no_place || at.npu == no_place) continue;
    const node& on = of.nodes[static_cast<std::size_t>(at.node)];
    if (on.takes_part && on.has_supported_asic) made[{at.node, at.npu}].push_back(member);
  }
  return made;
}

// One chip, whose tables are read while its objects are filled.
class chip_intake {
 public:
  chip_intake(run& into, chip_tables& tables, std::int16_t on, std::int16_t npu, bool is_jericho2)
      : into_(into), tables_(tables), node_(on), npu_(npu), is_jericho2_(is_jericho2) {}

  void take_member(std::size_t member, const std::string& lag) {
    const place& at = into_.places.at(member);
    if (is_jericho2_) {
      if (!lag.empty()) put(member, field::mtu, source::chip_mtu, tables_.mtu_of_lag(lag, at.core));
      // The audit reads this one and compares nothing with it.
      const chip_entry domain = tables_.domain_of_port(at.core, at.port);
      if (domain.is != chip_entry::state::missing)
        put(member, field::vlan_domain, source::chip_domain, domain);
      return;
    }
    put(member, field::mtu, source::chip_mtu, tables_.mtu_of_port(at.core, at.port));
    put(member, field::vlan_domain, source::chip_domain, tables_.domain_of_port(at.core, at.port));
  }

  void take_bundle(std::size_t bundle, const chip_question& of, std::string_view domain,
                   const std::string& lag, const std::string& core) {
    if (of.is_untagged && !is_jericho2_ && !domain.empty())
      put(bundle, field::sem, source::chip_entry, tables_.sem_of(sem_key_of_untagged(domain)));
    if (of.is_untagged && is_jericho2_ && !lag.empty()) {
      const chip_entry lif = tables_.local_lif_of_lag(lag, core);
      if (lif.is == chip_entry::state::holds) put(bundle, field::sem, source::chip_entry, lif);
    }
    if (!of.is_l2 && of.rif) take_rif(bundle, into_.texts.text(*of.rif), of.is_untagged);
  }

  void take_sub(std::size_t sub, const chip_question& asked, std::string_view domain) {
    if (is_jericho2_ || domain.empty()) return;  // no table of Jericho2 is for them
    const sem_key key = sem_key_of(domain, asked.tags);
    if (!key.key.empty()) put(sub, field::sem, source::chip_entry, tables_.sem_of(key.key));
    if (!key.is_by_global_lif || !asked.lif) return;
    const chip_mapping mapped = tables_.mapping_of(std::string(into_.texts.text(*asked.lif)));
    chip_entry lif = mapped.lif;
    if (lif.is == chip_entry::state::holds) lif.value = "local " + lif.value;
    put(sub, field::lif, source::chip_entry, lif);
    if (!asked.is_l2) put(sub, field::rif, source::chip_entry, mapped.vsi);
  }

 private:
  // The row of a RIF has only the MAC: where there is one, the chip knows the RIF. Without untagged
  // traffic the audit does not ask for it, so nothing is missing then.
  void take_rif(std::size_t bundle, std::string_view rif, bool is_asked) {
    const chip_entry mac = tables_.mac_of_rif(std::string(rif));
    if (!is_asked && mac.is == chip_entry::state::missing) return;
    chip_entry row = mac;
    if (row.is == chip_entry::state::holds) row.value = rif;
    put(bundle, field::rif, source::chip_entry, row);
    const bool has_row = mac.is != chip_entry::state::missing;
    if (has_row) put(bundle, field::mac, source::chip_entry, mac);
  }

  void put(std::size_t object, field what, source from, const chip_entry& entry) {
    std::string_view text = entry.value;
    if (entry.is == chip_entry::state::none) return;
    if (entry.is == chip_entry::state::missing) text = "missing";
    if (entry.is == chip_entry::state::not_read) text = "not read";
    if (entry.is == chip_entry::state::not_understood) text = "not understood";
    into_.chip_cells[object].push_back({what, from, node_, npu_, into_.texts.keep(text)});
  }

  run& into_;
  chip_tables& tables_;
  std::int16_t node_;
  std::int16_t npu_;
  bool is_jericho2_;
};

const chip_question& question_of(const run& of, std::size_t object) {
  static const chip_question none;
  const auto at = of.chip_questions.find(object);
  return at == of.chip_questions.end() ? none : at->second;
}

std::string_view domain_on(const run& of, const chip_question& bundle, std::int16_t node,
                           std::int16_t npu) {
  const auto at = bundle.domains.find({node, npu});
  return at == bundle.domains.end() ? std::string_view() : of.texts.text(at->second);
}

void take_chip(run& into, chip_intake& chip, std::int16_t node, std::int16_t npu,
               const std::vector<std::size_t>& members) {
  std::vector<std::size_t> done;
  for (const std::size_t member : members) {
    const std::size_t bundle = into.objects[member].bundle;
    const chip_question& asked = question_of(into, bundle);
    const std::string lag(asked.lag ? into.texts.text(*asked.lag) : std::string_view());
    chip.take_member(member, lag);
    if (std::find(done.begin(), done.end(), bundle) != done.end()) continue;
    done.push_back(bundle);
    const std::string domain(domain_on(into, asked, node, npu));
    chip.take_bundle(bundle, asked, domain, lag, into.places.at(member).core);
    for (const std::size_t part : into.objects[bundle].parts)
      if (into.objects[part].kind == object_kind::sub_bundle)
        chip.take_sub(part, question_of(into, part), domain);
  }
}

}  // namespace

void read_chips(run& into, const std::string& capture) {
  for (const auto& [chip, members] : members_by_chip(into)) {
    const node& on = into.nodes[static_cast<std::size_t>(chip.first)];
    const bool is_jericho2 = on.asic == jericho2;
    chip_tables tables(
        capture, {on.id, std::to_string(chip.second), is_jericho2, into.router_type == "aspen"});
    chip_intake intake(into, tables, chip.first, chip.second, is_jericho2);
    take_chip(into, intake, chip.first, chip.second, members);
    if (!tables.troubles().empty()) into.chip_troubles[chip] = tables.troubles().front();
  }
}

}  // namespace desk
