#include "desk/model/mentions.h"

#include <algorithm>
#include <array>
#include <set>

namespace desk {

namespace {

bool is_digit(char c) {
  return c >= '0' && c <= '9';
}

bool is_word(char c) {
  return is_digit(c) || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}

std::size_t digits_at(std::string_view text, std::size_t from) {
  std::size_t end = from;
  while (end < text.size() && is_digit(text[end])) ++end;
  return end - from;
}

// "BE12" or "BE12.100" behind a word that stands for a bundle; empty if there is none from here on.
struct bundle_name {
  std::string bundle;
  std::string sub;  // the whole name, if it is one of a sub-bundle
  std::size_t end = std::string_view::npos;
};

bundle_name next_bundle(std::string_view text, std::size_t from) {
  constexpr std::array<std::string_view, 2> words = {"Bundle-Ether", "BE"};
  for (std::size_t at = from; at < text.size(); ++at) {
    if (text[at] != 'B' || (at != 0 && is_word(text[at - 1]))) continue;
    for (const std::string_view word : words) {
      if (!text.substr(at).starts_with(word)) continue;
      const std::size_t number = at + word.size();
      const std::size_t length = digits_at(text, number);
      if (length == 0) continue;
      bundle_name found;
      found.bundle = "BE" + std::string(text.substr(number, length));
      found.end = number + length;
      const bool has_point = found.end < text.size() && text[found.end] == '.';
      const std::size_t sub = has_point ? digits_at(text, found.end + 1) : 0;
      if (sub != 0) {
        found.sub = found.bundle + std::string(text.substr(found.end, sub + 1));
        found.end += sub + 1;
      }
      return found;
    }
  }
  return {};
}

// "0/0/0/1" or "0/0/0/1/2", also behind the name of a port's type.
std::string member_in(std::string_view text) {
  constexpr std::size_t fewest_slashes = 3;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (!is_digit(text[at]) || (at != 0 && (is_digit(text[at - 1]) || text[at - 1] == '/')))
      continue;
    std::size_t end = at + digits_at(text, at);
    std::size_t slashes = 0;
    while (end + 1 < text.size() && text[end] == '/' && is_digit(text[end + 1])) {
      ++slashes;
      end += 1 + digits_at(text, end + 1);
    }
    const bool goes_on = end < text.size() && (text[end] == '/' || is_word(text[end]));
    if (slashes >= fewest_slashes && !goes_on) return std::string(text.substr(at, end - at));
    at = end - 1;
  }
  return {};
}

// The name of a node ends with "/CPU" and a digit on every router.
std::string node_in(std::string_view text) {
  const std::size_t at = text.find("/CPU");
  if (at == std::string_view::npos) return {};
  std::size_t begin = at;
  while (begin > 0 && (is_word(text[begin - 1]) || text[begin - 1] == '/')) --begin;
  // "..._node0/0/CPU0" in the description of an entry.
  constexpr std::string_view word = "_node";
  const std::size_t prefix = text.substr(begin, at - begin).rfind(word);
  if (prefix != std::string_view::npos) begin += prefix + word.size();
  constexpr std::size_t length_of_cpu = 4;
  const std::size_t end = at + length_of_cpu;
  return std::string(text.substr(begin, end + digits_at(text, end) - begin));
}

std::string npu_in(std::string_view text) {
  for (const std::string_view word : {"NPU: ", "NPU ", "NPU", "_npu"}) {
    for (std::size_t at = text.find(word); at != std::string_view::npos;
         at = text.find(word, at + 1)) {
      const std::size_t length = digits_at(text, at + word.size());
      if (length != 0) return std::string(text.substr(at + word.size(), length));
    }
  }
  return {};
}

}  // namespace

// ---- What the run knows -------------------------------------------------------------------------

void mention_finder::note_members() {
  if (std::exchange(knows_members_, true)) return;
  for (const object& one : of_.objects)
    if (one.kind == object_kind::member) members_.try_emplace(one.name, &one);
}

