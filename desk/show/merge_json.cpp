#include <algorithm>
#include <map>
#include <tuple>

#include "desk/show/figures.h"
#include "desk/show/json_parts.h"
#include "desk/show/keys.h"
#include "desk/show/merge.h"

namespace desk {

namespace {

constexpr int format_version = 1;

std::string_view key_for(standing is) {
  switch (is) {
    case standing::agrees:
      return "agrees";
    case standing::not_judged:
      return "not_judged";
    case standing::not_read:
      return "not_read";
    case standing::notable:
      return "notable";
    case standing::differs:
      break;
  }
  return "differs";
}

json if_known(const std::vector<bool>& is_new, std::size_t at) {
  return at < is_new.size() ? json(static_cast<bool>(is_new[at])) : json();
}

json causes_of(const merged_router& of) {
  json all = json::array();
  for (std::size_t i = 0; i < of.of.causes.size(); ++i) {
    json one = json_of(of.of.causes[i]);
    one.erase("differences");
    one["new"] = if_known(of.new_causes, i);
    all.push_back(std::move(one));
  }
  return all;
}

json findings_in(const merged_router& of) {
  json all = json::array();
  for (std::size_t i = 0; i < of.of.of.findings.size(); ++i) {
    json one = json_of(of.of.of.findings[i]);
    one["new"] = if_known(of.new_findings, i);
    all.push_back(std::move(one));
  }
  return all;
}

json bundles_of(const judged_run& of) {
  json value;
  for (const verdict is : all_verdicts) value[std::string(key_for(is))] = total(of, is);
  return value;
}

// All keys of a router that was read, without values.
json as_json(const merged_router& of) {
  const bool is_read = of.trouble.empty();
  const run& from = of.of.of;
  const auto fresh = new_findings_of(of);
  json value;
  value["name"] = json_text(of.name);
  value["file"] = json_text(of.file);
  value["verdict"] = key_for(standing_of(of));
  value["trouble"] = json_text_or_null(of.trouble);
  value["origin"] = is_read ? json_text(from.origin) : json();
  value["router_type"] = json_text_or_null(from.router_type);
  value["started"] = json_text_or_null(from.started);
  value["end"] = key_for(from.end);
  value["wholly_judged"] = of.of.is_wholly_judged;
  value["bundles"] = bundles_of(of.of);
  value["counts"] = json_of_counts(from);
  value["found"] = findings_of(of);
  value["new"] = fresh ? json(*fresh) : json();
  value["earlier"] = json::array();
  for (const earlier_report& one : of.earlier)
    value["earlier"].push_back(
        {{"file", json_text(one.file)}, {"started", json_text_or_null(one.started)}});
  value["marks"] = json_texts(from.marks);
  value["causes"] = causes_of(of);
  value["findings"] = findings_in(of);
  value["holes"] = json::array();
  for (const coverage& one : from.covered) value["holes"].push_back(json_of(one));
  return value;
}

// The same message about the same object, on several routers or on one.
struct shared_finding {
  const finding* first = nullptr;
  std::vector<std::size_t> routers;
  std::size_t number = 0;
};

std::vector<shared_finding> shared_by(const std::vector<merged_router>& routers) {
  using key = std::tuple<std::string_view, object_kind, std::string_view, std::string_view>;
  std::map<key, shared_finding> groups;
  for (std::size_t i = 0; i < routers.size(); ++i)
    for (const finding& one : routers[i].of.of.findings) {
      if (one.kind == finding_kind::note && !is_scale(one)) continue;
      auto& group = groups[{one.code, one.object.kind, one.object.bundle, one.object.name}];
      if (group.first == nullptr) group.first = &one;
      if (group.routers.empty() || group.routers.back() != i) group.routers.push_back(i);
      ++group.number;
    }
  std::vector<shared_finding> sorted;
  sorted.reserve(groups.size());
  for (auto& [of, group] : groups) sorted.push_back(std::move(group));
  std::stable_sort(sorted.begin(), sorted.end(), [](const auto& a, const auto& b) {
    return a.routers.size() > b.routers.size();
  });
  return sorted;
}

json as_json(const shared_finding& of) {
  json value;
  value["code"] = json_text(of.first->code);
  value["object"] = json_of(of.first->object);
  value["findings"] = of.number;
  value["routers"] = of.routers;
  return value;
}

}  // namespace

void show_merged_json(const std::vector<merged_router>& routers, std::ostream& out) {
  json_lines lines(out);
  lines.value("format", format_version);
  lines.value("program", json_of_program());
  lines.array("routers", [&](const auto& add) {
    for (const merged_router& one : routers) add(as_json(one));
  });
  lines.array("index", [&](const auto& add) {
    for (const shared_finding& one : shared_by(routers)) add(as_json(one));
  });
  lines.close("}\n");
}

}  // namespace desk
