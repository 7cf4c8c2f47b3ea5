#include "lab/faults/sites.h"

#include <fmt/format.h>

namespace lab {

bool is_examined(const node& n) {
  return n.state == "ACTIVE" && n.band == "FINAL" && n.forwarding && has_address(n);
}

std::vector<site> sites_of(const router& r) {
  std::vector<site> sites;
  for (const bundle& b : r.bundles)
    for (const member& m : b.members) {
      const node* n = find_node(r, m.node);
      if (n != nullptr && is_examined(*n)) sites.push_back({&b, &m, n});
    }
  return sites;
}

bool is_l2(const site& s) {
  return s.b->l2;
}
bool is_l3(const site& s) {
  return !s.b->l2;
}
bool on_line_card(const site& s) {
  return s.n->kind == "LC";
}
bool on_older_chip(const site& s) {
  return family_of(*s.n) == chip_family::older;
}
bool has_chip(const site& s) {
  return s.n->npus > 0;
}
bool has_older_chip(const site& s) {
  return has_chip(s) && on_older_chip(s);
}
bool has_jericho2(const site& s) {
  return has_chip(s) && !on_older_chip(s);
}

void note_place(planted_fault& p, const site& s, std::string object) {
  p.object = std::move(object);
  p.bundle = s.b == nullptr ? "" : name_of(*s.b);
  p.node = s.n == nullptr ? "" : s.n->name;
}

void hold(router& r, std::string field, const std::string& object, const std::string& node_name,
          std::string value, int npu) {
  r.overrides.push_back({std::move(field), object, node_name, npu, std::move(value)});
}

bool hold_of_member(router& r, planted_fault& p, const site& s, std::string field,
                    std::string value) {
  if (!s) return false;
  note_place(p, s, port_tail(s.m->port));
  hold(r, std::move(field), p.object, p.node, std::move(value));
  return true;
}

bool hold_of_bundle(router& r, planted_fault& p, const site& s, std::string field,
                    std::string value) {
  if (!s) return false;
  note_place(p, s, name_of(*s.b));
  hold(r, std::move(field), p.object, p.node, std::move(value));
  return true;
}

void hold_on_npu(router& r, const planted_fault& p, std::string field, const std::string& object,
                 const site& s, std::string value) {
  hold(r, std::move(field), object, p.node, std::move(value), static_cast<int>(s.m->npu));
}

bool replace_once(std::string& text, std::string_view from, std::string_view to) {
  const std::size_t at = text.find(from);
  if (at == std::string::npos) return false;
  text.replace(at, from.size(), to);
  return true;
}

std::string& configuration(capture& c) {
  return answer_to(c, local_place, "cfg_render -c -l 1 -t 1 -o 1");
}

bool describe_port(capture& c, const std::string& description) {
  return replace_once(configuration(c), "description out of band", "description " + description);
}

std::string& forwarding_objects(capture& c, const node& n, std::string_view type) {
  return answer_to(c, n.address, fmt::format("fwd_object_show -t {} -D", type));
}

std::vector<std::pair<std::string, std::string>> answers_of(const capture& c,
                                                            const std::string& tool) {
  std::vector<std::pair<std::string, std::string>> found;
  for (const auto& [key, text] : c.answers)
    if ((key.second == tool || key.second.starts_with(tool + ",")) &&
        key.second.find(';') == std::string::npos)
      found.push_back(key);
  return found;
}

}  // namespace lab
