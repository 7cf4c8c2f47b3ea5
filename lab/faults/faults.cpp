#include "lab/faults/faults.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <set>

#include "lab/base/error.h"
#include "lab/faults/render_faulty.h"
#include "lab/faults/sites.h"
#include "lab/faults/ssh_faults.h"

namespace lab {

const std::vector<fault>& fault_catalogue() {
  static const std::vector<fault> catalogue = [] {
    std::vector<fault> all;
    for (const auto rows :
         {manager_faults, forwarding_faults, between_nodes_faults, unreadable_object_faults,
          chip_lag_faults, chip_table_faults, hygiene_faults, platform_faults, tool_faults,
          silent_tool_faults, configuration_faults, extreme_faults, machine_faults})
      all.insert(all.end(), rows().begin(), rows().end());
    return all;
  }();
  return catalogue;
}

std::span<const by_product> lines_beside(const fault& f) {
  const auto unused = std::find_if(std::begin(f.also), std::end(f.also),
                                   [](const by_product& line) { return line.finding.empty(); });
  return {std::begin(f.also), unused};
}

namespace {

const fault* find_fault(const std::string& name) {
  const auto& all = fault_catalogue();
  const auto found =
      std::find_if(all.begin(), all.end(), [&](const fault& f) { return f.name == name; });
  return found == all.end() ? nullptr : &*found;
}

const fault& fault_of(const std::string& name) {
  if (is_ssh_fault(name))
    throw lab_error(fmt::format("fault {} needs a run with --real-ssh", name));
  const fault* found = find_fault(name);
  if (found == nullptr)
    throw lab_error(fmt::format("there is no fault \"{}\"; `tessel-lab faults` lists them", name));
  return *found;
}

// The row for the fault with this argument. Null if there is none.
const fault* known_effect(const planted_fault& p) {
  const fault& by_name = fault_of(p.name);
  if (p.argument.empty()) return &by_name;
  const std::string_view list = by_name.argued_like.empty() ? by_name.name : by_name.argued_like;
  return find_fault(fmt::format("{}={}", list, p.argument));
}

void insist(bool planted, const router& r, const planted_fault& wanted,
            const std::string& why = "") {
  if (!planted)
    throw lab_error(fmt::format("fault {} does not apply to {}{}", text_of(wanted), r.name, why));
}

// After it is planted, when the number of its places is known.
void insist_on_place(const router& r, const planted_fault& planted) {
  if (planted.place < planted.places) return;
  insist(
      false, r, planted,
      planted.places == 1
          ? fmt::format(": it has only one place there; leave out @{}", planted.place)
          : fmt::format(": it has {} places there, @0 to @{}", planted.places, planted.places - 1));
}

// The second one would change nothing more.
void insist_on_different(const std::vector<planted_fault>& faults) {
  std::set<std::string> seen;
  for (const planted_fault& one : faults) {
    if (seen.insert(text_of(one)).second) continue;
    const std::string other = one.argument.empty()
                                  ? fmt::format("{}@{} plants it in another place, if there is one",
                                                one.name, one.place + 1)
                                  : "each argument once is enough";
    throw lab_error(fmt::format("fault {} is given twice; {}", text_of(one), other));
  }
}

// Splits "NAME@3" into both.
unsigned take_place(std::string& name) {
  const std::size_t at = name.find('@');
  if (at == std::string::npos) return 0;
  const std::string digits = name.substr(at + 1);
  name.resize(at);
  unsigned place = 0;
  const char* end = digits.data() + digits.size();
  const auto read = std::from_chars(digits.data(), end, place);
  if (digits.empty() || read.ec != std::errc{} || read.ptr != end)
    throw lab_error(
        fmt::format("fault {}: \"{}\" is not a place; places are numbers from 0", name, digits));
  return place;
}

}  // namespace

std::string text_of(const planted_fault& p) {
  std::string text = p.name;
  if (p.place > 0) text += fmt::format("@{}", p.place);
  if (!p.argument.empty()) text += "=" + p.argument;
  return text;
}

planted_fault parse_fault(const std::string& text) {
  const std::size_t equals = text.find('=');
  planted_fault wanted{.name = text.substr(0, equals)};
  if (equals != std::string::npos) wanted.argument = text.substr(equals + 1);
  wanted.place = take_place(wanted.name);
  const fault& known = fault_of(wanted.name);
  if (!wanted.argument.empty() && !known.takes_argument)
    throw lab_error(fmt::format("fault {} takes no argument", wanted.name));
  if (wanted.argument == "ssh")
    throw lab_error(fmt::format("fault {}: ssh cannot be taken away", wanted.name));
  if (wanted.argument.find('/') != std::string::npos)
    throw lab_error(fmt::format("fault {}: \"{}\" contains a slash; give the name without a folder",
                                wanted.name, wanted.argument));
  return wanted;
}

void plant_faults(router& r) {
  insist_on_different(r.faults);
  // A fault sees the router as the faults before it left it.
  for (std::size_t i = 0; i < r.faults.size(); ++i) {
    planted_fault one = r.faults[i];
    const fault& known = fault_of(one.name);
    const auto before = static_cast<std::ptrdiff_t>(r.overrides.size());
    if (known.plant != nullptr) {
      insist(known.plant(r, one), r, one);
      insist_on_place(r, one);
    }
    one.holds.assign(r.overrides.begin() + before, r.overrides.end());
    r.faults[i] = one;
  }
}

void edit_for_faults(router& r, capture& c) {
  for (planted_fault& one : r.faults) {
    const fault& known = fault_of(one.name);
    if (known.edit == nullptr) continue;
    bool planted = false;
    std::string why;
    try {
      planted = known.edit(c, r, one);
    } catch (const lab_error& failure) {
      why = fmt::format(": {}", failure.what());  // an earlier fault took the answer away
    }
    insist(planted, r, one, why);
    insist_on_place(r, one);
  }
}

bool applies(const router& r, std::string_view name) {
  router trial = r;
  trial.faults = {parse_fault(std::string{name})};
  try {
    render(trial);
  } catch (const lab_error&) {
    return false;
  }
  return true;
}

// What hides what -------------------------------------------------------------------------------

namespace {

bool overlap(const std::string& a, const std::string& b) {
  return a.empty() || b.empty() || a == b;
}

// Removing an object removes its values.
bool takes_along(const override_rule& object, const override_rule& value) {
  constexpr std::pair<std::string_view, std::string_view> held_by[] = {
      {"dpa.glif", "dpa.l2port"},
      {"dpa.rif", "dpa.l2port"},
      {"dpa.mac", "dpa.l2port"},
      {"dpa.l2-glif", "dpa.l2intf"},
      {"dpa.l2-vlan-domain", "dpa.l2intf"},
      {"dpa.l3-rif", "dpa.l3intf"},
      {"dpa.mtu", "dpa.port"},
      {"dpa.member-id", "dpa.member"},
      {"dpa.member-npu", "dpa.member"},
      {"dpa.weight", "dpa.member"},
  };
  return object.value == absent &&
         std::any_of(std::begin(held_by), std::end(held_by), [&](const auto& one) {
           return one.first == value.field && one.second == object.field;
         });
}

// True if `a` changes or removes a value that `b` changes.
bool hold_the_same(const planted_fault& a, const planted_fault& b) {
  return std::any_of(a.holds.begin(), a.holds.end(), [&](const override_rule& one) {
    return std::any_of(b.holds.begin(), b.holds.end(), [&](const override_rule& other) {
      return (one.field == other.field || takes_along(one, other)) && one.object == other.object &&
             overlap(one.node, other.node) &&
             (one.npu == other.npu || one.npu < 0 || other.npu < 0);
    });
  });
}

// True if `b` lies within the reach of `a`. Findings of the bundle manager and the interface
// manager have no node: a fault on a single node does not hide them.
bool reaches(const fault& how, const planted_fault& a, const planted_fault& b, bool b_is_central) {
  const bool same_node = overlap(a.node, b.node) && !(b_is_central && !a.node.empty());
  const bool same_bundle = overlap(a.bundle, b.bundle);
  switch (how.hides) {
    case reach::nothing:
      return false;
    case reach::object:
      return same_node && same_bundle && (a.object == a.bundle || overlap(a.object, b.object));
    case reach::bundle:
      return same_node && same_bundle;
    case reach::bundle_everywhere:
      return same_bundle;
    case reach::node:
      return same_node;
    case reach::router:
      return true;
  }
  return true;
}

std::string filled_in(std::string_view finding, const planted_fault& p) {
  std::string text{finding};
  for (const auto& [word, value] :
       {std::pair{"{object}", &p.object}, {"{bundle}", &p.bundle}, {"{node}", &p.node}})
    while (replace_once(text, word, value->empty() ? "{}" : *value)) {
    }
  return text;
}

// `line` is the line that `b` would show at its place.
std::string hidden_by(const planted_fault& a, const planted_fault& b, const by_product& line) {
  const fault* hiding = known_effect(a);
  if (hiding == nullptr) return fmt::format("{} may do anything", text_of(a));
  if (line.shown >= hiding->stops_from && line.shown <= hiding->stops_to)
    return fmt::format("{} ends the audit before it", text_of(a));
  if (line.shown == phase::stale && hiding->counted)
    return fmt::format("{} leaves no clean run", text_of(a));
  if (hold_the_same(a, b)) return fmt::format("{} changes the same value", text_of(a));
  const bool central = line.at <= checkpoint::im_sub && b.node.empty();
  if (hiding->at <= line.at && line.at <= hiding->deepest && reaches(*hiding, a, b, central))
    return fmt::format("{} is at the same place", text_of(a));
  return {};
}

}  // namespace

std::string hidden_by(const planted_fault& a, const planted_fault& b) {
  const fault* hidden = known_effect(b);
  if (hidden == nullptr) return fmt::format("what {} does is unknown", text_of(b));
  return hidden_by(a, b, {hidden->finding, hidden->at, hidden->shown});
}

namespace {

// An audit writes notes for untagged sub-bundles, so a router that has some is never clean.
bool is_clean(const router& r) {
  return std::none_of(r.bundles.begin(), r.bundles.end(), has_untagged);
}

std::string why_hidden(const router& r, const planted_fault& p, const by_product& line,
                       const planted_fault& itself, const std::vector<planted_fault>& all) {
  if (line.shown == phase::stale && !is_clean(r)) return "untagged leaves no clean run";
  for (const planted_fault& other : all)
    if (&other != &itself)
      if (std::string why = hidden_by(other, p, line); !why.empty()) return why;
  return {};
}

}  // namespace

std::vector<expectation> expected_findings(const router& r) {
  std::vector<planted_fault> planted;
  render(r, &planted);
  std::vector<expectation> expected;
  for (const planted_fault& one : planted) {
    const fault* effect = known_effect(one);
    if (effect == nullptr) {
      expected.push_back({.name = text_of(one)});
      continue;
    }
    const by_product main{effect->finding, effect->at, effect->shown};
    expected.push_back({.name = text_of(one),
                        .finding = filled_in(effect->finding, one),
                        .hidden = why_hidden(r, one, main, one, planted)});
    planted_fault anything = one;
    anything.object.clear();
    for (const by_product& line : lines_beside(*effect))
      expected.push_back({.name = text_of(one),
                          .finding = filled_in(line.finding, one),
                          .hidden = why_hidden(r, anything, line, one, planted)});
  }
  return expected;
}

}  // namespace lab
