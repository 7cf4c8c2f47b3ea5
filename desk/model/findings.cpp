#include "desk/model/findings.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <map>
#include <set>
#include <span>

#include "desk/model/catalogue.h"
#include "desk/model/mentions.h"
#include "desk/model/numbers.h"
#include "desk/read/line_reader.h"
#include "desk/read/snapshot.h"

namespace desk {

namespace {

constexpr std::string_view stale_log = "tessel_stale_entries.log";
constexpr std::string_view debug_log = "tessel_debug.log";
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
  into.known = lag_id_in(message.at("known"));
  const std::string_view named = message.at("layer");
  into.of = named.empty() ? message.entry->of : layer_named(named);
  // The layers and the chips share this message; only the chips have NPUs.
  if (into.code == "TC-739" && !into.npu.empty()) into.of = layer::bcm;
  const std::string_view number = message.at("number");
  std::uint64_t count = 0;
  const auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), count);
  if (error == std::errc{} && end != number.data()) into.number = count;
  if (const std::string_view npu = message.at("npu"); !npu.empty()) into.npu = npu;
  // The reason of a failure may name another node.
  if (const std::string_view node = message.at("node"); !node.empty()) {
    into.node = node;
    if (into.object.kind == object_kind::node) into.object.name = node;
  }
  std::string member(message.at("member"));
  if (member.empty() || into.object.kind != object_kind::bundle) return;
  // The forwarding layer writes a port's name with underscores.
  std::replace(member.begin(), member.end(), '_', '/');
  // Before the numbers stands the type, in which there may be another one.
  const std::size_t type = member.find_last_not_of("0123456789/");
  const std::string tail = type == std::string::npos ? member : member.substr(type + 1);
  into.object = {object_kind::member, into.object.bundle, tail.empty() ? member : tail};
}

// The messages about too much weight name the numbers only. As many of them as there are places
// with these numbers have one each. Otherwise the check of some places ended before, or messages
// are lost, and they have what all of the places share.
void place_weights(const run& of, mention_finder& names, std::span<finding> findings) {
  std::map<std::pair<std::string, std::string>, std::vector<finding*>> messages;
  for (finding& one : findings)
    if (one.what == field::weight) messages[{one.reported, one.known}].push_back(&one);
  for (const auto& [numbers, same] : messages) {
    const auto& places = names.weighing(numbers.first, numbers.second);
    if (places.empty()) continue;
    const auto& first = places.front();
    const bool is_one_each = places.size() == same.size();
    const bool is_one_bundle = std::all_of(
        places.begin(), places.end(), [&](const auto& place) { return place.one == first.one; });
    const bool is_one_node = std::all_of(
        places.begin(), places.end(), [&](const auto& place) { return place.node == first.node; });
    for (std::size_t i = 0; i < same.size(); ++i) {
      const auto& place = is_one_each ? places[i] : first;
      if (is_one_each || is_one_bundle)
        same[i]->object = {place.one->kind, of.objects[place.one->bundle].name, place.one->name};
      if (place.node != no_place && (is_one_each || is_one_node))
        same[i]->node = of.nodes[static_cast<std::size_t>(place.node)].name;
    }
  }
}

// "interface Bundle-Ether1.200": the lines behind it may name anything.
std::string_view head_of(std::string_view stanza) {
  constexpr std::string_view word = "interface Bundle-Ether";
  const std::size_t at = std::min(stanza.find(word), stanza.size());
  return stanza.substr(at, std::min(stanza.find(' ', at + word.size()), stanza.size()) - at);
}

finding finding_from(mention_finder& names, const log_entry& entry, finding_kind kind) {
  finding made;
  made.kind = kind;
  made.text = entry.text;
  made.time = entry.time;
  made.log = entry.file;
  made.line = entry.line;
  made.code = code_of_unknown;
  const auto message = recognise(entry.text);
  // The cause of a failure may name another object than the one that could not be verified.
  std::string_view object = message ? message->at("object") : std::string_view{};
  if (message && object.empty()) object = head_of(message->at("stanza"));
  // A whole pass has ended, whatever it stumbled over.
  const bool is_of_all = message && !message->at("reason").empty();
  mention named = is_of_all ? mention{} : object.empty() ? names.in(entry.text) : names.in(object);
  made.object = std::move(named.object);
  made.node = std::move(named.node);
  made.npu = std::move(named.npu);
  if (message) take_blanks(made, *message);
  return made;
}

