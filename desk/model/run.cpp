#include "desk/model/run.h"

#include <fmt/format.h>

#include <functional>

namespace desk {

namespace {

std::string_view word_of(object_kind kind) {
  switch (kind) {
    case object_kind::router:
      return "router";
    case object_kind::node:
      return "node";
    case object_kind::chip:
      return "chip";
    case object_kind::bundle:
      return "bundle";
    case object_kind::member:
      return "member";
    case object_kind::sub_bundle:
      return "sub-bundle";
    case object_kind::entry:
      break;
  }
  return "entry";
}

}  // namespace

std::size_t object_key_hash::operator()(const object_key_view& of) const {
  const std::hash<std::string_view> hash;
  constexpr std::size_t odd = 0x9e3779b97f4a7c15U;
  return (hash(of.bundle) * odd + hash(of.name)) * odd + static_cast<std::size_t>(of.kind);
}

std::string fingerprint(const finding& of) {
  return fmt::format("{}|{}|{}|{}|{}|{}|{}", of.code, word_of(of.object.kind), of.object.bundle,
                     of.object.name, of.node, of.npu, word_for(of.of));
}

const object* run::find(object_kind kind, std::string_view bundle, std::string_view name) const {
  const auto at = index.find(object_key_view(kind, bundle, name));
  return at == index.end() ? nullptr : &objects[at->second];
}

std::size_t run::object_at(object_kind kind, std::string_view bundle, std::string_view name) {
  const auto known = index.find(object_key_view(kind, bundle, name));
  if (known != index.end()) return known->second;
  const std::size_t found = objects.size();
  index.emplace(object_key{kind, std::string(bundle), std::string(name)}, found);
  object& made = objects.emplace_back();
  made.kind = kind;
  made.name = name;
  made.bundle = found;
  if (kind == object_kind::bundle) return found;
  const std::size_t parent = object_at(object_kind::bundle, bundle, bundle);
  objects[found].bundle = parent;
  objects[parent].parts.push_back(found);
  return found;
}

std::int16_t run::node_index(std::string_view name) const {
  for (std::size_t i = 0; i < nodes.size(); ++i)
    if (nodes[i].name == name) return static_cast<std::int16_t>(i);
  return no_place;
}

route_processors route_processors_of(const run& of) {
  route_processors made;
  for (std::size_t at = 0; at < of.nodes.size(); ++at) {
    if (of.nodes[at].type != "RP") continue;
    if (of.nodes[at].role == "Active") made.active.push_back(at);
    if (of.nodes[at].role == "Standby") made.standby.push_back(at);
  }
  return made;
}

}  // namespace desk
