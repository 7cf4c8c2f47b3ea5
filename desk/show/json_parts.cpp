#include "desk/show/json_parts.h"

#include "desk/model/coverage.h"
#include "desk/show/keys.h"

namespace desk {

namespace {

json as_json(field of) {
  return of == field::none ? json() : json(key_for(of));
}
json as_json(source of) {
  return of == source::none ? json() : json(key_for(of));
}

json as_json(const witness& of) {
  json value;
  value["source"] = as_json(of.from);
  value["node"] = json_text_or_null(of.node);
  value["npu"] = json_text_or_null(of.npu);
  value["state"] = key_for(of.is);
  value["value"] = json_text_or_null(of.value);
  value["odd"] = of.is_odd;
  return value;
}

json as_json(const difference& of) {
  json value;
  value["object"] = json_of(of.object);
  value["field"] = as_json(of.what);
  value["sureness"] = key_for(of.how_sure);
  value["why"] = json_text(of.why);
  value["witnesses"] = json::array();
  for (const auto& each : of.witnesses) value["witnesses"].push_back(as_json(each));
  return value;
}

}  // namespace

json json_of(layer of) {
  return of == layer::none ? json() : json(key_for(of));
}
json json_of(const object_ref& of) {
  json object;
  object["kind"] = key_for(of.kind);
  object["bundle"] = json_text_or_null(of.bundle);
  object["name"] = json_text_or_null(of.name);
  return object;
}

json json_of(const cause& of) {
  json value;
  value["title"] = json_text(of.title);
  value["object"] = json_of(of.object);
  value["node"] = json_text_or_null(of.node);
  value["npu"] = json_text_or_null(of.npu);
  value["first_layer"] = json_of(of.first);
  value["sureness"] = key_for(of.how_sure);
  value["why"] = json_text(of.why);
  value["next"] = json_text(of.next);
  value["differences"] = json::array();
  for (const auto& each : of.differences) value["differences"].push_back(as_json(each));
  value["findings"] = of.findings;
  return value;
}

json json_of(const finding& of) {
  json value;
  value["code"] = json_text(of.code);
  value["kind"] = key_for(of.kind);
  value["fingerprint"] = json_text(fingerprint(of));
  value["object"] = json_of(of.object);
  value["node"] = json_text_or_null(of.node);
  value["npu"] = json_text_or_null(of.npu);
  value["layer"] = json_of(of.of);
  value["field"] = as_json(of.what);
  value["reported"] = json_text_or_null(of.reported);
  value["known"] = json_text_or_null(of.known);
  value["text"] = json_text(of.text);
  value["time"] = json_text_or_null(of.time);
  value["log"] = json_text_or_null(of.log);
  value["line"] = of.line == 0 ? json() : json(of.line);
  value["number"] = of.number ? json(*of.number) : json();
  return value;
}

json json_of(const coverage& of) {
  json value;
  value["layer"] = json_of(of.of);
  value["node"] = json_text_or_null(of.node);
  value["npu"] = json_text_or_null(of.npu);
  value["state"] = key_for(of.state);
  value["hole"] = is_hole(of);
  value["normal"] = of.is_normal;
  value["reason"] = json_text_or_null(of.reason);
  value["command"] = json_text_or_null(of.command);
  value["commands"] = of.commands;
  value["seconds"] = of.seconds;
  value["bytes"] = of.bytes;
  value["trouble"] = of.has_trouble;
  return value;
}

json json_of_counts(const run& of) {
  json value;
  for (const auto kind : all_finding_kinds) {
    const auto count = of.counts.find(kind);
    value[std::string(key_for(kind))] = count == of.counts.end() ? 0 : count->second;
  }
  return value;
}

json json_of_program() {
  return {{"name", "tessel-report"}, {"version", TESSEL_VERSION}};
}

}  // namespace desk