// A log that is there without a start of the last run: the run could not write it, or ended before.
// One that it has passed by lost its start later.
void note_unwritten(run& into, const log_set& logs, const run_in_logs& of) {
  const auto all = all_of(logs);
  const auto last_written =
      std::find_if(of.in.rbegin(), of.in.rend(), [](const log_run* one) { return one != nullptr; });
  const auto written = static_cast<std::size_t>(of.in.rend() - last_written);
  for (std::size_t log = 0; log < all.size(); ++log) {
    const bool is_there = all[log]->is_read;
    if (is_there && of.in[log] == nullptr) {
      if (log >= written) into.unwritten.push_back(all[log]->name);
      into.marks.push_back(
          fmt::format("{}: it holds nothing of this run, not even its start", all[log]->name));
    }
    if (!is_there || of.in[log] == nullptr) into.lost_logs.push_back(all[log]->name);
  }
}

void note_doubt(run& into, const std::vector<run_in_logs>& runs, std::size_t at) {
  const std::string doubt = doubt_about(runs, at);
  if (!doubt.empty())
    into.marks.push_back(fmt::format("of which run a start in the logs is, is unknown: {}", doubt));
}

// A MAC of Jericho2 that differs: the audit counts it as a programming error, but writes only that
// it could not go on.
bool is_mac_of_chip(const finding& one) {
  return one.code == "TC-739" && one.text.starts_with("the chip's MAC ");
}

// A counter's lines carry its value, so a run whose first lines were rotated away shows it.
void note_gap(run& into, const channel_log& log, finding_kind kind) {
  std::uint64_t first = 0;
  std::uint64_t last = 0;
  std::uint64_t without_line = 0;
  std::set<std::uint64_t> numbers;
  for (const finding& one : into.findings) {
    if (is_mac_of_chip(one)) ++without_line;
    if (one.kind != kind || !one.number) continue;
    if (first == 0 || *one.number < first) first = *one.number;
    last = std::max(last, *one.number);
    numbers.insert(*one.number);
  }
  into.counts[kind] = std::max<std::size_t>(into.counts[kind], last);
  // A MAC of Jericho2 took a number, but no line of this log.
  if (kind != finding_kind::programming) without_line = 0;
  if (first > 1 + without_line) {
    into.cut_logs.push_back(log.name);
    into.marks.push_back(fmt::format("{}: {} {} rotated away, the log keeps the newest only",
                                     log.name, first == 2 ? "1" : fmt::format("1 to {}", first - 1),
                                     first == 2 ? "was" : "were"));
    if (const std::uint64_t behind = last - first + 1; behind > numbers.size())
      into.marks.push_back(fmt::format("{}: {} of the messages {} to {} are missing as well",
                                       log.name, behind - numbers.size(), first, last));
  } else if (last > numbers.size() + without_line) {
    into.cut_logs.push_back(log.name);
    into.marks.push_back(fmt::format("{}: {} of {} messages are missing, they could not be written",
                                     log.name, last - numbers.size() - without_line, last));
  }
}

// A run without its start line: the log keeps the newest only.
void note_lost_start(run& into, const channel_log& log, const log_run& of) {
  const auto& cut = into.cut_logs;
  if (!of.started.empty() || std::find(cut.begin(), cut.end(), log.name) != cut.end()) return;
  into.cut_logs.push_back(log.name);
  into.marks.push_back(
      fmt::format("{}: the start of the run was rotated away, and what stood behind "
                  "it",
                  log.name));
}

void read_channel(run& into, mention_finder& names, const channel_log& log, const log_run* of,
                  finding_kind kind) {
  if (of == nullptr) return;
  for (const log_entry& entry : of->entries) {
    finding one = finding_from(names, entry, kind);
    if (kind == finding_kind::failure && !entry.has_trace) one.kind = finding_kind::note;
    if (is_mac_of_chip(one)) {
      one.kind = finding_kind::programming;
      one.what = field::mac;
      ++into.counts[finding_kind::failure];
    }
    if (is_counted_by_audit(one)) ++into.counts[one.kind];
    into.findings.push_back(std::move(one));
  }
  if (kind == finding_kind::inconsistency || kind == finding_kind::programming)
    note_gap(into, log, kind);
  note_lost_start(into, log, *of);
}

// The report is another tool's: a line of it may name thousands of bundles.
constexpr std::size_t most_bundles_of_line = 1000;
constexpr std::size_t longest_health_text = 4096;

