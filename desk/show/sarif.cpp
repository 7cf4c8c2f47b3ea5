#include "desk/show/sarif.h"

#include <fmt/format.h>

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "desk/judge/judged_run.h"
#include "desk/model/catalogue.h"
#include "desk/model/coverage.h"
#include "desk/show/json_lines.h"
#include "desk/show/keys.h"
#include "desk/show/phrases.h"

namespace desk {

namespace {

constexpr std::string_view not_read = "not-read";
constexpr std::string_view not_judged = "not-judged";
constexpr std::string_view log_folder = "LOGS";

std::string_view level_of(finding_kind kind) {
  switch (kind) {
    case finding_kind::inconsistency:
    case finding_kind::programming:
      return "error";
    case finding_kind::stale:
    case finding_kind::health:
    case finding_kind::delay_delete:
      return "warning";
    case finding_kind::failure:
    case finding_kind::note:
      break;
  }
  return "note";
}

// The rules in the order in which they are written, and the place of each.
class rule_list {
 public:
  // Adds the rule unless it is there.
  void add(std::string_view id, const auto& make) {
    const auto [at, is_new] = places_.try_emplace(std::string(id), rules_.size());
    if (is_new) rules_.push_back(make());
  }
  [[nodiscard]] std::size_t place(std::string_view id) const { return places_.find(id)->second; }
  [[nodiscard]] const std::vector<json>& rules() const { return rules_; }

