#include "desk/model/findings.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>

#include "desk/model/catalogue.h"
#include "desk/model/mentions.h"
#include "desk/read/line_reader.h"
#include "desk/read/snapshot.h"

namespace desk {

namespace {

constexpr std::string_view stale_log = "tessel_stale_entries.log";
constexpr std::string_view code_of_health = "TC-501";
constexpr std::string_view code_of_stale = "TC-401";
constexpr std::string_view code_of_unknown = "TC-000";

// The layer that a message names, in any of the audit's words for it.
layer layer_named(std::string_view word) {
  if (word.starts_with("BM PI") || word == "PI" || word.starts_with("IM ")) return layer::pi;
  if (word.starts_with("BME") || word.starts_with("Bundlemgr PD")) return layer::pd;
  if (word.starts_with("DPA")) return layer::dpa;
  if (word.starts_with("BCM")) return layer::bcm;
  return layer::none;
}

void take_blanks(finding& into, const recognised& message) {
  into.code = message.entry->code;
  into.what = message.entry->what;
  into.reported = message.at("reported");
  into.known = message.at("known");
  const std::string_view named = message.at("layer");
  into.of = named.empty() ? message.entry->of : layer_named(named);
  const std::string_view number = message.at("number");
  std::uint64_t count = 0;
  const auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), count);
  if (error == std::errc{} && end != number.data()) into.number = count;
  if (const std::string_view npu = message.at("npu"); !npu.empty()) into.npu = npu;
  std::string member(message.at("member"));
  if (member.empty() || into.object.kind != object_kind::bundle) return;
  // The forwarding layer writes a port's name with underscores.
  std::replace(member.begin(), member.end(), '_', '/');
  const std::string tail =
      member.substr(std::min(member.find_first_of("0123456789"), member.size()));
  into.object = {object_kind::member, into.object.bundle, tail.empty() ? member : tail};
}

const cell* cell_of(const object& one, field what, std::int16_t node) {
  for (const cell& c : one.cells)
    if (c.what == what && c.node == node) return &c;
  return nullptr;
}

// The message about too much weight names the numbers only: the bundle is the one with them.
void find_weight(finding& into, const run& of) {
  for (const object& one : of.objects) {
    for (const cell& weight : one.cells) {
      if (weight.what != field::weight || of.texts.text(weight.value) != into.reported) continue;
      const cell* limit = cell_of(one, field::weight_limit, weight.node);
      if (limit == nullptr || of.texts.text(limit->value) != into.known) continue;
      into.object = {one.kind, of.objects[one.bundle].name, one.name};
      if (weight.node != no_place) into.node = of.nodes[static_cast<std::size_t>(weight.node)].name;
      return;
    }
  }
}

finding finding_from(const run& of, const log_entry& entry, finding_kind kind) {
  finding made;
  made.kind = kind;
  made.text = entry.text;
  made.time = entry.time;
  made.log = entry.file;
  made.line = entry.line;
  made.code = code_of_unknown;
  const auto message = recognise(entry.text);
  // The cause of a failure may name another object than the one that could not be verified.
  const std::string_view object = message ? message->at("object") : std::string_view{};
  mention named = mentioned_in(of, object.empty() ? std::string_view(entry.text) : object);
  made.object = std::move(named.object);
  made.node = std::move(named.node);
  made.npu = std::move(named.npu);
  if (message) take_blanks(made, *message);
  if (made.what == field::weight) find_weight(made, of);
  return made;
}

const log_run* run_at(const channel_log& log, std::size_t back) {
  return back < log.runs.size() ? &log.runs[log.runs.size() - 1 - back] : nullptr;
}

// A counter's lines carry its value, so a run whose first lines were rotated away shows it.
void note_gap(run& into, const channel_log& log, finding_kind kind) {
  std::uint64_t first = 0;
  std::uint64_t last = 0;
  for (const finding& one : into.findings) {
    if (one.kind != kind || !one.number) continue;
    if (first == 0 || *one.number < first) first = *one.number;
    last = std::max(last, *one.number);
  }
  into.counts[kind] = std::max<std::size_t>(into.counts[kind], last);
  if (first <= 1) return;
  into.marks.push_back(fmt::format("{}: {} {} rotated away, the log keeps the newest only",
                                   log.name, first == 2 ? "1" : fmt::format("1 to {}", first - 1),
                                   first == 2 ? "was" : "were"));
}

void read_channel(run& into, const channel_log& log, std::size_t back, finding_kind kind) {
  if (back == 0) into.marks.insert(into.marks.end(), log.marks.begin(), log.marks.end());
  const log_run* of = run_at(log, back);
  if (of == nullptr) return;
  for (const log_entry& entry : of->entries) {
    finding one = finding_from(into, entry, kind);
    if (kind == finding_kind::failure && !entry.has_trace) one.kind = finding_kind::note;
    ++into.counts[one.kind];
    into.findings.push_back(std::move(one));
  }
  if (kind == finding_kind::inconsistency || kind == finding_kind::programming)
    note_gap(into, log, kind);
}