finding health_of(const log_entry& entry, std::size_t line, const std::string& bundle,
                  std::string_view text) {
  finding one;
  one.code = code_of_health;
  one.kind = finding_kind::health;
  if (!bundle.empty()) one.object = {object_kind::bundle, bundle, bundle};
  one.of = layer::pi;
  one.text = text.substr(0, longest_health_text);
  one.time = entry.time;
  one.log = entry.file;
  one.line = line;
  return one;
}

// The findings of one line all have the same text.
void add_detail(std::span<finding> to, std::string_view text) {
  if (to.empty() || to.front().text.size() + text.size() >= longest_health_text) return;
  for (finding& one : to) one.text.append("\n").append(text);
}

// What the audit counts in a line of the report, and the bundles that can be told from it.
struct named_in_health {
  std::size_t count = 0;
  std::vector<std::string> bundles;
};

named_in_health named_in(std::string_view line) {
  constexpr std::string_view word = "Bundle-Ether";
  named_in_health made;
  std::set<std::string> known;
  for (std::size_t at = line.find(word); at != std::string_view::npos; at = line.find(word, at)) {
    ++made.count;
    at += word.size();
    const std::string_view rest = line.substr(at);
    const std::string_view digits =
        rest.substr(0, std::min(rest.find_first_not_of("0123456789"), rest.size()));
    std::string name = digits.empty() ? std::string() : fmt::format("BE{}", digits);
    if (!name.empty() && known.insert(name).second) made.bundles.push_back(std::move(name));
  }
  return made;
}

// A line with the word at the margin is about bundles, the lines behind it are its details.
void read_health_entry(run& into, const log_entry& entry) {
  std::size_t line = entry.line;
  std::string_view rest = entry.text;
  std::size_t first = into.findings.size();
  for (; !rest.empty(); ++line) {
    const std::size_t end = std::min(rest.find('\n'), rest.size());
    const std::string_view text = rest.substr(0, end);
    rest.remove_prefix(std::min(end + 1, rest.size()));
    auto [count, bundles] = named_in(text);
    if (count == 0) {
      add_detail(std::span(into.findings).subspan(first), text);
      continue;
    }
    if (bundles.size() > most_bundles_of_line) {
      into.marks.push_back(fmt::format("{}:{}: it names {} bundles, the first {} are shown",
                                       entry.file, line, bundles.size(), most_bundles_of_line));
      bundles.resize(most_bundles_of_line);
      into.cut_logs.emplace_back("tessel_bundle_health.log");
    }
    first = into.findings.size();
    into.counts[finding_kind::health] += count;
    if (bundles.empty()) into.findings.push_back(health_of(entry, line, {}, text));
    for (const std::string& bundle : bundles)
      into.findings.push_back(health_of(entry, line, bundle, text));
  }
}

void read_health(run& into, const log_run* of) {
  if (of == nullptr) return;
  for (const log_entry& entry : of->entries) read_health_entry(into, entry);
}

// The id of the LAG that an entry describes, if anything has it.
std::optional<text_id> lag_of_entry(const run& of, std::string_view description) {
  // Jericho2 has the number alone: "0x55_npu0_node4096".
  for (const std::string_view word : {"Lag ", "LAG ", ""}) {
    if (!description.starts_with(word)) continue;
    if (word.empty() && description.find("_npu") == std::string_view::npos) break;
    const std::string_view id = description.substr(
        word.size(), std::min(description.find('_'), description.size()) - word.size());
    const auto known = of.texts.find(id);
    if (known && of.lag_ids.contains(*known)) return known;
  }
  return {};
}

// The bundle that an entry belongs to, by its name or by its LAG id.
std::string bundle_of_entry(const run& of, std::string_view description) {
  const auto named = bundles_in(description);
  if (!named.empty()) return named.front();
  const auto lag = lag_of_entry(of, description);
  return lag ? of.objects[of.objects[of.lag_ids.at(*lag).front()].bundle].name : std::string();
}

// With hierarchical QoS a sub-bundle has a LAG of its own in the chips. The audit looks for it and
// does not mark it, so its search lists the LAG if that has members.
const object* unmarked_sub_bundle(const run& of, std::string_view label,
                                  std::string_view description, const mention& place) {
  if (label != "BCM") return nullptr;
  const auto lag = lag_of_entry(of, description);
  if (!lag) return nullptr;
  const auto found = of.sub_bundle_lags.find({*lag, of.node_index(place.node), npu_in(place.npu)});
  return found == of.sub_bundle_lags.end() ? nullptr : &of.objects[found->second];
}

