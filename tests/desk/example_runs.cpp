#include "tests/desk/example_runs.h"

#include <fmt/format.h>

#include <string_view>
#include <utility>

namespace desk {

namespace {

using std::string;

constexpr std::string_view start = "2026-11-22 11:01:03,219";

object_ref ref(object_kind kind, string bundle, string name) {
  object_ref made;
  made.kind = kind;
  made.bundle = std::move(bundle);
  made.name = std::move(name);
  return made;
}

object_ref bundle_ref(const string& name) {
  return ref(object_kind::bundle, name, name);
}

string node_name(std::size_t index) {
  return fmt::format("0/{}/CPU0", index);
}

void add_node(run& to, const string& name) {
  node made;
  made.name = name;
  made.id = "4096";
  made.address = "172.0.1.0";
  made.asic = "J2C";
  made.role = "Active";
  made.band = "FINAL";
  made.type = "LC";
  made.takes_part = true;
  made.has_supported_asic = true;
  made.npus = {"0", "1"};
  to.nodes.push_back(made);
}

void add_coverage(run& to, layer of, const string& node, coverage_state state,
                  const string& reason = "", const string& command = "") {
  coverage made;
  made.of = of;
  made.node = node;
  made.state = state;
  made.reason = reason;
  made.command = command;
  to.covered.push_back(made);
}

void add_bundle(judged_run& to, const string& name, verdict is) {
  const auto at = to.of.object_at(object_kind::bundle, name, name);
  to.of.objects[at].is_configured = true;
  for (std::size_t node = 0; node < to.of.nodes.size(); ++node)
    to.of.objects[at].cells.push_back({field::lif, source::l2port, static_cast<std::int16_t>(node),
                                       no_place, to.of.texts.keep("0x14000")});
  to.of.object_at(object_kind::member, name, "0/0/0/" + name.substr(2));
  to.of.object_at(object_kind::sub_bundle, name, name + ".100");
  bundle_verdict made;
  made.bundle = name;
  made.is = is;
  to.bundles.push_back(made);
}

// A complete run with nodes that answered.
judged_run run_with_nodes(std::size_t nodes) {
  judged_run made;
  made.of.started = start;
  made.of.router_type = "birch";
  made.of.origin = "/var/log/audit";
  made.of.has_journal = true;
  made.of.log_of_commands.emplace();
  made.of.log_of_commands->time = "2026-11-22T11:01:03.219Z";
  made.of.log_of_commands->is_finished = true;
  made.of.log_of_commands->seconds = 12.5;
  made.of.end = run_end::complete;
  made.of.has_snapshot = true;
  made.of.has_chip_tables = true;
  add_coverage(made.of, layer::config, "", coverage_state::read);
  add_coverage(made.of, layer::pi, "", coverage_state::read);
  for (std::size_t i = 0; i < nodes; ++i) {
    add_node(made.of, node_name(i));
    for (const auto of : {layer::pd, layer::dpa, layer::bcm})
      add_coverage(made.of, of, node_name(i), coverage_state::read);
  }
  made.is_wholly_judged = true;
  return made;
}

std::size_t add_finding(run& to, const string& code, finding_kind kind, const object_ref& object,
                        const string& node, layer of, const string& text) {
  finding made;
  made.code = code;
  made.kind = kind;
  made.object = object;
  made.node = node;
  made.of = of;
  made.text = text;
  made.time = start;
  made.log = kind == finding_kind::inconsistency ? "tessel_inconsistencies.log"
             : kind == finding_kind::programming ? "tessel_programming_error.log"
                                                 : "tessel_exception.log";
  made.line = to.findings.size() + 1;
  ++to.counts[kind];
  to.findings.push_back(made);
  return to.findings.size() - 1;
}

// A cause of one finding, which its bundle knows.
cause& add_cause(judged_run& to, std::size_t finding, const string& title, sureness how_sure) {
  const auto& found = to.of.findings[finding];
  cause made;
  made.title = title;
  made.object = found.object;
  made.node = found.node;
  made.npu = found.npu;
  made.first = found.of;
  made.how_sure = how_sure;
  made.why = "3 of 4 nodes hold the other value";
  made.next = "Run fwd_object_show -t l2port on the node";
  made.findings = {finding};
  for (auto& bundle : to.bundles) {
    if (bundle.bundle != found.object.bundle) continue;
    bundle.is = verdict::differs;
    bundle.first = found.of;
    bundle.causes.push_back(to.causes.size());
    ++bundle.findings;
  }
  to.causes.push_back(made);
  return to.causes.back();
}

void add_witness(difference& to, source from, const string& node, decltype(witness::is) is,
                 const string& value, bool is_odd = false) {
  witness made;
  made.from = from;
  made.node = node;
  made.is = is;
  made.value = value;
  made.is_odd = is_odd;
  to.witnesses.push_back(made);
}

// The global LIF of a bundle, which one node holds differently and another was not asked for.
void add_difference(cause& to, std::size_t nodes, std::size_t odd) {
  difference made;
  made.object = to.object;
  made.what = field::lif;
  made.how_sure = to.how_sure;
  made.why = to.why;
  for (std::size_t i = 0; i < nodes; ++i) {
    const bool is_odd = i == odd;
    add_witness(made, source::l2port, node_name(i), witness::state::holds,
                is_odd ? "0x14500" : "0x14000", is_odd);
  }
  add_witness(made, source::l2intf, node_name(0), witness::state::absent, "");
  add_witness(made, source::chip_entry, node_name(0), witness::state::not_read, "no chip tables");
  to.differences.push_back(made);
}

void add_lif_fault(judged_run& to, const string& bundle, std::size_t nodes, std::size_t odd) {
  const auto found = add_finding(
      to.of, "TC-108", finding_kind::inconsistency, bundle_ref(bundle), node_name(odd), layer::dpa,
      fmt::format("Inconsistency {}:{}(0x3000004), {} GLIF is not consistent in DPA_Bundles_l2port"
                  ":0x14500,Expected:0x14000",
                  to.of.findings.size() + 1, bundle, node_name(odd)));
  to.of.findings[found].what = field::lif;
  to.of.findings[found].reported = "0x14500";
  to.of.findings[found].known = "0x14000";
  to.of.findings[found].number = found + 1;
  auto& made = add_cause(to, found,
                         fmt::format("{}: global LIF is 0x14500 on {}, 0x14000 on {} others",
                                     bundle, node_name(odd), nodes - 1),
                         sureness::majority);
  add_difference(made, nodes, odd);
}

}  // namespace

const std::vector<string>& hostile_texts() {
  using namespace std::string_literals;
  static const std::vector<string> texts = {
      "BE1\"quoted' & <b>bold</b>",
      "</script><script>alert(1)</script><!--",
      "]]> <![CDATA[ ?> -->",
      "\x1b[31mred\x1b]0;title\x07\x9b"s + "2J",
      "a\0b\x01\x7f\x0b"s,
      "\xff\xfe broken \xc3( \xe2\x82 \xed\xa0\x80 \xc0\xaf \xf5\x80\x80\x80",
      "two\nlines\r\nand\ttab",
      "pipe|back\\slash`tick${HOME}%s{}%0a;=,",
      "\xc2\x9b\xc2\x85 \xef\xbf\xbe \xef\xb7\x90 \xf0\x9f\xbf\xbf",
      "Z\xc3\xbcrich \xe2\x80\xae"
      "evil \xe2\x80\xa8 \xf0\x9f\x8c\x8d",
      "https://example.org/?a=b&c",
      string(5000, 'x') + "\xe2\x82\xac",
      " ",
  };
  return texts;
}

judged_run healthy_run() {
  judged_run made = run_with_nodes(2);
  for (const auto* name : {"BE1", "BE2", "BE10"}) add_bundle(made, name, verdict::agrees);
  const auto note = add_finding(made.of, "TC-611", finding_kind::note,
                                ref(object_kind::node, "", "0/1/CPU0"), "0/1/CPU0", layer::dpa,
                                "INFO: DPA l3intf object dont have any interface from, 0/1/CPU0");
  made.unexplained = {note};
  return made;
}

judged_run run_over_its_limit() {
  judged_run made = healthy_run();
  const auto note =
      add_finding(made.of, "TC-620", finding_kind::note, ref(object_kind::router, "", ""), "",
                  layer::config, "INFO: Allowed main bundles: 2, configured more: 3");
  add_cause(made, note, "the router: over its limit (config)", sureness::named);
  return made;
}

judged_run run_with_faults() {
  judged_run made = run_with_nodes(4);
  made.of.router = "core-7";
  for (const auto* name : {"BE1", "BE2", "BE10", "BE20"}) add_bundle(made, name, verdict::agrees);
  add_lif_fault(made, "BE1", 4, 2);
  const auto lost = add_finding(
      made.of, "TC-117", finding_kind::programming, ref(object_kind::member, "BE2", "0/0/0/2"),
      "0/0/CPU0", layer::bcm, "Programming Error 1: Member ID not found in BCM for 0/0/0/2, NPU1");
  made.of.findings[lost].npu = "1";
  add_cause(made, lost, "BE2: member 0/0/0/2 is missing in NPU 1 of 0/0/CPU0", sureness::named);
  const auto stale =
      add_finding(made.of, "TC-401", finding_kind::stale, ref(object_kind::entry, "", "LAG 77"),
                  "0/3/CPU0", layer::dpa, "Stale entry in DPA_Bundles: LAG 77");
  add_cause(made, stale, "An entry that nothing refers to: LAG 77 on 0/3/CPU0", sureness::tie);
  const auto leaving = add_finding(made.of, "TC-301", finding_kind::delay_delete,
                                   ref(object_kind::sub_bundle, "BE2", "BE2.100"), "0/1/CPU0",
                                   layer::dpa, "BE2.100(0x3000a60),0/1/CPU0 is in delay delete");
  add_cause(made, leaving, "BE2.100 is being deleted on 0/1/CPU0", sureness::two_nodes);
  const auto health = add_finding(made.of, "TC-501", finding_kind::health, bundle_ref("BE10"), "",
                                  layer::pi, "Bundle-Ether10: 1 of 2 members is not distributing");
  add_cause(made, health, "BE10: the bundle manager reports bad health", sureness::unknown);
  const auto failure =
      add_finding(made.of, "TC-000", finding_kind::failure, ref(object_kind::router, "", ""), "",
                  layer::none, "Traceback (most recent call last):\n  File \"x\", line 1");
  made.unexplained = {failure};
  return made;
}

judged_run run_not_judged() {
  judged_run made = run_with_nodes(2);
  add_bundle(made, "BE1", verdict::agrees);
  add_bundle(made, "BE2", verdict::not_judged);
  made.bundles[1].not_judged = {"DPA on 0/1/CPU0: ssh timed out", "BCM on 0/1/CPU0: never asked"};
  add_node(made.of, "0/9/CPU0");
  add_coverage(made.of, layer::dpa, "0/9/CPU0", coverage_state::failed, "ssh: connection timed out",
               "ssh 172.0.9.0 fwd_object_show -t lagport");
  add_coverage(made.of, layer::bcm, "0/9/CPU0", coverage_state::never_asked,
               "the node did not answer");
  made.of.covered.back().npu = "0";
  made.of.marks = {"The node 0/9/CPU0 did not answer."};
  made.is_wholly_judged = false;
  return made;
}

judged_run run_with_two_notations() {
  judged_run made = run_with_nodes(2);
  add_bundle(made, "BE1", verdict::not_judged);
  finding& one = made.of.findings.emplace_back();
  one.code = "TC-106";
  one.kind = finding_kind::inconsistency;
  one.object = {object_kind::bundle, "BE1", "BE1"};
  one.what = field::rif;
  one.reported = "0x00000011";
  one.known = "0x11";
  made.of.counts = {{finding_kind::inconsistency, 1}};
  cause& why = made.causes.emplace_back();
  why.title = "BE1: RIF: 0x00000011 and 0x11 are one value in two notations";
  why.object = one.object;
  why.findings = {made.of.findings.size() - 1};
  made.bundles[0].not_judged = {why.title};
  made.is_wholly_judged = false;
  return made;
}

judged_run run_that_stopped() {
  judged_run made;
  made.of.origin = "tessel.packed";
  made.of.end = run_end::stopped;
  made.of.marks = {"The audit stopped: the bundle manager shows no bundle."};
  return made;
}

judged_run hostile_run() {
  judged_run made = run_with_nodes(0);
  const auto& texts = hostile_texts();
  made.of.started = texts[0];
  made.of.log_of_commands->time = texts[0];
  made.of.complaints = texts;
  made.of.lost_logs = texts;
  made.of.cut_logs = texts;
  made.of.debug_notes = texts;
  made.of.router_type = texts[1];
  made.of.marks = texts;
  for (std::size_t i = 0; i < texts.size(); ++i) {
    const string& one = texts[i];
    const string& other = texts[(i + 3) % texts.size()];
    made.of.origin += one;
    made.of.router += other;
    add_node(made.of, one);
    made.of.nodes.back().npus = {one, other};
    made.of.nodes.back().asic = one;
    add_bundle(made, "BE" + one, i % 2 == 0 ? verdict::agrees : verdict::not_judged);
    made.bundles.back().not_judged = {other};
    add_coverage(made.of, layer::dpa, one, coverage_state::failed, one, one);
    made.of.covered.back().npu = other;
    const auto found = add_finding(made.of, "TC-108" + one, finding_kind::inconsistency,
                                   bundle_ref("BE" + one), one, layer::dpa, one);
    auto& finding = made.of.findings[found];
    finding.npu = one;
    finding.reported = one;
    finding.known = other;
    finding.time = one;
    finding.log = one;
    auto& why = add_cause(made, found, one, sureness::majority);
    why.why = one;
    why.next = one;
    add_difference(why, 2, 1);
    for (auto& witness : why.differences[0].witnesses) witness.node = witness.value = one;
    const auto alone = add_finding(made.of, "TC-000", finding_kind::failure,
                                   ref(object_kind::entry, one, one), one, layer::none, one);
    made.unexplained.push_back(alone);
  }
  return made;
}

judged_run large_run(std::size_t bundles, std::size_t nodes) {
  judged_run made = run_with_nodes(nodes);
  for (std::size_t i = 1; i <= bundles; ++i)
    add_bundle(made, fmt::format("BE{}", i), verdict::agrees);
  for (std::size_t i = 1; i <= bundles; i += 3)
    add_lif_fault(made, fmt::format("BE{}", i), nodes, i % nodes);
  return made;
}

namespace {

merged_router router_named(const string& name, judged_run of) {
  merged_router made;
  made.name = name;
  made.file = "reports/" + name + ".json";
  made.of = std::move(of);
  keep_for_merge(made.of);
  return made;
}

merged_router unread_router(const string& name, const string& trouble) {
  merged_router made;
  made.name = name;
  made.file = "reports/" + name + ".json";
  made.trouble = trouble;
  return made;
}

// The finding about each of these causes is new.
void add_earlier(merged_router& to, const string& file,
                 const std::vector<std::size_t>& new_causes) {
  to.earlier.push_back({file, "2026-11-21 11:01:03,219"});
  to.new_findings.assign(to.of.of.findings.size(), false);
  to.new_causes.assign(to.of.causes.size(), false);
  for (const std::size_t at : new_causes) {
    to.new_causes[at] = true;
    for (const std::size_t each : to.of.causes[at].findings) to.new_findings[each] = true;
  }
}

judged_run run_with_stale_entry() {
  judged_run made = healthy_run();
  const auto stale =
      add_finding(made.of, "TC-401", finding_kind::stale, ref(object_kind::entry, "", "LAG 77"),
                  "0/1/CPU0", layer::dpa, "Stale entry in DPA_Bundles: LAG 77");
  add_cause(made, stale, "An entry that nothing refers to: LAG 77 on 0/1/CPU0", sureness::named);
  made.is_wholly_judged = false;
  return made;
}

}  // namespace

std::vector<merged_router> routers_of_a_network() {
  std::vector<merged_router> made;
  made.push_back(router_named("edge-1", healthy_run()));
  made.push_back(router_named("core-7", run_with_faults()));
  add_earlier(made.back(), "reports/core-7.old.json", {1, 4});
  made.push_back(router_named("core-2", run_not_judged()));
  made.push_back(router_named("core-1", run_with_stale_entry()));
  made.push_back(router_named("edge-9", run_that_stopped()));
  made.push_back(
      unread_router("edge-3", "cannot read reports/edge-3.json: line 1: this is no JSON"));
  sort_routers(made);
  return made;
}

std::vector<merged_router> hostile_routers() {
  std::vector<merged_router> made;
  for (const string& text : hostile_texts()) {
    made.push_back(router_named(text, hostile_run()));
    made.back().file = text;
    add_earlier(made.back(), text, {0, 2});
    made.back().earlier.back().started = text;
    made.push_back(unread_router(text, text));
  }
  sort_routers(made);
  return made;
}

std::vector<merged_router> many_routers(std::size_t number) {
  std::vector<merged_router> made;
  for (std::size_t i = 0; i < number; ++i) {
    const string name = fmt::format("router-{:04}", i);
    if (i % 50 == 1)
      made.push_back(unread_router(name, "cannot read it: Permission denied"));
    else
      made.push_back(router_named(name, i % 10 == 0 ? run_with_faults() : healthy_run()));
  }
  sort_routers(made);
  return made;
}

}  // namespace desk