// The bundle manager's report: a line at the margin names bundles, indented lines are its details.
void read_health(run& into, const channel_log& log) {
  const log_run* of = run_at(log, 0);
  if (of == nullptr) return;
  for (const log_entry& entry : of->entries) {
    std::size_t line = entry.line;
    std::string_view rest = entry.text;
    std::size_t first = into.findings.size();
    for (; !rest.empty(); ++line) {
      const std::size_t end = std::min(rest.find('\n'), rest.size());
      const std::string_view text = rest.substr(0, end);
      rest.remove_prefix(std::min(end + 1, rest.size()));
      const auto bundles = bundles_in(text);
      if (bundles.empty()) {
        for (std::size_t i = first; i < into.findings.size() && text.starts_with(" "); ++i)
          into.findings[i].text.append("\n").append(text);
        continue;
      }
      first = into.findings.size();
      for (const std::string& bundle : bundles) {
        finding one;
        one.code = code_of_health;
        one.kind = finding_kind::health;
        one.object = {object_kind::bundle, bundle, bundle};
        one.of = layer::pi;
        one.text = text;
        one.time = entry.time;
        one.log = entry.file;
        one.line = line;
        into.findings.push_back(std::move(one));
        ++into.counts[finding_kind::health];
      }
    }
  }
}

// The bundle that an entry belongs to, by its name or by its LAG id.
std::string bundle_of_entry(const run& of, std::string_view description) {
  const auto named = bundles_in(description);
  if (!named.empty()) return named.front();
  for (const std::string_view word : {"Lag ", "LAG "}) {
    if (!description.starts_with(word)) continue;
    const std::string_view id = description.substr(
        word.size(), std::min(description.find('_'), description.size()) - word.size());
    for (const auto& [lag, bundles] : of.lag_ids)
      if (of.texts.text(lag) == id && !bundles.empty())
        return of.objects[of.objects[bundles.front()].bundle].name;
  }
  return {};
}

finding stale_entry(const run& of, std::string_view label, std::string_view description) {
  finding one;
  one.code = code_of_stale;
  one.kind = finding_kind::stale;
  const mention named = mentioned_in(of, description);
  one.object = {object_kind::entry, bundle_of_entry(of, description), std::string(description)};
  one.node = named.node;
  one.npu = named.npu;
  one.of = layer_named(label);
  one.what = field::presence;
  one.text = fmt::format("stale entry in {}: {}", label, description);
  one.log = stale_log;
  return one;
}

}  // namespace

log_set read_logs(const std::string& folder) {
  return {folder,
          read_channel_log(folder, "tessel_exception.log"),
          read_channel_log(folder, "tessel_inconsistencies.log"),
          read_channel_log(folder, "tessel_programming_error.log"),
          read_channel_log(folder, "tessel_delay_delete.log"),
          read_channel_log(folder, "tessel_bundle_health.log")};
}

std::vector<std::string> starts_of(const log_set& logs) {
  // Each run writes its start into each log; a log that overflowed has lost the older ones.
  std::size_t most = 0;
  for (const channel_log* log :
       {&logs.exception, &logs.inconsistent, &logs.programming, &logs.delay_delete})
    most = std::max(most, log->runs.size());
  std::vector<std::string> starts(most);
  for (const channel_log* log :
       {&logs.delay_delete, &logs.programming, &logs.inconsistent, &logs.exception}) {
    for (std::size_t back = 0; back < log->runs.size(); ++back) {
      const std::string& started = log->runs[log->runs.size() - 1 - back].started;
      if (!started.empty()) starts[most - 1 - back] = started;
    }
  }
  return starts;
}

void read_findings(run& into, const log_set& logs, std::size_t back) {
  const auto starts = starts_of(logs);
  if (back < starts.size()) into.started = starts[starts.size() - 1 - back];
  read_channel(into, logs.exception, back, finding_kind::failure);
  read_channel(into, logs.inconsistent, back, finding_kind::inconsistency);
  read_channel(into, logs.programming, back, finding_kind::programming);
  read_channel(into, logs.delay_delete, back, finding_kind::delay_delete);
  if (back == 0) read_health(into, logs.health);
}

void read_debug_notes(run& into) {
  for (const std::string& text : into.debug_notes) {
    if (!recognise(text)) continue;
    const log_entry entry = {{}, text, "tessel_debug.log", 0, false};
    into.findings.push_back(finding_from(into, entry, finding_kind::note));
  }
}

void read_stale_entries(run& into, const std::string& folder) {
  std::vector<finding> entries;
  dump_taker taker;
  taker.line = [&](std::string_view line) {
    if (line == "'Started Tessel Checker'") entries.clear();
  };
  taker.value = [&](std::string_view label, dump_path path, std::string_view value) {
    constexpr std::size_t depth_of_entry = 2;
    if (path.size() == depth_of_entry && path[1] == "Node Description")
      entries.push_back(stale_entry(into, label, value));
  };
  try {
    for (std::string& mark : read_dumps(fmt::format("{}/{}", folder, stale_log), taker))
      into.marks.push_back(std::move(mark));
  } catch (const read_error& error) {
    into.marks.emplace_back(error.what());
  }
  into.counts[finding_kind::stale] += entries.size();
  std::move(entries.begin(), entries.end(), std::back_inserter(into.findings));
}

}  // namespace desk
