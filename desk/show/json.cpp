#include "desk/show/json.h"

#include "desk/judge/judged_run.h"
#include "desk/show/figures.h"
#include "desk/show/json_lines.h"
#include "desk/show/json_parts.h"
#include "desk/show/keys.h"

namespace desk {

namespace {

constexpr int format_version = 1;

json as_json(const node& of) {
  json value;
  value["name"] = json_text(of.name);
  value["id"] = json_text_or_null(of.id);
  value["address"] = json_text_or_null(of.address);
  value["asic"] = json_text_or_null(of.asic);
  value["role"] = json_text_or_null(of.role);
  value["band"] = json_text_or_null(of.band);
  value["type"] = json_text_or_null(of.type);
  value["takes_part"] = of.takes_part;
  value["has_supported_asic"] = of.has_supported_asic;
  value["empty_slot"] = of.is_empty_slot;
  value["npus"] = json_texts(of.npus);
  return value;
}

// The names of a bundle's parts of one kind, in the order in which they were read.
json parts(const run& of, const object* bundle, object_kind kind) {
  json names = json::array();
  if (bundle == nullptr) return names;
  for (const std::size_t part : bundle->parts)
    if (of.objects[part].kind == kind) names.push_back(json_text(of.objects[part].name));
  return names;
}

json as_json(const run& of, const bundle_verdict& verdict_of) {
  const object* bundle = of.find(object_kind::bundle, verdict_of.bundle, verdict_of.bundle);
  json value;
  value["bundle"] = json_text(verdict_of.bundle);
  value["verdict"] = key_for(verdict_of.is);
  value["first_layer"] = json_of(verdict_of.first);
  value["not_judged"] = json_texts(verdict_of.not_judged);
  value["causes"] = verdict_of.causes;
  value["findings"] = verdict_of.findings;
  value["configured"] = bundle != nullptr && bundle->is_configured;
  value["members"] = parts(of, bundle, object_kind::member);
  value["sub_bundles"] = parts(of, bundle, object_kind::sub_bundle);
  return value;
}

void show_run(const run& of, json_lines& lines) {
  lines.value("format", format_version);
  lines.value("program", json_of_program());
  lines.value("origin", json_text(of.origin));
  lines.value("router", json_text_or_null(of.router));
  lines.value("router_type", json_text_or_null(of.router_type));
  lines.value("started", json_text_or_null(of.started));
  const auto seconds = seconds_of(of);
  lines.value("seconds", seconds ? json(*seconds) : json());
  lines.value("end", key_for(of.end));
  lines.value("last", of.is_last);
  lines.value("read", {{"snapshot", of.has_snapshot},
                       {"journal", of.has_journal},
                       {"chip_tables", of.has_chip_tables}});
  lines.array("marks", [&](const auto& add) {
    for (const auto& mark : of.marks) add(json_text(mark));
  });
  lines.array("debug_notes", [&](const auto& add) {
    for (const auto& note : of.debug_notes) add(json_text(note));
  });
  lines.array("complaints", [&](const auto& add) {
    for (const auto& complaint : of.complaints) add(json_text(complaint));
  });
  lines.value("stale_search", key_for(of.stale));
  lines.value("lost_logs", json_texts(of.lost_logs));
  lines.value("cut_logs", json_texts(of.cut_logs));
  lines.value("counts", json_of_counts(of));
  lines.array("nodes", [&](const auto& add) {
    for (const auto& each : of.nodes) add(as_json(each));
  });
}

}  // namespace

void show_json(const judged_run& of, std::ostream& out) {
  json_lines lines(out);
  show_run(of.of, lines);
  lines.value("wholly_judged", of.is_wholly_judged);
  lines.array("bundles", [&](const auto& add) {
    for (const auto& each : of.bundles) add(as_json(of.of, each));
  });
  lines.array("causes", [&](const auto& add) {
    for (const auto& each : of.causes) add(json_of(each));
  });
  lines.array("findings", [&](const auto& add) {
    for (const auto& each : of.of.findings) add(json_of(each));
  });
  lines.value("unexplained", of.unexplained);
  lines.array("coverage", [&](const auto& add) {
    for (const auto& each : of.of.covered) add(json_of(each));
  });
  lines.close("}\n");
}

}  // namespace desk
