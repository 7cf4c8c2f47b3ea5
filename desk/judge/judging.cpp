#include "desk/judge/judging.h"

#include <fmt/format.h>

#include <algorithm>

#include "desk/model/coverage.h"

namespace desk {

namespace {

object_key key_of(const object_ref& of) {
  return {of.kind, of.bundle, of.name};
}

object_key_view view_of(const object_ref& of) {
  return {of.kind, of.bundle, of.name};
}

std::uint32_t bit_of(field what) {
  return 1U << static_cast<unsigned>(what);
}

const std::vector<std::size_t> nothing;

template <class Map, class Key>
const std::vector<std::size_t>& list_at(const Map& lists, const Key& key) {
  const auto at = lists.find(key);
  return at == lists.end() ? nothing : at->second;
}

template <class Map, class Key>
std::optional<std::size_t> number_at(const Map& numbers, const Key& key) {
  const auto at = numbers.find(key);
  return at == numbers.end() ? std::nullopt : std::optional(at->second);
}

}  // namespace

// ---- Fields -------------------------------------------------------------------------------------

void fields_of_objects::add(const object_ref& of, field what) {
  if (of.kind == object_kind::bundle)
    of_bundles_ |= bit_of(what);
  else
    of_parts_[key_of(of)] |= bit_of(what);
}

std::uint32_t fields_of_objects::of(const object_ref& one) const {
  const auto part = of_parts_.find(view_of(one));
  return of_bundles_ | (part == of_parts_.end() ? 0 : part->second);
}

// ---- Causes -------------------------------------------------------------------------------------

void cause_index::add_cause(std::size_t cause, const desk::cause& of) {
  if (!of.node.empty()) on_node_[{of.object.bundle, of.node}].push_back(cause);
  if (of.first == layer::bcm) in_chip_.try_emplace({of.node, of.npu}, cause);
}

void cause_index::add_place(std::size_t cause, const std::string& bundle, const std::string& node) {
  std::vector<std::size_t>& here = on_node_[{bundle, node}];
  const auto at = std::lower_bound(here.begin(), here.end(), cause);
  if (at == here.end() || *at != cause) here.insert(at, cause);
}

// A cause made later is never asked for before an earlier one.
void cause_index::note_subject(std::size_t cause, const object_ref& object) {
  const auto [at, is_new] = about_.try_emplace(key_of(object), cause);
  if (!is_new && cause < at->second) at->second = cause;
}

void cause_index::add_difference(std::size_t cause, const object_ref& object, field what) {
  note_subject(cause, object);
  subject& of = subjects_[cause];
  if (!of.has_difference) of = {true, {}};
  of.of.add(object, what);
}

void cause_index::add_finding(std::size_t cause, const object_ref& object, field what) {
  note_subject(cause, object);
  subject& of = subjects_[cause];
  if (!of.has_difference) of.of.add(object, what);
}

const std::vector<std::size_t>& cause_index::on(std::string_view bundle,
                                                std::string_view node) const {
  return list_at(on_node_, name_pair(bundle, node));
}

std::optional<std::size_t> cause_index::first_about(const object_ref& object) const {
  return number_at(about_, view_of(object));
}

std::optional<std::size_t> cause_index::first_in_chip(std::string_view node,
                                                      std::string_view npu) const {
  return number_at(in_chip_, name_pair(node, npu));
}

std::uint32_t cause_index::fields(std::size_t cause, const object_ref& object) const {
  const auto at = subjects_.find(cause);
  return at == subjects_.end() ? 0 : at->second.of.of(object);
}

std::size_t cause_at(judging& at, const place_key& key) {
  const auto [found, is_new] = at.known_causes.try_emplace(key, at.into.causes.size());
  if (is_new) {
    cause& made = at.into.causes.emplace_back();
    made.node = key.node;
    made.first = key.first;
    made.object = {object_kind::bundle, key.bundle, key.bundle};
  }
  return found->second;
}

void add_cause(judging& at, cause made) {
  const std::size_t index = at.into.causes.size();
  at.causes.add_cause(index, made);
  for (const std::size_t i : made.findings)
    at.causes.add_finding(index, at.of().findings[i].object, at.of().findings[i].what);
  at.into.causes.push_back(std::move(made));
}

void give_finding(judging& at, std::size_t cause, std::size_t finding) {
  at.into.causes[cause].findings.push_back(finding);
  at.causes.add_finding(cause, at.of().findings[finding].object, at.of().findings[finding].what);
}

std::string command_for_chips(const run& of, const std::vector<chip_name>& chips) {
  std::vector<chip_name> asked;
  std::map<std::string_view, std::size_t> by_node;
  for (const chip_name& one : chips) {
    const auto [known, is_new] = by_node.try_emplace(one.node, asked.size());
    if (is_new)
      asked.push_back(one);
    else if (asked[known->second].npu != one.npu)
      asked[known->second].npu = {};
  }
  std::vector<std::string> commands;
  commands.reserve(asked.size());
  for (const chip_name& one : asked) {
    std::string command = command_for(of, source::chip_lag, one.node, one.npu);
    if (std::find(commands.begin(), commands.end(), command) == commands.end())
      commands.push_back(std::move(command));
  }
  return one_line_of(std::move(commands));
}

std::string one_line_of(std::vector<std::string> commands) {
  constexpr std::size_t most = 4;
  const std::size_t more = commands.size() > most ? commands.size() - most : 0;
  commands.resize(commands.size() - more);
  std::string line = fmt::format("{}", fmt::join(commands, "; "));
  if (more > 0) line += fmt::format("  # and so on: {} more", more);
  return line;
}

// ---- Findings -----------------------------------------------------------------------------------

finding_index::finding_index(const std::vector<finding>& all) {
  for (std::size_t i = 0; i < all.size(); ++i) {
    const finding& one = all[i];
    objects_[key_of(one.object)].push_back(i);
    nodes_[one.node].push_back(i);
    codes_[one.code].push_back(i);
    if (one.of == layer::bcm) in_chips_[one.object.bundle].push_back(i);
    if (one.code == "TC-101") without_entry_[{one.node, one.of}].findings.push_back(i);
  }
}

const finding_index::list& finding_index::about(const object_ref& object) const {
  return list_at(objects_, view_of(object));
}

const finding_index::list& finding_index::on_node(const std::string& node) const {
  return list_at(nodes_, node);
}

const finding_index::list& finding_index::in_chips(const std::string& bundle) const {
  return list_at(in_chips_, bundle);
}

const finding_index::list& finding_index::with_code(const std::string& code) const {
  return list_at(codes_, code);
}

void finding_index::expect_without_entry(const std::string& node, layer in) {
  const auto at = without_entry_.find({node, in});
  if (at != without_entry_.end()) ++at->second.bundles;
}

bool finding_index::is_one_each(const std::string& node, layer in) const {
  const auto at = without_entry_.find({node, in});
  return at != without_entry_.end() && at->second.bundles == at->second.findings.size();
}

finding_index::list finding_index::take_without_entry(const std::string& node, layer in) {
  const auto at = without_entry_.find({node, in});
  if (at == without_entry_.end()) return {};
  shared_messages& of = at->second;
  if (of.taken == of.findings.size()) return {};
  if (of.bundles == of.findings.size()) return {of.findings[of.taken++]};
  of.taken = of.findings.size();
  return of.findings;
}

bool is_bundle_without_entry(const difference& of, const witness& at) {
  return of.what == field::presence && of.object.kind == object_kind::bundle && at.is_odd;
}

}  // namespace desk