 private:
  std::map<std::string, std::size_t, std::less<>> places_;
  std::vector<json> rules_;
};

// In a message braces hold places for arguments unless they are doubled, and "[text](target)" is a
// link, which no log may bring in.
json message(std::string_view raw) {
  std::string text;
  for (const char c : raw) {
    if (c == '{' || c == '}') text += c;
    if (c == '(' && text.ends_with(']')) text += ' ';
    text += c;
  }
  return {{"text", json_text(text)}};
}

// A wording with dots in the place of each "{}".
std::string with_gaps(std::string_view wording) {
  std::string text;
  for (std::size_t at = 0; at < wording.size(); ++at) {
    const bool is_gap = wording.substr(at, 2) == "{}";
    text += is_gap ? std::string_view("...") : wording.substr(at, 1);
    at += is_gap ? 1 : 0;
  }
  return text;
}

json rule_of(const finding& of) {
  json rule;
  rule["id"] = json_text(of.code);
  if (const auto* entry = entry_of(of.code); entry != nullptr) {
    rule["shortDescription"] = message(with_gaps(entry->wording));
    rule["fullDescription"] = message(entry->text.empty() ? entry->section : entry->text);
  }
  rule["defaultConfiguration"] = {{"level", level_of(of.kind)}};
  return rule;
}

json open_rule(std::string_view id, std::string_view description) {
  json rule;
  rule["id"] = id;
  rule["shortDescription"] = message(description);
  rule["defaultConfiguration"] = {{"level", "none"}};
  return rule;
}

rule_list rules_of(const judged_run& of) {
  rule_list rules;
  for (const auto& each : of.of.findings) rules.add(each.code, [&] { return rule_of(each); });
  for (const auto& each : of.of.covered)
    if (is_hole(each))
      rules.add(not_read,
                [] { return open_rule(not_read, "A layer was not read on a node or a chip."); });
  for (const auto& each : of.bundles)
    if (each.is == verdict::not_judged)
      rules.add(not_judged, [] {
        return open_rule(not_judged, "A bundle was not judged, because not all of it was read.");
      });
  return rules;
}

json logical_place(std::string_view kind, std::string_view name, std::string_view full_name) {
  json made;
  made["name"] = json_text(name);
  made["fullyQualifiedName"] = json_text(full_name);
  made["kind"] = kind;
  return made;
}

// Where a result is on the router, the narrowest first.
json places(const run& of, const object_ref& object, std::string_view node, std::string_view npu) {
  const std::string at_node = fmt::format("{}/{}", of.origin, node);
  json made = json::array();
  const bool is_part = object.kind == object_kind::member ||
                       object.kind == object_kind::sub_bundle || object.kind == object_kind::entry;
  if (!object.name.empty() && is_part)
    made.push_back(logical_place(key_for(object.kind), object.name,
                                 fmt::format("{}/{}/{}", of.origin, object.bundle, object.name)));
  if (!object.bundle.empty())
    made.push_back(
        logical_place("bundle", object.bundle, fmt::format("{}/{}", of.origin, object.bundle)));
  if (!npu.empty())
    made.push_back(logical_place("npu", npu, fmt::format("{}/NPU{}", at_node, npu)));
  if (!node.empty()) made.push_back(logical_place("node", node, at_node));
  made.push_back(logical_place("router", of.origin, of.origin));
  return made;
}

json log_place(const finding& of) {
  json made;
  made["artifactLocation"] = {{"uri", uri_path(of.log)}, {"uriBaseId", log_folder}};
  if (of.line > 0) made["region"] = {{"startLine", of.line}};
  return made;
}

json result(const rule_list& rules, std::string_view rule, std::string_view kind,
            std::string_view level, std::string_view text) {
  json made;
  made["ruleId"] = json_text(rule);
  made["ruleIndex"] = rules.place(rule);
  made["kind"] = kind;
  made["level"] = level;
  made["message"] = message(text);
  return made;
}

json result_of(const run& of, const rule_list& rules, const finding& found) {
  const bool is_open = is_of_notation(found);
  json made = result(rules, found.code, is_open ? "open" : "fail",
                     is_open ? "none" : level_of(found.kind), found.text);
  json location;
  if (!found.log.empty()) location["physicalLocation"] = log_place(found);
  location["logicalLocations"] = places(of, found.object, found.node, found.npu);
  made["locations"] = json::array({location});
  made["partialFingerprints"] = {{"tesselFinding/v1", json_text(fingerprint(found))}};
  json& more = made["properties"];
  more["kind"] = key_for(found.kind);
  if (found.of != layer::none) more["layer"] = key_for(found.of);
  if (found.what != field::none) more["field"] = key_for(found.what);
  if (!found.reported.empty()) more["reported"] = json_text(found.reported);
  if (!found.known.empty()) more["known"] = json_text(found.known);
  if (!found.time.empty()) more["time"] = json_text(found.time);
  return made;
}

json result_of(const run& of, const rule_list& rules, const coverage& answer) {
  json made = result(rules, not_read, "open", "none", sentence_for(answer));
  json location;
  location["logicalLocations"] = places(of, {}, answer.node, answer.npu);
  made["locations"] = json::array({location});
  json& more = made["properties"];
  more["layer"] = key_for(answer.of);
  more["state"] = key_for(answer.state);
  if (!answer.command.empty()) more["command"] = json_text(answer.command);
  return made;
}

json result_of(const run& of, const rule_list& rules, const bundle_verdict& bundle) {
  json made = result(
      rules, not_judged, "open", "none",
      fmt::format("{} was not judged: {}", bundle.bundle, fmt::join(bundle.not_judged, "; ")));
  object_ref object;
  object.kind = object_kind::bundle;
  object.bundle = object.name = bundle.bundle;
  json location;
  location["logicalLocations"] = places(of, object, "", "");
  made["locations"] = json::array({location});
  return made;
}

json invocation_of(const run& of) {
  json made;
  made["executionSuccessful"] = of.end == run_end::complete;
  json notifications = json::array();
  for (const auto& mark : of.marks)
    notifications.push_back({{"level", "warning"}, {"message", message(mark)}});
  made["toolExecutionNotifications"] = notifications;
  return made;
}

void show_results(const judged_run& of, const rule_list& rules, json_lines& lines) {
  lines.array("results", [&](const auto& add) {
    for (const auto& each : of.of.findings) add(result_of(of.of, rules, each));
    for (const auto& each : of.of.covered)
      if (is_hole(each)) add(result_of(of.of, rules, each));
    for (const auto& each : of.bundles)
      if (each.is == verdict::not_judged) add(result_of(of.of, rules, each));
  });
}

}  // namespace

void show_sarif(const judged_run& of, std::ostream& out) {
  const rule_list rules = rules_of(of);
  json_lines lines(out);
  lines.value("version", "2.1.0");
  lines.open("runs", "[{");
  lines.open("tool", "{");
  lines.open("driver", "{");
  lines.value("name", "tessel-report");
  lines.value("version", TESSEL_VERSION);
  lines.array("rules", [&](const auto& add) {
    for (const auto& rule : rules.rules()) add(rule);
  });
  lines.close("}");
  lines.close("}");
  lines.array("invocations", [&](const auto& add) { add(invocation_of(of.of)); });
  lines.value("originalUriBaseIds",
              {{log_folder, {{"description", message("Where the logs were read.")}}}});
  lines.value("properties",
              {{"origin", json_text(of.of.origin)}, {"started", json_text_or_null(of.of.started)}});
  show_results(of, rules, lines);
  lines.close("}]");
  lines.close("}\n");
}

}  // namespace desk
