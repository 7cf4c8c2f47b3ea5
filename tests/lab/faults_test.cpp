#include "lab/faults/faults.h"
#include "lab/base/error.h"
#include "lab/faults/render_faulty.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <optional>
#include <regex>
#include <set>

#include "lab/describe/description.h"
#include "support.h"

namespace {

using namespace lab;

// For faults so large that they would slow down every other one.
bool is_slow(const fault& f) {
  return f.name == "scale-l2-subs" || f.name == "overlong-line";
}

constexpr const char* routers[] = {"birch-small",         "elm-single",     "aspen-standby",
                                   "aspen-standby-first", "birch-untagged", "aspen-jericho2",
                                   "cedar-mixed",         "birch-odd-forms"};

router plain(const std::string& name) {
  return lab_test::rendered_router(name).r;
}

TEST(catalogue, names_are_unique_and_described) {
  std::set<std::string_view> names;
  for (const fault& f : fault_catalogue()) {
    EXPECT_TRUE(names.insert(f.name).second) << f.name;
    EXPECT_FALSE(f.description.empty()) << f.name;
    const bool of_one_argument = f.name.find('=') != std::string_view::npos;
    EXPECT_EQ(f.plant == nullptr && f.edit == nullptr, of_one_argument) << f.name;
  }
}

TEST(catalogue, arguments_belong_to_a_fault_that_takes_them) {
  std::set<std::string_view> taking;
  for (const fault& f : fault_catalogue())
    if (f.takes_argument) taking.insert(f.name);
  for (const fault& f : fault_catalogue()) {
    const std::size_t equals = f.name.find('=');
    if (equals == std::string_view::npos) continue;
    EXPECT_TRUE(taking.contains(f.name.substr(0, equals))) << f.name;
  }
}

TEST(catalogue, reach_is_from_the_checkpoint_down) {
  for (const fault& f : fault_catalogue()) {
    EXPECT_LE(f.at, f.deepest) << f.name;
    EXPECT_LE(f.stops_from == phase::none ? phase::start : f.stops_from, f.stops_to) << f.name;
  }
}

TEST(catalogue, lines_beside_a_finding_have_a_text) {
  fault one{.name = "one", .description = "a fault"};
  EXPECT_TRUE(lines_beside(one).empty());
  one.also[0] = {"first", checkpoint::pd_member};
  ASSERT_EQ(lines_beside(one).size(), 1U);
  EXPECT_EQ(lines_beside(one)[0].at, checkpoint::pd_member);
  EXPECT_EQ(lines_beside(one)[0].shown, phase::consistency);
  one.also[1] = {"second"};
  EXPECT_EQ(lines_beside(one).size(), 2U);
}

TEST(checkpoint, says_in_which_phase_its_findings_show) {
  EXPECT_EQ(phase_of(checkpoint::groundwork), phase::collecting);
  EXPECT_EQ(phase_of(checkpoint::configuration), phase::parsing);
  EXPECT_EQ(phase_of(checkpoint::pi_table), phase::collecting);
  EXPECT_EQ(phase_of(checkpoint::pi_bundle), phase::consistency);
  EXPECT_EQ(phase_of(checkpoint::chip_mtu), phase::consistency);
  EXPECT_EQ(phase_of(checkpoint::chip_domain), phase::programming);
  EXPECT_EQ(phase_of(checkpoint::chip_mac), phase::programming);
  EXPECT_EQ(phase_of(checkpoint::stale), phase::stale);
  EXPECT_EQ(phase_of(checkpoint::health_report), phase::health);
  EXPECT_EQ(phase_of(checkpoint::health_bundles), phase::health);
}

TEST(catalogue, every_fault_applies_somewhere) {
  for (const fault& f : fault_catalogue()) {
    bool somewhere = false;
    for (const char* name : routers) somewhere = somewhere || applies(plain(name), f.name);
    EXPECT_TRUE(somewhere) << f.name;
  }
}

// What the router answers with the fault planted in it; nothing if the fault does not apply.
std::optional<capture> answers_with(const fault& f, router r) {
  r.faults.push_back(parse_fault(std::string{f.name}));
  try {
    return render(r);
  } catch (const lab_error&) {
    return std::nullopt;
  }
}

// A sanitizer sees the same code wherever a fault is planted: there the first router is enough.
#ifdef TESSEL_UNDER_SANITIZER
constexpr bool in_each_router = false;
#else
constexpr bool in_each_router = true;
#endif

TEST(catalogue, every_fault_changes_the_input_of_the_audit) {
  const std::vector<fault>& catalogue = fault_catalogue();
  const auto slow_faults =
      static_cast<std::size_t>(std::count_if(catalogue.begin(), catalogue.end(), is_slow));
  std::set<std::string_view> looked_at;
  for (const char* name : routers) {
    const router r = plain(name);
    const capture healthy = render(r);
    for (const fault& f : fault_catalogue()) {
      if (is_slow(f) || (!in_each_router && looked_at.contains(f.name))) continue;
      const std::optional<capture> faulty = answers_with(f, r);
      if (!faulty) continue;
      looked_at.insert(f.name);
      const bool machine_differs = faulty->file_limit != healthy.file_limit ||
                                   faulty->tmp_kibibytes != healthy.tmp_kibibytes ||
                                   faulty->full_logs != healthy.full_logs ||
                                   faulty->blocked_captures != healthy.blocked_captures;
      EXPECT_TRUE(machine_differs || faulty->answers != healthy.answers)
          << f.name << " in " << name;
    }
  }
  EXPECT_EQ(looked_at.size() + slow_faults, fault_catalogue().size());
}

std::vector<std::string> documented_messages() {
  std::ifstream file(LAB_FINDINGS);
  const std::string text{std::istreambuf_iterator<char>(file), {}};
  const std::regex in_backticks("`([^`\n]+)`");
  std::vector<std::string> messages;
  for (std::sregex_iterator at(text.begin(), text.end(), in_backticks), end; at != end; ++at)
    messages.push_back((*at)[1]);
  return messages;
}

// A pattern in which {} and {object} match any text.
std::regex pattern_of(const std::string& message) {
  const std::string escaped =
      std::regex_replace(message, std::regex(R"([.*+?()|\[\]^$\\])"), R"(\$&)");
  return std::regex(std::regex_replace(escaped, std::regex(R"(\{\w*\})"), ".*"));
}

std::size_t fixed_words(const std::string& message) {
  return std::regex_replace(message, std::regex(R"(\{\})"), "").size();
}

TEST(catalogue, every_finding_is_a_message_of_the_audit) {
  std::vector<std::pair<std::string, std::regex>> messages;
  for (const std::string& message : documented_messages())
    if (fixed_words(message) > 10) messages.emplace_back(message, pattern_of(message));
  ASSERT_GT(messages.size(), 100U);
  const auto is_message = [&](const std::string& finding) {
    const std::regex pattern = pattern_of(finding);
    return std::any_of(messages.begin(), messages.end(), [&](const auto& message) {
      return std::regex_match(finding, message.second) || std::regex_match(message.first, pattern);
    });
  };
  for (const fault& f : fault_catalogue()) {
    for (const by_product& line : lines_beside(f))
      EXPECT_TRUE(is_message(std::string{line.finding})) << f.name << ": " << line.finding;
    if (f.finding.empty() || f.shown == phase::health) continue;  // a report, not a message
    EXPECT_TRUE(is_message(std::string{f.finding})) << f.name << ": " << f.finding;
  }
}

TEST(catalogue, model_faults_name_known_fields) {
  std::set<std::string_view> known;
  for (const field_description& field : override_fields()) known.insert(field.name);
  for (const fault& f : fault_catalogue())
    for (const char* name : routers) {
      router r = plain(name);
      planted_fault p{.name = std::string{f.name}};
      if (f.plant == nullptr || is_slow(f) || !f.plant(r, p)) continue;
      for (const override_rule& rule : r.overrides)
        EXPECT_TRUE(known.contains(rule.field)) << f.name << ": " << rule.field;
    }
}

TEST(fault, that_does_not_apply_is_reported) {
  router r = plain("elm-single");
  r.faults.push_back(parse_fault("node-not-final"));
  try {
    render(r);
    FAIL() << "a single node has no band";
  } catch (const lab_error& failure) {
    EXPECT_STREQ(failure.what(), "fault node-not-final does not apply to elm-single");
  }
}

TEST(fault, whose_answer_is_gone_does_not_apply) {
  router r = plain("birch-small");
  r.faults = {parse_fault("tool-missing=lagmgr_health"), parse_fault("health-overlong@2")};
  try {
    render(r);
    FAIL() << "nothing is there to grow";
  } catch (const lab_error& failure) {
    EXPECT_EQ(std::string{failure.what()}.find("fault health-overlong@2 does not apply to"), 0U)
        << failure.what();
  }
}

// What a node's shell says of a missing tool is no answer of the tool.
TEST(fault, leaves_a_node_whose_tool_is_missing_its_shell) {
  router r = plain("birch-small");
  r.faults = {parse_fault("tool-missing=fwd_object_show")};
  const capture c = render(r);
  const std::pair<std::string, std::string> place{"192.0.0.6", "fwd_object_show,-t,lagport,-D"};
  EXPECT_FALSE(c.answers.contains(place));
  EXPECT_EQ(c.answers.at({place.first, place.second + ";answers"}), "127 1 complains\n");
  EXPECT_EQ(c.answers.at({place.first, place.second + ";1;complaint"}),
            "sh: 1: /opt/nos/bin/fwd_object_show: not found\n");
  r.faults.push_back(parse_fault("tool-empty=fwd_object_show"));
  EXPECT_THROW(render(r), lab_error);
}

TEST(fault, name_and_argument_are_checked) {
  EXPECT_EQ(parse_fault("tool-empty=lagmgr_health").argument, "lagmgr_health");
  EXPECT_THROW(parse_fault("tool-emptied"), lab_error);
  EXPECT_THROW(parse_fault("sem-missing=BE1"), lab_error);
  EXPECT_THROW(parse_fault("tool-missing=ssh"), lab_error);
  try {
    parse_fault("log-full=../../etc/passwd");
    ADD_FAILURE() << "a path was taken for a name";
  } catch (const lab_error& failure) {
    EXPECT_STREQ(failure.what(),
                 "fault log-full: \"../../etc/passwd\" contains a slash; give the name without a "
                 "folder");
  }
  EXPECT_THROW(parse_fault("dpa-mac@x"), lab_error);
  EXPECT_THROW(parse_fault("dpa-mac@"), lab_error);
  EXPECT_THROW(parse_fault("dpa-mac@99999999999"), lab_error);
  router r = plain("elm-single");
  r.faults.push_back(parse_fault("tool-empty=no_such_tool"));
  EXPECT_THROW(render(r), lab_error);
}

TEST(fault, lag_id_differs_on_only_one_node) {
  router r = plain("birch-small");
  const capture healthy = render(r);
  r.faults.push_back(parse_fault("dpa-lag-id"));
  const capture faulty = render(r);
  std::size_t changed = 0;
  for (const auto& [key, text] : faulty.answers) changed += text != healthy.answers.at(key) ? 1 : 0;
  EXPECT_EQ(changed, 1U);
}

std::vector<planted_fault> planted(const std::string& name,
                                   const std::vector<std::string>& faults) {
  router r = plain(name);
  for (const std::string& one : faults) r.faults.push_back(parse_fault(one));
  std::vector<planted_fault> places;
  render(r, &places);
  return places;
}

TEST(fault, goes_to_the_next_place_that_suits_it) {
  const auto first = planted("birch-small", {"chip-mtu"}).front();
  EXPECT_EQ(first.object, "0/0/0/0");
  EXPECT_EQ(first.bundle, "BE1");
  EXPECT_EQ(first.node, "0/0/CPU0");
  const auto third = planted("birch-small", {"chip-mtu@2"}).front();
  EXPECT_EQ(third.object, "0/1/0/0");
  EXPECT_EQ(third.node, "0/1/CPU0");
}

std::string refusal_of(router r, const std::vector<std::string>& faults) {
  for (const std::string& fault : faults) r.faults.push_back(parse_fault(fault));
  try {
    render(r);
  } catch (const lab_error& failure) {
    return failure.what();
  }
  return "planted";
}

TEST(fault, beyond_its_places_is_refused_with_their_number) {
  const router r = plain("birch-small");
  EXPECT_EQ(refusal_of(r, {"chip-mtu@1"}), "planted");
  EXPECT_EQ(refusal_of(r, {"chip-mtu@999"}),
            "fault chip-mtu@999 does not apply to birch-small: it has 10 places there, @0 to @9");
  EXPECT_EQ(refusal_of(r, {"chip-mtu@9"}), "planted");
  EXPECT_EQ(refusal_of(r, {"chip-mtu@10"}).find("fault chip-mtu@10 does not apply"), 0U);
  // Faults that edit a tool's text, and those without places.
  EXPECT_EQ(refusal_of(r, {"tool-empty@1=cfg_render"}),
            "fault tool-empty@1=cfg_render does not apply to birch-small: it has only one place "
            "there; leave out @1");
}

TEST(fault, given_twice_is_refused) {
  const router r = plain("birch-small");
  EXPECT_EQ(
      refusal_of(r, {"chip-mtu", "dpa-mac", "chip-mtu@0"}),
      "fault chip-mtu is given twice; chip-mtu@1 plants it in another place, if there is one");
  EXPECT_EQ(refusal_of(r, {"chip-mtu", "chip-mtu@1"}), "planted");
  EXPECT_EQ(refusal_of(r, {"tool-empty=cfg_render", "tool-empty=ifmgr_show"}), "planted");
  EXPECT_EQ(refusal_of(r, {"tool-missing=cfg_render", "tool-missing=cfg_render"}),
            "fault tool-missing=cfg_render is given twice; each argument once is enough");
}

// Every fault that plants at all has a place 0, and refuses a place that no router has.
TEST(fault, of_any_kind_refuses_a_place_that_no_router_has) {
  for (const fault& f : fault_catalogue()) {
    if (f.name.find('=') != std::string_view::npos || f.takes_argument) continue;
    bool is_planted = false;
    for (const char* name : routers) {
      const router r = plain(name);
      if (refusal_of(r, {std::string{f.name}}) != "planted") continue;
      is_planted = true;
      EXPECT_THAT(refusal_of(r, {std::string{f.name} + "@99999"}),
                  testing::HasSubstr("@99999 does not apply"))
          << f.name;
      break;
    }
    EXPECT_TRUE(is_planted) << f.name;
  }
}

TEST(fault, missing_LAG_is_planted_only_in_a_unit_that_the_audit_reads) {
  const router r = plain("cedar-mixed");
  const capture healthy = render(r);
  for (int place = 0; place < 12; ++place) {
    router faulty = r;
    faulty.faults = {parse_fault("chip-lag-missing@" + std::to_string(place))};
    for (const auto& [key, text] : render(faulty).answers) {
      const bool is_read = key.second.find(",-u,0,") != std::string::npos;
      EXPECT_TRUE(is_read || text == healthy.answers.at(key)) << key.second << " at " << place;
    }
  }
}

std::string why(const std::string& router_name, const std::string& a, const std::string& b) {
  const auto both = planted(router_name, {a, b});
  return hidden_by(both[0], both[1]);
}

TEST(hiding, end_of_the_run_hides_what_would_have_shown_later) {
  EXPECT_NE(why("birch-small", "pi-no-mac", "chip-mtu@3"), "");
  EXPECT_NE(why("birch-small", "model-unknown", "pi-no-mac"), "");
  EXPECT_EQ(why("birch-small", "chip-mtu@3", "pi-no-mac"), "");
  EXPECT_EQ(why("birch-small", "pi-no-mac", "asic-unknown"), "") << "shown before it";
}

TEST(hiding, anything_counted_hides_stale_entries) {
  EXPECT_NE(why("birch-small", "chip-mtu", "stale-pi@5"), "");
  EXPECT_EQ(why("birch-small", "stale-bme", "stale-pi"), "");
  EXPECT_EQ(why("birch-small", "health-errors", "stale-pi"), "");
}

TEST(hiding, empty_health_report_hides_nothing_that_shows_before_it) {
  for (const std::string quiet : {"tool-empty=lagmgr_health", "tool-missing=lagmgr_health"}) {
    EXPECT_EQ(why("birch-small", quiet, "stale-pi"), "");
    EXPECT_EQ(why("birch-small", quiet, "stale-bcm"), "");
    EXPECT_EQ(why("birch-small", quiet, "chip-mtu"), "");
  }
}

TEST(hiding, weight_of_members_is_checked_before_the_LAG_id_and_ends_nothing) {
  for (const char* const later : {"dpa-lag-id", "dpa-l2port-missing", "dpa-mac"}) {
    EXPECT_EQ(why("birch-small", later, "dpa-weight"), "") << later;
    EXPECT_EQ(why("birch-small", "dpa-weight", later), "") << later;
  }
  EXPECT_NE(why("birch-small", "pd-bundle-missing", "dpa-weight"), "");
}

TEST(hiding, higher_layer_hides_lower_one_at_the_same_place) {
  EXPECT_NE(why("birch-small", "dpa-mac", "dpa-l3-rif"), "");
  EXPECT_EQ(why("birch-small", "dpa-l3-rif", "dpa-mac"), "");
  EXPECT_EQ(why("birch-small", "dpa-mac@2", "dpa-l3-rif"), "") << "another node";
  EXPECT_NE(why("birch-small", "pi-bundle-missing", "chip-mtu@1"), "") << "all of the bundle";
  EXPECT_EQ(why("birch-small", "pi-bundle-missing", "chip-mtu@3"), "") << "another bundle";
  EXPECT_NE(why("birch-small", "lagport-empty", "chip-mtu@3"), "") << "all of the node";
  EXPECT_EQ(why("birch-small", "lagport-empty", "pi-bundle-missing"), "") << "of no node";
  EXPECT_EQ(why("birch-small", "dpa-mtu", "chip-mtu@1"), "") << "another member";
}

TEST(hiding, effects_of_some_arguments_are_known) {
  EXPECT_NE(why("birch-small", "tool-empty=iface_show", "chip-mtu"), "");
  EXPECT_EQ(why("birch-small", "tool-empty=iface_show", "pi-bundle-missing"), "");
  EXPECT_EQ(why("birch-small", "tool-missing=iface_show", "pi-bundle-missing"), "") << "as silent";
  EXPECT_NE(why("birch-small", "capture-blocked=IM_PI", "pi-bundle-missing"), "") << "unknown";
}

TEST(hiding, one_value_is_changed_once) {
  EXPECT_NE(why("birch-small", "dpa-l3-rif", "l3intf-no-rif"), "");
  EXPECT_EQ(why("birch-small", "dpa-l3-rif", "l3intf-no-rif@2"), "") << "another node";
  EXPECT_NE(why("birch-small", "dpa-l3intf-missing", "l3intf-no-rif"), "")
      << "goes with its object";
}

TEST(hiding, values_that_differ_between_nodes_need_all_of_them) {
  EXPECT_NE(why("birch-small", "l2port-empty@2", "dpa-glif"), "");
  EXPECT_EQ(why("birch-small", "l2port-empty@2", "dpa-mac"), "") << "reported on one node";
}

TEST(expected, findings_name_their_place) {
  router r = plain("birch-small");
  r.faults = {parse_fault("dpa-mac@2"), parse_fault("health-info"), parse_fault("stale-pi")};
  const auto expected = expected_findings(r);
  ASSERT_EQ(expected.size(), 3U);
  EXPECT_EQ(expected[0].name, "dpa-mac@2");
  EXPECT_EQ(expected[0].finding,
            "Inconsistency {}:BE1({}), 0/1/CPU0 MAC is not consistent in DPA_Bundles_l2port:{}, "
            "Expected:{}");
  EXPECT_EQ(expected[0].hidden, "");
  EXPECT_EQ(expected[1].finding, "");
  EXPECT_EQ(expected[2].hidden, "dpa-mac@2 leaves no clean run");
}

TEST(expected, lines_that_come_with_a_finding_are_hidden_by_more) {
  router r = plain("birch-small");
  r.faults = {parse_fault("pd-bundle-missing"), parse_fault("pi-member-missing")};
  const auto expected = expected_findings(r);
  ASSERT_EQ(expected.size(), 3U);
  EXPECT_EQ(expected[0].hidden, "");
  EXPECT_EQ(expected[1].name, "pd-bundle-missing");
  EXPECT_EQ(expected[1].finding, "{}: BME member verification failed for {},BE1({}), {}");
  EXPECT_NE(expected[1].hidden, "") << "that member is not asked for at the agent";
  EXPECT_EQ(expected[2].name, "pi-member-missing");
}

TEST(expected, untagged_sub_bundles_leave_no_clean_run) {
  router r = plain("birch-untagged");
  r.faults = {parse_fault("stale-pi")};
  EXPECT_NE(expected_findings(r).front().hidden, "");
}

std::string place_text(const char* router_name, const char* fault_name) {
  router r = plain(router_name);
  r.faults = {parse_fault(fault_name)};
  const auto places = places_of_faults(r);
  if (places.size() != 1) return "not one place";
  const fault_place& at = places.front();
  return at.name + "|" + at.layer + "|" + at.node + "|" + at.npu + "|" + at.bundle + "|" +
         at.object;
}

TEST(places, are_those_of_the_values_that_were_changed) {
  EXPECT_EQ(place_text("birch-small", "dpa-mac@2"), "dpa-mac@2|DPA|0/1/CPU0||BE1|");
  EXPECT_EQ(place_text("birch-small", "dpa-mtu"), "dpa-mtu|DPA|0/0/CPU0||BE1|0/0/0/0");
  EXPECT_EQ(place_text("birch-small", "sem-missing"), "sem-missing|BCM|0/0/CPU0|0|BE1|BE1.100");
  EXPECT_EQ(place_text("birch-small", "pi-bundle-missing"), "pi-bundle-missing|PI|||BE1|");
  EXPECT_EQ(place_text("birch-small", "im-missing-sub"), "im-missing-sub|PI|||BE1|BE1.100");
  // A finding may name another node than the one with the odd value.
  EXPECT_EQ(place_text("birch-small", "dpa-glif"), "dpa-glif|DPA|0/0/CPU0||BE1|");
  EXPECT_EQ(place_text("birch-small", "dpa-no-glif"), "dpa-no-glif|DPA|||BE1|") << "on all nodes";
}

TEST(places, of_tools_and_of_the_machine_name_them) {
  EXPECT_EQ(place_text("birch-small", "lagport-empty"),
            "lagport-empty|DPA|0/0/CPU0|||fwd_object_show");
  EXPECT_EQ(place_text("birch-small", "chip-dump-empty"),
            "chip-dump-empty|BCM|0/0/CPU0|0||asic_shell_show");
  EXPECT_EQ(place_text("birch-small", "tool-missing=iface_show"),
            "tool-missing=iface_show|PI||||iface_show");
  EXPECT_EQ(place_text("birch-small", "config-no-end"), "config-no-end|config||||cfg_render");
  EXPECT_EQ(place_text("birch-small", "node-not-final"),
            "node-not-final|tool|0/0/CPU0|||plat_nodes_show");
  EXPECT_EQ(place_text("birch-small", "capture-blocked"),
            "capture-blocked|machine||||/tmp/tessel_running_cfg.log");
  EXPECT_EQ(place_text("birch-small", "log-full=debug"),
            "log-full=debug|machine||||/var/log/tessel_debug.log");
  EXPECT_EQ(place_text("birch-small", "tmp-full=40"), "tmp-full=40|machine||||/tmp");
}

// Where a fault was planted, on the first router that takes it.
std::optional<fault_place> first_place(const fault& f, router& taking) {
  for (const char* name : routers) {
    taking = plain(name);
    if (!applies(taking, f.name)) continue;
    taking.faults = {parse_fault(std::string{f.name})};
    return places_of_faults(taking).front();
  }
  return std::nullopt;
}

TEST(places, of_every_fault_are_on_the_router) {
  const std::set<std::string> layers = {"config", "PI", "PD", "DPA", "BCM", "tool", "machine"};
  for (const fault& f : fault_catalogue()) {
    if (is_slow(f)) continue;
    router r;
    const auto at = first_place(f, r);
    ASSERT_TRUE(at) << f.name;
    EXPECT_TRUE(layers.contains(at->layer)) << f.name;
    EXPECT_TRUE(at->node.empty() || find_node(r, at->node) != nullptr) << f.name << at->node;
    EXPECT_TRUE(at->npu.empty() || at->layer == "BCM") << f.name;
    const bool has_bundle = std::any_of(r.bundles.begin(), r.bundles.end(),
                                        [&](const bundle& b) { return name_of(b) == at->bundle; });
    EXPECT_EQ(has_bundle, !at->bundle.empty()) << f.name << at->bundle;
    EXPECT_FALSE(at->bundle.empty() && at->node.empty() && at->object.empty()) << f.name;
  }
}

TEST(fault, of_the_machine_is_in_the_capture) {
  router r = plain("birch-small");
  r.faults = {parse_fault("capture-blocked=BM_PI"), parse_fault("log-full=debug"),
              parse_fault("file-limit=7000"), parse_fault("tmp-full=40")};
  const capture c = render(r);
  EXPECT_EQ(c.blocked_captures, std::vector<std::string>{"BM_PI"});
  EXPECT_EQ(c.full_logs, std::vector<std::string>{"debug"});
  EXPECT_EQ(c.file_limit, 7000U);
  EXPECT_EQ(c.tmp_kibibytes, 40U);
  for (const char* name : {"file-limit=many", "file-limit=0", "tmp-full=4k", "tmp-full=0"}) {
    r.faults = {parse_fault(name)};
    EXPECT_THROW(render(r), lab_error) << name;
  }
}

TEST(fault, missing_tool_is_in_the_manifest_and_answers_nothing) {
  router r = plain("birch-small");
  r.faults.push_back(parse_fault("tool-missing"));
  const capture c = render(r);
  EXPECT_EQ(c.missing_tools, std::vector<std::string>{"lagmgr_agent_show"});
  for (const auto& [key, text] : c.answers) EXPECT_NE(key.second.rfind("lagmgr_agent_show", 0), 0U);
}

TEST(fault, bytes_and_megabytes_are_in_the_configuration) {
  router r = plain("birch-small");
  r.faults.push_back(parse_fault("overlong-line"));
  EXPECT_GT(render(r).answers.at({"local", "cfg_render,-c,-l,1,-t,1,-o,1"}).size(), 8U << 20U);
  r.faults = {parse_fault("binary-bytes")};
  const capture c = render(r);
  EXPECT_NE(c.answers.at({"local", "cfg_render,-c,-l,1,-t,1,-o,1"}).find('\0'), std::string::npos);
}

TEST(router, renders_the_same_twice) {
  for (const char* name : routers) {
    const router r = plain(name);
    EXPECT_TRUE(render(r).answers == render(r).answers) << name;
  }
}

TEST(router, every_described_one_renders) {
  setenv("TESSEL_LAB_ROUTERS", LAB_ROUTERS, 1);
  const auto names = router_names();
  EXPECT_GE(names.size(), 10U);
  for (const std::string& name : names) {
    const router r = load_router(name);
    EXPECT_FALSE(r.description.empty()) << name;
    EXPECT_NO_THROW(render(r)) << name;
  }
  unsetenv("TESSEL_LAB_ROUTERS");
}

}  // namespace
