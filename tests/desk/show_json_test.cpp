#include "desk/show/json.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "desk/show/escape.h"
#include "desk/show/keys.h"
#include "tests/desk/example_runs.h"

namespace desk {
namespace {

using json = nlohmann::ordered_json;

std::string text_of(const judged_run& of) {
  std::ostringstream out;
  show_json(of, out);
  return out.str();
}

json shown(const judged_run& of) {
  return json::parse(text_of(of));
}

TEST(json_view, has_its_keys_in_a_fixed_order) {
  std::vector<std::string> keys;
  const json run = shown(run_that_stopped());
  for (const auto& [key, value] : run.items()) keys.push_back(key);
  EXPECT_THAT(keys, testing::ElementsAre("format", "program", "origin", "router", "router_type",
                                         "started", "seconds", "end", "last", "read", "marks",
                                         "debug_notes", "complaints", "stale_search", "lost_logs",
                                         "cut_logs", "counts", "nodes", "wholly_judged", "bundles",
                                         "causes", "findings", "unexplained", "coverage"));
}

TEST(json_view, shows_the_run) {
  const auto run = shown(run_with_faults());
  EXPECT_EQ(run["format"], 1);
  EXPECT_EQ(run["program"]["name"], "tessel-report");
  EXPECT_EQ(run["origin"], "/var/log/audit");
  EXPECT_EQ(run["router"], "core-7");
  EXPECT_EQ(run["started"], "2026-11-22 11:01:03,219");
  EXPECT_EQ(run["seconds"], 12.5);
  EXPECT_EQ(run["end"], "complete");
  EXPECT_EQ(run["counts"].dump(),
            R"({"inconsistency":1,"programming":1,"delay_delete":1,"stale":1,"health":1,)"
            R"("failure":1,"note":0})");
  EXPECT_EQ(run["nodes"].size(), 4U);
  EXPECT_EQ(run["nodes"][2]["name"], "0/2/CPU0");
  EXPECT_EQ(run["coverage"].size(), 14U);
  EXPECT_EQ(run["unexplained"], json::array({5}));
}

TEST(json_view, shows_each_bundle_with_its_verdict_and_its_parts) {
  const auto run = shown(run_with_faults());
  EXPECT_EQ(run["bundles"][1].dump(),
            R"({"bundle":"BE2","verdict":"differs","first_layer":"dpa","not_judged":[],)"
            R"("causes":[1,3],"findings":2,"configured":true,"members":["0/0/0/2"],)"
            R"("sub_bundles":["BE2.100"]})");
  const auto unread = shown(run_not_judged())["bundles"][1];
  EXPECT_EQ(unread["verdict"], "not_judged");
  EXPECT_EQ(unread["first_layer"], nullptr);
  EXPECT_EQ(unread["not_judged"][0], "DPA on 0/1/CPU0: ssh timed out");
}

TEST(json_view, shows_each_cause_with_its_witnesses) {
  const auto why = shown(run_with_faults())["causes"][0];
  EXPECT_EQ(why["title"], "BE1: global LIF is 0x14500 on 0/2/CPU0, 0x14000 on 3 others");
  EXPECT_EQ(why["object"].dump(), R"({"kind":"bundle","bundle":"BE1","name":"BE1"})");
  EXPECT_EQ(why["node"], "0/2/CPU0");
  EXPECT_EQ(why["npu"], nullptr);
  EXPECT_EQ(why["first_layer"], "dpa");
  EXPECT_EQ(why["sureness"], "majority");
  EXPECT_EQ(why["findings"], json::array({0}));
  const auto& witnesses = why["differences"][0]["witnesses"];
  EXPECT_EQ(why["differences"][0]["field"], "lif");
  EXPECT_EQ(witnesses[2].dump(), R"({"source":"l2port","node":"0/2/CPU0","npu":null,)"
                                 R"("state":"holds","value":"0x14500","odd":true})");
  EXPECT_EQ(witnesses[4]["state"], "absent");
  EXPECT_EQ(witnesses[4]["value"], nullptr);
  EXPECT_EQ(witnesses[5]["state"], "not_read");
  EXPECT_EQ(witnesses[5]["value"], "no chip tables");
}

TEST(json_view, shows_each_finding_with_its_fingerprint_and_its_line) {
  const auto found = shown(run_with_faults())["findings"][0];
  EXPECT_EQ(found["code"], "TC-108");
  EXPECT_EQ(found["kind"], "inconsistency");
  EXPECT_EQ(found["fingerprint"], "TC-108|bundle|BE1|BE1|0/2/CPU0||DPA");
  EXPECT_EQ(found["layer"], "dpa");
  EXPECT_EQ(found["field"], "lif");
  EXPECT_EQ(found["reported"], "0x14500");
  EXPECT_EQ(found["known"], "0x14000");
  EXPECT_EQ(found["log"], "tessel_inconsistencies.log");
  EXPECT_EQ(found["line"], 1);
  EXPECT_EQ(found["number"], 1);
}

TEST(json_view, shows_what_is_not_known_as_null) {
  const auto run = shown(run_that_stopped());
  EXPECT_EQ(run["started"], nullptr);
  EXPECT_EQ(run["seconds"], nullptr);
  EXPECT_EQ(run["router_type"], nullptr);
  EXPECT_EQ(run["router"], nullptr);
  auto unplaced = run_with_faults();
  unplaced.of.findings[0].line = 0;
  unplaced.of.findings[0].number.reset();
  const auto found = shown(unplaced)["findings"][0];
  EXPECT_EQ(found["line"], nullptr);
  EXPECT_EQ(found["number"], nullptr);
}

// Of the published schema, at the name of a definition.
std::vector<std::string> words_of(const char* definition, const char* property = nullptr) {
  std::ifstream file(DESK_SCHEMA);
  const json schema = json::parse(file);
  const json& found = schema["$defs"][definition];
  std::vector<std::string> words;
  for (const auto& word : (property == nullptr ? found : found["properties"][property])["enum"])
    if (!word.is_null()) words.push_back(word);
  return words;
}

template <typename Value>
std::vector<std::string> keys_up_to(Value last) {
  std::vector<std::string> keys;
  for (int i = 0; i <= static_cast<int>(last); ++i)
    keys.emplace_back(key_for(static_cast<Value>(i)));
  return keys;
}

// None is null in JSON.
template <typename Value>
std::vector<std::string> keys_before_none(Value none) {
  auto keys = keys_up_to(none);
  EXPECT_EQ(keys.back(), "none");
  keys.pop_back();
  return keys;
}

TEST(json_view, has_every_word_in_its_schema) {
  EXPECT_EQ(words_of("layer"), keys_before_none(layer::none));
  EXPECT_EQ(words_of("field"), keys_before_none(field::none));
  EXPECT_EQ(words_of("sureness"), keys_up_to(sureness::unknown));
  EXPECT_EQ(words_of("object", "kind"), keys_up_to(object_kind::entry));
  EXPECT_EQ(words_of("bundle", "verdict"), keys_up_to(verdict::not_judged));
  EXPECT_EQ(words_of("witness", "source"), keys_before_none(source::none));
  EXPECT_EQ(words_of("witness", "state"), keys_up_to(witness::state::not_read));
  EXPECT_EQ(words_of("finding", "kind"), keys_up_to(finding_kind::note));
  EXPECT_EQ(words_of("coverage", "state"), keys_up_to(coverage_state::unknown));
}

TEST(json_view, keeps_any_text_but_bytes_that_are_no_utf8) {
  const auto run = shown(hostile_run());
  for (std::size_t i = 0; i < hostile_texts().size(); ++i) {
    EXPECT_EQ(run["marks"][i], utf8(hostile_texts()[i]));
    EXPECT_EQ(run["bundles"][i]["bundle"], "BE" + utf8(hostile_texts()[i]));
    EXPECT_EQ(run["findings"][2 * i]["text"], utf8(hostile_texts()[i]));
  }
}

TEST(json_view, is_plain_ascii_with_a_line_for_each_element) {
  const auto text = text_of(hostile_run());
  for (const char byte : text) {
    const bool is_plain = byte == '\n' || (byte >= ' ' && byte < 0x7f);
    if (!is_plain) ADD_FAILURE() << "byte " << static_cast<int>(byte);
  }
  std::size_t bundles = 0;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) bundles += line.starts_with("{\"bundle\":");
  EXPECT_EQ(bundles, hostile_texts().size());
}

}  // namespace
}  // namespace desk
