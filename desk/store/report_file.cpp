#include "desk/store/report_file.h"

#include <fmt/format.h>

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string_view>
#include <utility>
#include <vector>

#include "desk/show/keys.h"
#include "desk/store/json_file.h"

namespace desk {

namespace {

using nlohmann::json;

constexpr std::uint64_t format_version = 1;

// ---- Single values ------------------------------------------------------------------------------

std::string shown(const json& value) {
  constexpr std::size_t longest = 60;
  if (value.is_object()) return "an object";
  if (value.is_array()) return "a list";
  if (value.is_string()) {
    const auto& text = value.get_ref<const std::string&>();
    return text.size() > longest ? fmt::format("a text of {} bytes", text.size())
                                 : fmt::format("\"{}\"", text);
  }
  return value.dump();
}

[[noreturn]] void expected(std::string_view what, const json& found) {
  throw misfit(fmt::format("expected {}, found {}", what, shown(found)));
}

std::string text_of(const json& value) {
  if (!value.is_string()) expected("a text", value);
  return value.get<std::string>();
}
std::string text_or_empty(const json& value) {
  if (!value.is_string() && !value.is_null()) expected("a text or null", value);
  return value.is_null() ? std::string() : value.get<std::string>();
}
bool truth_of(const json& value) {
  if (!value.is_boolean()) expected("true or false", value);
  return value.get<bool>();
}
std::uint64_t count_of(const json& value) {
  if (!value.is_number_unsigned()) expected("a whole number", value);
  return value.get<std::uint64_t>();
}
double seconds_in(const json& value) {
  if (!value.is_number() || value.get<double>() < 0) expected("a number of seconds", value);
  return value.get<double>();
}
template <typename Value>
Value word_of(const json& value) {
  const auto known =
      value.is_string() ? value_for_key<Value>(value.get_ref<const std::string&>()) : std::nullopt;
  if (known) return *known;
  std::string words;
  for (unsigned i = 0; i <= static_cast<unsigned>(last_value<Value>); ++i)
    words.append(i == 0 ? "" : ", ").append(key_for(static_cast<Value>(i)));
  expected("one of " + words, value);
}
// Null is the value "none".
template <typename Value>
Value word_or_none(const json& value) {
  return value.is_null() ? Value::none : word_of<Value>(value);
}

// What `read` makes of the value of a key, which must be there.
template <typename Read>
auto at(const json& object, const char* key, Read read) {
  if (!object.is_object()) expected("an object", object);
  const auto found = object.find(key);
  if (found == object.end()) throw misfit(fmt::format("the key \"{}\" is missing", key));
  try {
    return read(*found);
  } catch (misfit& error) {
    error.set_below(key);
    throw;
  }
}

template <typename Read>
auto list_of(const json& value, Read read) {
  if (!value.is_array()) expected("a list", value);
  std::vector<decltype(read(value))> made;
  made.reserve(value.size());
  for (const json& element : value) {
    try {
      made.push_back(read(element));
    } catch (misfit& error) {
      error.set_below(std::to_string(made.size()));
      throw;
    }
  }
  return made;
}
std::vector<std::string> texts_of(const json& value) {
  return list_of(value, text_of);
}
std::vector<std::size_t> indexes_of(const json& value) {
  return list_of(value, [](const json& one) { return static_cast<std::size_t>(count_of(one)); });
}

// ---- Elements of the document -------------------------------------------------------------------

object_ref object_of(const json& value) {
  object_ref made;
  made.kind = at(value, "kind", word_of<object_kind>);
  made.bundle = at(value, "bundle", text_or_empty);
  made.name = at(value, "name", text_or_empty);
  return made;
}

witness witness_of(const json& value) {
  witness made;
  made.from = at(value, "source", word_or_none<source>);
  made.node = at(value, "node", text_or_empty);
  made.npu = at(value, "npu", text_or_empty);
  made.is = at(value, "state", word_of<witness::state>);
  made.value = at(value, "value", text_or_empty);
  made.is_odd = at(value, "odd", truth_of);
  return made;
}

difference difference_of(const json& value) {
  difference made;
  made.object = at(value, "object", object_of);
  made.what = at(value, "field", word_or_none<field>);
  made.how_sure = at(value, "sureness", word_of<sureness>);
  made.why = at(value, "why", text_of);
  made.witnesses = at(value, "witnesses", [](const json& all) { return list_of(all, witness_of); });
  return made;
}

cause cause_of(const json& value) {
  cause made;
  made.title = at(value, "title", text_of);
  made.object = at(value, "object", object_of);
  made.node = at(value, "node", text_or_empty);
  made.npu = at(value, "npu", text_or_empty);
  made.first = at(value, "first_layer", word_or_none<layer>);
  made.how_sure = at(value, "sureness", word_of<sureness>);
  made.why = at(value, "why", text_of);
  made.next = at(value, "next", text_of);
  made.differences =
      at(value, "differences", [](const json& all) { return list_of(all, difference_of); });
  made.findings = at(value, "findings", indexes_of);
  return made;
}

finding finding_of(const json& value) {
  finding made;
  made.code = at(value, "code", text_of);
  made.kind = at(value, "kind", word_of<finding_kind>);
  made.object = at(value, "object", object_of);
  made.node = at(value, "node", text_or_empty);
  made.npu = at(value, "npu", text_or_empty);
  made.of = at(value, "layer", word_or_none<layer>);
  made.what = at(value, "field", word_or_none<field>);
  made.reported = at(value, "reported", text_or_empty);
  made.known = at(value, "known", text_or_empty);
  made.text = at(value, "text", text_of);
  made.time = at(value, "time", text_or_empty);
  made.log = at(value, "log", text_or_empty);
  made.line = at(value, "line", [](const json& one) { return one.is_null() ? 0 : count_of(one); });
  made.number = at(value, "number", [](const json& one) {
    return one.is_null() ? std::optional<std::uint64_t>() : count_of(one);
  });
  return made;
}

coverage coverage_in(const json& value) {
  coverage made;
  made.of = at(value, "layer", word_or_none<layer>);
  made.node = at(value, "node", text_or_empty);
  made.npu = at(value, "npu", text_or_empty);
  made.state = at(value, "state", word_of<coverage_state>);
  made.is_normal = at(value, "normal", truth_of);
  made.reason = at(value, "reason", text_or_empty);
  made.command = at(value, "command", text_or_empty);
  made.commands = at(value, "commands", count_of);
  made.seconds = at(value, "seconds", seconds_in);
  made.bytes = at(value, "bytes", count_of);
  made.has_trouble = at(value, "trouble", truth_of);
  return made;
}

node node_of(const json& value) {
  node made;
  made.name = at(value, "name", text_of);
  made.id = at(value, "id", text_or_empty);
  made.address = at(value, "address", text_or_empty);
  made.asic = at(value, "asic", text_or_empty);
  made.role = at(value, "role", text_or_empty);
  made.band = at(value, "band", text_or_empty);
  made.type = at(value, "type", text_or_empty);
  made.takes_part = at(value, "takes_part", truth_of);
  made.has_supported_asic = at(value, "has_supported_asic", truth_of);
  made.is_empty_slot = at(value, "empty_slot", truth_of);
  made.npus = at(value, "npus", texts_of);
  return made;
}

// Two parts of one name stay two: names that differ in bytes that are no UTF-8 are equal in the
// document.
void add_parts(run& to, const std::string& bundle, object_kind kind,
               const std::vector<std::string>& names) {
  const std::size_t parent = to.object_at(object_kind::bundle, bundle, bundle);
  for (const std::string& name : names) {
    if (to.find(kind, bundle, name) == nullptr) {
      (void)to.object_at(kind, bundle, name);
      continue;
    }
    to.objects[parent].parts.push_back(to.objects.size());
    object& made = to.objects.emplace_back();
    made.kind = kind;
    made.name = name;
    made.bundle = parent;
  }
}

bundle_verdict take_bundle(run& to, const json& value) {
  bundle_verdict made;
  made.bundle = at(value, "bundle", text_of);
  made.is = at(value, "verdict", word_of<verdict>);
  made.first = at(value, "first_layer", word_or_none<layer>);
  made.not_judged = at(value, "not_judged", texts_of);
  made.causes = at(value, "causes", indexes_of);
  made.findings = at(value, "findings", count_of);
  if (to.find(object_kind::bundle, made.bundle, made.bundle) != nullptr)
    throw misfit(fmt::format("the bundle {} is there twice", made.bundle));
  const std::size_t object = to.object_at(object_kind::bundle, made.bundle, made.bundle);
  to.objects[object].is_configured = at(value, "configured", truth_of);
  add_parts(to, made.bundle, object_kind::member, at(value, "members", texts_of));
  add_parts(to, made.bundle, object_kind::sub_bundle, at(value, "sub_bundles", texts_of));
  return made;
}

void take_counts(run& to, const json& value) {
  for (const auto kind : all_finding_kinds)
    to.counts[kind] = at(value, std::string(key_for(kind)).c_str(), count_of);
}

// ---- The document -------------------------------------------------------------------------------

using take_value = std::function<void(judged_run&, const json&)>;

struct key_of_report {
  bool is_list = false;
  take_value take;  // the value, or an element of the list
};
using keys_of_report = std::map<std::string, key_of_report, std::less<>>;

void take_format(const json& value) {
  if (!value.is_number_unsigned()) expected("the number of a format", value);
  if (value.get<std::uint64_t>() != format_version)
    throw misfit(fmt::format("format {}, this program reads {}", value.get<std::uint64_t>(),
                             format_version));
}

void take_program(const json& value) {
  if (at(value, "name", text_of) != "tessel-report")
    throw misfit("expected a report that tessel-report json wrote");
}

void take_seconds(run& to, const json& value) {
  if (value.is_null()) return;
  journal& of = to.log_of_commands.emplace();
  of.is_finished = true;
  of.seconds = seconds_in(value);
}

void take_read(run& to, const json& value) {
  to.has_snapshot = at(value, "snapshot", truth_of);
  to.has_journal = at(value, "journal", truth_of);
  to.has_chip_tables = at(value, "chip_tables", truth_of);
}

keys_of_report plain_keys() {
  const auto value = [](auto take) { return key_of_report{false, take}; };
  return {
      {"format", value([](judged_run&, const json& of) { take_format(of); })},
      {"program", value([](judged_run&, const json& of) { take_program(of); })},
      {"origin", value([](judged_run& to, const json& of) { to.of.origin = text_of(of); })},
      {"router", value([](judged_run& to, const json& of) { to.of.router = text_or_empty(of); })},
      {"router_type",
       value([](judged_run& to, const json& of) { to.of.router_type = text_or_empty(of); })},
      {"started", value([](judged_run& to, const json& of) { to.of.started = text_or_empty(of); })},
      {"seconds", value([](judged_run& to, const json& of) { take_seconds(to.of, of); })},
      {"end", value([](judged_run& to, const json& of) { to.of.end = word_of<run_end>(of); })},
      {"stale_search",
       value([](judged_run& to, const json& of) { to.of.stale = word_of<stale_search>(of); })},
      {"last", value([](judged_run& to, const json& of) { to.of.is_last = truth_of(of); })},
      {"read", value([](judged_run& to, const json& of) { take_read(to.of, of); })},
      {"counts", value([](judged_run& to, const json& of) { take_counts(to.of, of); })},
      {"wholly_judged",
       value([](judged_run& to, const json& of) { to.is_wholly_judged = truth_of(of); })},
  };
}

keys_of_report list_keys() {
  const auto list = [](auto read, auto place) {
    return key_of_report{true,
                         [=](judged_run& to, const json& of) { place(to).push_back(read(of)); }};
  };
  return {
      {"marks", list(
                    text_of, [](judged_run & to) -> auto& { return to.of.marks; })},
      {"debug_notes", list(
                          text_of, [](judged_run & to) -> auto& { return to.of.debug_notes; })},
      {"complaints", list(
                         text_of, [](judged_run & to) -> auto& { return to.of.complaints; })},
      {"lost_logs", list(
                        text_of, [](judged_run & to) -> auto& { return to.of.lost_logs; })},
      {"cut_logs", list(
                       text_of, [](judged_run & to) -> auto& { return to.of.cut_logs; })},
      {"nodes", list(
                    node_of, [](judged_run & to) -> auto& { return to.of.nodes; })},
      {"causes", list(
                     cause_of, [](judged_run & to) -> auto& { return to.causes; })},
      {"findings", list(
                       finding_of, [](judged_run & to) -> auto& { return to.of.findings; })},
      {"unexplained", list(
                          count_of, [](judged_run & to) -> auto& { return to.unexplained; })},
      {"coverage", list(
                       coverage_in, [](judged_run & to) -> auto& { return to.of.covered; })},
      {"bundles",
       {true,
        [](judged_run& to, const json& of) { to.bundles.push_back(take_bundle(to.of, of)); }}},
  };
}

const keys_of_report& keys() {
  static const keys_of_report all = [] {
    keys_of_report made = plain_keys();
    made.merge(list_keys());
    return made;
  }();
  return all;
}

// In the order of the document, so that what is no report at all is called so.
void check_complete(const std::set<std::string>& met) {
  if (!met.contains("format") || !met.contains("program"))
    throw misfit("expected a report that tessel-report json wrote");
  if (met.contains("routers"))
    throw misfit("this is what tessel-report merge wrote; name the reports of the routers");
  for (const auto& [key, of] : keys())
    if (!met.contains(key)) throw misfit(fmt::format("the key \"{}\" is missing", key));
}

void check_indexes(const std::vector<std::size_t>& indexes, std::size_t size, std::string_view what,
                   const std::string& place) {
  for (const std::size_t index : indexes) {
    if (index < size) continue;
    misfit error(fmt::format("there is no {} {}, only {} of them", what, index, size));
    error.set_below(place);
    throw misfit(error);
  }
}

// The lists may come in any order, so their indexes are only looked at when all are there.
void check_indexes(const judged_run& of) {
  const std::size_t findings = of.of.findings.size();
  for (std::size_t i = 0; i < of.bundles.size(); ++i)
    check_indexes(of.bundles[i].causes, of.causes.size(), "cause",
                  fmt::format("bundles/{}/causes", i));
  for (std::size_t i = 0; i < of.causes.size(); ++i)
    check_indexes(of.causes[i].findings, findings, "finding", fmt::format("causes/{}/findings", i));
  check_indexes(of.unexplained, findings, "finding", "unexplained");
}

}  // namespace

judged_run read_report(const std::string& path) {
  judged_run made;
  std::set<std::string> met;
  json_taker taker;
  taker.wants = [&](const std::string& key) {
    met.insert(key);
    return keys().contains(key);
  };
  taker.value = [&](const std::string& key, const json& value) {
    if (keys().at(key).is_list) expected("a list", value);
    keys().at(key).take(made, value);
  };
  taker.list = [&](const std::string& key) {
    if (!keys().at(key).is_list) throw misfit(fmt::format("{}: expected no list", key));
  };
  taker.element = [&](const std::string& key, const json& value) {
    keys().at(key).take(made, value);
  };
  taker.end = [&] {
    check_complete(met);
    check_indexes(made);
  };
  read_json_file(path, taker);
  return made;
}

}  // namespace desk