finding stale_entry(const run& of, mention_finder& names, std::string_view label,
                    std::string_view description) {
  finding one;
  one.code = code_of_stale;
  one.kind = finding_kind::stale;
  const mention named = names.in(description);
  one.object = {object_kind::entry, bundle_of_entry(of, description), std::string(description)};
  one.node = named.node;
  one.npu = named.npu;
  one.of = layer_named(label);
  one.what = field::presence;
  one.text = fmt::format("stale entry in {}: {}", label, description);
  one.log = stale_log;
  if (const object* sub = unmarked_sub_bundle(of, label, description, named)) {
    one.code = code_of_unmarked;
    one.kind = finding_kind::note;
    one.text = fmt::format(
        "not stale, though listed so in {}: {}; it is the LAG of {}, and with hierarchical QoS the "
        "audit marks no LAG of a sub-bundle as visited",
        label, description, sub->name);
  }
  return one;
}

// The record of a member keeps the MTU of its port object where the interface listing has none.
void take_mtu_of_port(run& into, const finding& unlisted) {
  const object* member =
      into.find(object_kind::member, unlisted.object.bundle, unlisted.object.name);
  if (member == nullptr) return;
  const auto index = static_cast<std::size_t>(member - into.objects.data());
  auto& cells = into.objects[index].cells;
  const auto mtu = std::find_if(cells.begin(), cells.end(),
                                [](const cell& c) { return c.from == source::interfaces; });
  if (mtu == cells.end()) return;
  into.places[index].mtu = mtu->value;
  std::erase_if(cells, [](const cell& c) { return c.from == source::interfaces; });
}

}  // namespace

bool is_counted_by_audit(const finding& one) {
  constexpr std::array uncounted = {"TC-603", "TC-604", "TC-765", "TC-766"};
  return one.log != debug_log &&
         std::find(uncounted.begin(), uncounted.end(), one.code) == uncounted.end();
}

void read_findings(run& into, const log_set& logs, const std::vector<run_in_logs>& runs,
                   std::size_t back) {
  const run_in_logs of = back < runs.size() ? runs[runs.size() - 1 - back] : run_in_logs{};
  into.started = of.started;
  if (back == 0)
    for (const channel_log* log : all_of(logs))
      into.marks.insert(into.marks.end(), log->marks.begin(), log->marks.end());
  mention_finder names(into);
  read_channel(into, names, logs.exception, of.in[0], finding_kind::failure);
  read_channel(into, names, logs.inconsistent, of.in[1], finding_kind::inconsistency);
  place_weights(into, names, into.findings);
  read_channel(into, names, logs.programming, of.in[2], finding_kind::programming);
  read_channel(into, names, logs.delay_delete, of.in[3], finding_kind::delay_delete);
  // Nor does the table count what is leaving, unless something is inconsistent.
  if (of.in[1] != nullptr && into.counts[finding_kind::inconsistency] == 0)
    into.counts[finding_kind::delay_delete] = 0;
  if (back < runs.size()) note_doubt(into, runs, runs.size() - 1 - back);
  if (back != 0) return;
  for (const finding& one : into.findings)
    if (one.code == "TC-743") take_mtu_of_port(into, one);
  read_health(into, of.in[4]);
  note_unwritten(into, logs, of);
}

void read_debug_notes(run& into) {
  mention_finder names(into);
  for (const std::string& text : into.debug_notes) {
    const log_entry entry = {{}, text, std::string(debug_log), 0, false};
    into.findings.push_back(finding_from(names, entry, finding_kind::note));
  }
}