void mention_finder::note_handles() {
  if (std::exchange(knows_handles_, true)) return;
  for (const object& one : of_.objects)
    for (const cell& c : one.cells)
      if (c.what == field::handle) handles_.try_emplace(of_.texts.text(c.value), &one);
}

// Of a node that takes no part nobody asks the weight.
void mention_finder::note_weights() {
  if (std::exchange(knows_weights_, true)) return;
  const auto takes_part = [&](std::int16_t node) {
    return node == no_place || of_.nodes[static_cast<std::size_t>(node)].takes_part;
  };
  for (const object& one : of_.objects) {
    // The audit weighs no sub-bundle, and nothing that its configuration lacks.
    if (one.kind != object_kind::bundle || !one.is_configured) continue;
    std::unordered_map<std::int16_t, text_id> limits;
    for (const cell& c : one.cells)
      if (c.what == field::weight_limit) limits.try_emplace(c.node, c.value);
    for (const cell& c : one.cells) {
      const auto limit = limits.find(c.node);
      if (c.what != field::weight || limit == limits.end() || !takes_part(c.node)) continue;
      weights_[{of_.texts.text(c.value), of_.texts.text(limit->second)}].push_back({&one, c.node});
    }
  }
}

void mention_finder::complete_member(mention& found) {
  if (!found.object.bundle.empty()) return;
  note_members();
  const auto at = members_.find(found.object.name);
  if (at != members_.end()) found.object.bundle = of_.objects[at->second->bundle].name;
}

// A member sits on the node whose agent knows it.
void mention_finder::complete_node(mention& found) const {
  if (!found.node.empty() || found.object.kind != object_kind::member) return;
  const object* member = of_.find(object_kind::member, found.object.bundle, found.object.name);
  if (member == nullptr) return;
  for (const cell& c : member->cells)
    if (c.from == source::agent && c.node != no_place)
      found.node = of_.nodes[static_cast<std::size_t>(c.node)].name;
}

// "no key '0x3000024'": a layer that lacks an object is often reported by the handle alone.
void mention_finder::complete_handle(std::string_view text, mention& found) {
  const std::size_t at = text.find("'0x");
  if (at == std::string_view::npos) return;
  note_handles();
  const auto known = handles_.find(text.substr(at + 1, text.find('\'', at + 1) - at - 1));
  if (known == handles_.end()) return;
  const object& one = *known->second;
  found.object = {one.kind, of_.objects[one.bundle].name, one.name};
}

mention mention_finder::in(std::string_view text) {
  mention found;
  found.node = node_in(text);
  found.npu = npu_in(text);
  const bundle_name bundle = next_bundle(text, 0);
  found.object.bundle = bundle.bundle;
  if (const std::string member = member_in(text); !member.empty()) {
    found.object.kind = object_kind::member;
    found.object.name = member;
    complete_member(found);
    complete_node(found);
  } else if (!bundle.bundle.empty()) {
    found.object.kind = bundle.sub.empty() ? object_kind::bundle : object_kind::sub_bundle;
    found.object.name = bundle.sub.empty() ? bundle.bundle : bundle.sub;
  } else {
    complete_handle(text, found);
  }
  if (found.object.name.empty() && !found.node.empty()) {
    found.object.kind = found.npu.empty() ? object_kind::node : object_kind::chip;
    found.object.name = found.node;
  }
  return found;
}

const std::vector<mention_finder::weighed>& mention_finder::weighing(std::string_view weight,
                                                                     std::string_view limit) {
  static const std::vector<weighed> none;
  note_weights();
  const auto at = weights_.find({weight, limit});
  return at == weights_.end() ? none : at->second;
}

mention mentioned_in(const run& of, std::string_view text) {
  return mention_finder(of).in(text);
}

std::vector<std::string> bundles_in(std::string_view text) {
  std::vector<std::string> names;
  std::set<std::string> known;
  for (bundle_name one = next_bundle(text, 0); !one.bundle.empty();
       one = next_bundle(text, one.end))
    if (known.insert(one.bundle).second) names.push_back(one.bundle);
  return names;
}

}  // namespace desk