namespace {

// The stale entries of the last run in their log.
struct stale_part {
  std::vector<finding> entries;
  std::map<std::string, std::size_t, std::less<>> listed;   // by layer
  std::map<std::string, std::size_t, std::less<>> counted;  // as the audit counts them
  std::size_t starts = 0;                                   // of all runs
  std::size_t older_marks = 0;                              // of dumps of the runs before
};

// "'Number of stale entries in PI 3'".
void take_count(stale_part& into, std::string_view line) {
  constexpr std::string_view words = "'Number of stale entries in ";
  if (!line.starts_with(words) || !line.ends_with('\'')) return;
  line.remove_prefix(words.size());
  line.remove_suffix(1);
  const std::size_t blank = line.find(' ');
  if (blank == std::string_view::npos) return;
  const auto number = number_in(line.substr(blank + 1));
  if (number) into.counted[std::string(line.substr(0, blank))] = *number;
}

stale_part read_stale_part(run& into, const std::string& folder) {
  stale_part made;
  std::size_t not_whole = 0;
  mention_finder names(into);
  dump_taker taker;
  taker.ended = [&](std::string_view, dump_end how) {
    not_whole += how == dump_end::whole ? 0 : 1;
  };
  taker.line = [&](std::string_view line) {
    take_count(made, line);
    if (line != "'Started Tessel Checker'") return;
    const std::size_t starts = made.starts + 1;
    made = {};
    made.starts = starts;
    made.older_marks = not_whole;
  };
  taker.value = [&](std::string_view label, dump_path path, std::string_view value) {
    constexpr std::size_t depth_of_entry = 2;
    if (path.size() != depth_of_entry || path[1] != "Node Description") return;
    made.entries.push_back(stale_entry(into, names, label, value));
    ++made.listed[std::string(label)];
  };
  std::vector<std::string> marks = read_dumps(fmt::format("{}/{}", folder, stale_log), taker);
  const auto first = marks.begin() + static_cast<std::ptrdiff_t>(made.older_marks);
  std::move(first, marks.end(), std::back_inserter(into.marks));
  return made;
}

// Any finding, failure or note before it that is counted keeps the audit from looking for stale
// entries. Bundle health comes behind the search, and so do these failures, or they are its own.
bool is_kept_from_stale(const run& of) {
  constexpr std::array behind = {"TC-762", "TC-763", "TC-764"};
  return std::any_of(of.findings.begin(), of.findings.end(), [&](const finding& one) {
    return one.kind != finding_kind::delay_delete && one.kind != finding_kind::health &&
           is_counted_by_audit(one) &&
           std::find(behind.begin(), behind.end(), one.code) == behind.end();
  });
}

void lose_stale(run& into, std::string why) {
  into.lost_logs.emplace_back(stale_log);
  into.marks.push_back(std::move(why));
}

// Each run writes its start into this log, which is never rotated. One that cannot ends at once, so
// behind one with a snapshot somebody has emptied the log.
void lose_start_of_stale(run& into) {
  if (!into.has_begun_all_logs()) return into.unwritten.push_back(std::string(stale_log));
  lose_stale(into, fmt::format("{}: it holds nothing of this run, not even its start", stale_log));
}

void lose_owner_of_stale(run& into, bool lacks_starts) {
  lose_stale(into,
             fmt::format("{}: without a snapshot nobody knows of which run its last entries "
                         "are{}",
                         stale_log,
                         lacks_starts ? "; it has fewer starts than the other logs, so it was "
                                        "begun anew, or a run could not write it"
                                      : ""));
}

bool has_failed_to_look(const run& of) {
  return std::any_of(of.findings.begin(), of.findings.end(),
                     [](const finding& one) { return one.code == "TC-762"; });
}

void check_counts(run& into, const stale_part& part) {
  for (const auto& [label, count] : part.counted) {
    const auto listed = part.listed.find(label);
    const std::size_t found = listed == part.listed.end() ? 0 : listed->second;
    if (found == count) continue;
    return lose_stale(
        into, fmt::format("{} lists {} of {} stale entries in {}", stale_log, found, count, label));
  }
}

}  // namespace

void read_stale_entries(run& into, const std::string& folder, std::size_t runs) {
  stale_part part;
  try {
    part = read_stale_part(into, folder);
  } catch (const read_error& error) {
    return lose_stale(into, error.what());
  }
  if (part.starts == 0) return lose_start_of_stale(into);
  // They may be those of the run before: this log has no times.
  if (!into.has_begun_all_logs()) return lose_owner_of_stale(into, part.starts < runs);
  constexpr std::size_t layers = 4;
  if (part.counted.size() == layers)
    into.stale = stale_search::done;
  else if (part.counted.empty() && has_failed_to_look(into))
    lose_stale(into, fmt::format("{}: the check of stale entries failed before it could count them",
                                 stale_log));
  else if (part.counted.empty() && part.entries.empty() && is_kept_from_stale(into))
    into.stale = stale_search::skipped;
  else
    lose_stale(into, fmt::format("{} lacks the counts of the run's stale entries", stale_log));
  check_counts(into, part);
  for (const finding& one : part.entries)
    if (one.kind == finding_kind::stale) ++into.counts[finding_kind::stale];
  std::move(part.entries.begin(), part.entries.end(), std::back_inserter(into.findings));
}

}  // namespace desk
