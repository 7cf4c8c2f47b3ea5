// What is looked up in an index must be what a search through everything finds.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <ctime>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "desk/judge/differences.h"
#include "desk/judge/judge.h"
#include "desk/judge/judging.h"
#include "desk/model/catalogue.h"
#include "desk/model/coverage.h"
#include "desk/model/mentions.h"

namespace desk {
namespace {

using list = std::vector<std::size_t>;

class random_run {
 public:
  explicit random_run(std::uint32_t seed) : random_(seed) {}

  std::size_t below(std::size_t limit) { return random_() % limit; }
  bool one_in(std::size_t count) { return below(count) == 0; }
  template <class Kind>
  Kind one_of(std::initializer_list<Kind> all) {
    return *(all.begin() + below(all.size()));
  }

  std::string any_node() { return one_in(8) ? "" : "0/" + std::to_string(below(4)) + "/CPU0"; }
  std::string any_bundle() { return one_in(9) ? "" : "BE" + std::to_string(1 + below(4)); }
  std::string value() { return "0x" + std::to_string(below(3)); }
  field any_field() {
    return one_of({field::presence, field::lag_id, field::lif, field::rif, field::mtu, field::mac,
                   field::none});
  }
  layer any_layer() { return one_of({layer::pi, layer::pd, layer::dpa, layer::bcm, layer::none}); }
  object_ref any_object() {
    const std::string of = any_bundle();
    if (of.empty() || one_in(2)) return {object_kind::bundle, of, of};
    if (one_in(2)) return {object_kind::member, of, "0/0/0/" + std::to_string(below(3))};
    return {object_kind::sub_bundle, of, of + "." + std::to_string(below(3))};
  }
  finding any_finding() {
    finding one;
    one.kind = one_of({finding_kind::inconsistency, finding_kind::programming, finding_kind::health,
                       finding_kind::delay_delete, finding_kind::failure, finding_kind::note});
    one.code = one_of({"TC-101", "TC-104", "TC-105", "TC-108", "TC-109", "TC-301", "TC-501",
                       "TC-735", "TC-718", "TC-713", "TC-611", "TC-905", "TC-619"});
    one.object = any_object();
    one.node = any_node();
    if (one_in(3)) one.npu = std::to_string(below(2));
    one.of = any_layer();
    one.what = any_field();
    one.text = "message " + std::to_string(below(5)) + " of " + one.node;
    return one;
  }
  void add_nodes(run& of) {
    for (int i = 0; i < 4; ++i) {
      node& made = of.nodes.emplace_back();
      made.name = "0/" + std::to_string(i) + "/CPU0";
      made.type = "LC";
      made.address = "192.0.0." + std::to_string(i);
      made.asic = "BCM8868";
      made.takes_part = !one_in(6);
      made.has_supported_asic = true;
      made.npus = {"0", "1"};
    }
  }
  void add_cells(run& of, std::size_t object) {
    for (std::size_t count = below(12); count > 0; --count)
      of.objects[object].cells.push_back(
          {one_of({field::handle, field::lag_id, field::lif, field::mtu, field::mac, field::weight,
                   field::weight_limit}),
           one_of({source::bundle_manager, source::agent, source::lagport, source::l2port,
                   source::l2intf, source::chip_mtu}),
           static_cast<std::int16_t>(static_cast<int>(below(5)) - 1), no_place,
           of.texts.keep(one_in(8) ? "0x0000" + std::to_string(below(3)) : value())});
  }
  void fill(run& of) {
    add_nodes(of);
    of.has_snapshot = of.has_chip_tables = true;
    of.end = run_end::complete;
    for (const source from : {source::running_config, source::bundle_manager, source::agent,
                              source::lagport, source::l2port, source::l2intf})
      for (std::int16_t i = -1; i < 4; ++i)
        if (!one_in(5)) of.tables[{from, i, no_place}] = 1;
    for (std::int16_t i = 0; i < 4; ++i)
      if (!one_in(3)) of.tables[{source::chip_lag, i, 0}] = 1;
    for (int i = 0; i < 14; ++i) {
      const object_ref one = any_object();
      if (one.bundle.empty()) continue;
      const std::size_t made = of.object_at(one.kind, one.bundle, one.name);
      of.objects[made].is_configured = !one_in(4);
      add_cells(of, made);
      if (one.kind == object_kind::member && one_in(2))
        of.places[made].node = static_cast<std::int16_t>(below(4));
    }
    for (std::size_t count = below(60); count > 0; --count) of.findings.push_back(any_finding());
  }

 private:
  std::mt19937 random_;
};

template <class Wanted>
list those(const std::vector<finding>& all, Wanted wanted) {
  list found;
  for (std::size_t i = 0; i < all.size(); ++i)
    if (wanted(all[i])) found.push_back(i);
  return found;
}

TEST(indexes, find_the_findings_that_a_search_finds) {
  for (std::uint32_t seed = 0; seed < 200; ++seed) {
    random_run random(seed);
    run of;
    random.fill(of);
    finding_index index(of.findings);
    for (int i = 0; i < 20; ++i) {
      const finding like = random.any_finding();
      const auto& all = of.findings;
      EXPECT_EQ(index.about(like.object),
                those(all, [&](const finding& f) { return f.object == like.object; }));
      EXPECT_EQ(index.on_node(like.node),
                those(all, [&](const finding& f) { return f.node == like.node; }));
      EXPECT_EQ(index.with_code(like.code),
                those(all, [&](const finding& f) { return f.code == like.code; }));
    }
    const auto without_entry = those(of.findings, [](const finding& f) {
      return f.code == "TC-101" && f.node == "0/1/CPU0" && f.of == layer::dpa;
    });
    EXPECT_EQ(index.take_without_entry("0/1/CPU0", layer::dpa), without_entry);
    EXPECT_EQ(index.take_without_entry("0/1/CPU0", layer::dpa), list());
  }
}

// The objects that a cause is about, and the fields, as the causes themselves have them.
struct plain_causes {
  std::vector<cause> all;
  std::vector<std::vector<std::pair<object_ref, field>>> differences;
  std::vector<std::vector<std::pair<object_ref, field>>> findings;

  [[nodiscard]] std::optional<std::size_t> first_about(const object_ref& object) const {
    for (std::size_t i = 0; i < all.size(); ++i)
      for (const auto& part : {differences[i], findings[i]})
        for (const auto& [of, what] : part)
          if (of == object) return i;
    return {};
  }
  [[nodiscard]] std::optional<std::size_t> first_in_chip(const std::string& node,
                                                         const std::string& npu) const {
    for (std::size_t i = 0; i < all.size(); ++i)
      if (all[i].first == layer::bcm && all[i].node == node && all[i].npu == npu) return i;
    return {};
  }
  [[nodiscard]] list on(const std::string& bundle, const std::string& node) const {
    list found;
    for (std::size_t i = 0; i < all.size(); ++i)
      if (!node.empty() && all[i].object.bundle == bundle && all[i].node == node)
        found.push_back(i);
    return found;
  }
  [[nodiscard]] std::uint32_t fields(std::size_t cause, const object_ref& object) const {
    std::uint32_t bits = 0;
    for (const auto& [of, what] : differences[cause].empty() ? findings[cause] : differences[cause])
      if (of.kind == object_kind::bundle || of == object) bits |= 1U << static_cast<unsigned>(what);
    return bits;
  }
};

TEST(indexes, find_the_causes_that_a_search_finds) {
  for (std::uint32_t seed = 0; seed < 200; ++seed) {
    random_run random(seed);
    cause_index index;
    plain_causes plain;
    for (std::size_t i = 0; i < 30; ++i) {
      const finding like = random.any_finding();
      cause made;
      made.object = like.object;
      made.node = like.node;
      made.npu = like.npu;
      made.first = like.of;
      index.add_cause(i, made);
      plain.all.push_back(made);
      plain.differences.emplace_back();
      plain.findings.emplace_back();
      // A cause can get more while later ones are there.
      for (std::size_t more = random.below(4); more > 0; --more) {
        const std::size_t to = random.below(i + 1);
        const finding part = random.any_finding();
        const bool is_difference = random.one_in(4);
        (is_difference ? plain.differences : plain.findings)[to].emplace_back(part.object,
                                                                              part.what);
        if (is_difference)
          index.add_difference(to, part.object, part.what);
        else
          index.add_finding(to, part.object, part.what);
      }
      const finding asked = random.any_finding();
      const std::size_t cause = random.below(i + 1);
      ASSERT_EQ(index.on(asked.object.bundle, asked.node),
                plain.on(asked.object.bundle, asked.node));
      ASSERT_EQ(index.first_about(asked.object), plain.first_about(asked.object));
      ASSERT_EQ(index.first_in_chip(asked.node, asked.npu),
                plain.first_in_chip(asked.node, asked.npu));
      ASSERT_EQ(index.fields(cause, asked.object), plain.fields(cause, asked.object));
    }
  }
}

// ---- Verdicts -----------------------------------------------------------------------------------

bool is_of(const judged_run& is, std::size_t f, const std::string& name) {
  return is.of.findings[f].object.bundle == name;
}

bool leaves_all_in_doubt(const judged_run& is, const cause& one) {
  return one.object.bundle.empty() && !is_difference(is.of, one) &&
         std::all_of(one.findings.begin(), one.findings.end(),
                     [&](std::size_t f) { return is_of(is, f, ""); });
}

// The messages of a cause that name no bundle, and of which the bundle has one all the same: there
// are as many as their place lacks bundles.
std::size_t plain_without_entry(const judged_run& is, const cause& of, const std::string& name) {
  const auto lacking = [](const cause& in, const finding& at, const std::string* bundle) {
    std::size_t count = 0;
    for (const difference& each : in.differences)
      for (const witness& w : each.witnesses)
        if (each.what == field::presence && each.object.kind == object_kind::bundle && w.is_odd &&
            w.node == at.node && layer_of(w.from) == at.of &&
            (bundle == nullptr || each.object.bundle == *bundle))
          ++count;
    return count;
  };
  const auto is_alike = [](const finding& a, const finding& b) {
    return a.code == "TC-101" && b.code == "TC-101" && a.node == b.node && a.of == b.of;
  };
  std::size_t count = 0;
  std::set<std::pair<std::string, layer>> places;
  for (const std::size_t f : of.findings) {
    const finding& one = is.of.findings[f];
    if (one.code != "TC-101" || !one.object.bundle.empty()) continue;
    if (!places.emplace(one.node, one.of).second) continue;
    std::size_t bundles = 0;
    for (const cause& each : is.causes) bundles += lacking(each, one, nullptr);
    const auto messages = std::count_if(is.of.findings.begin(), is.of.findings.end(),
                                        [&](const finding& each) { return is_alike(each, one); });
    if (bundles == static_cast<std::size_t>(messages)) count += lacking(of, one, &name);
  }
  return count;
}

// From all causes and all their findings.
bundle_verdict plain_verdict(const judged_run& is, const std::string& name) {
  bundle_verdict made;
  made.bundle = name;
  for (std::size_t i = 0; i < is.causes.size(); ++i) {
    const cause& one = is.causes[i];
    const bool is_its_own =
        std::any_of(one.differences.begin(), one.differences.end(),
                    [&](const difference& each) { return each.object.bundle == name; });
    std::size_t count = 0;
    bool is_wrong = false;
    for (const std::size_t f : one.findings) {
      if (!is_of(is, f, name)) continue;
      ++count;
      is_wrong = is_wrong || !is_doubt(is.of.findings[f]);
    }
    if (!is_its_own && count == 0) {
      if (leaves_all_in_doubt(is, one)) made.not_judged.push_back(one.title);
      continue;
    }
    made.causes.push_back(i);
    made.findings += count + plain_without_entry(is, one, name);
    if (is_its_own || is_wrong) {
      made.is = verdict::differs;
      made.first = std::min(made.first, one.first);
    } else {
      made.not_judged.push_back(one.title);
    }
  }
  return made;
}

TEST(indexes, give_each_bundle_the_verdict_of_all_causes) {
  std::size_t verdicts = 0;
  for (std::uint32_t seed = 0; seed < 400; ++seed) {
    random_run random(seed);
    run of;
    random.fill(of);
    fill_coverage(of);
    const judged_run is = judge(std::move(of));
    for (const bundle_verdict& made : is.bundles) {
      const bundle_verdict plain = plain_verdict(is, made.bundle);
      ASSERT_EQ(made.causes, plain.causes) << "seed " << seed << ' ' << made.bundle;
      ASSERT_EQ(made.findings, plain.findings);
      ASSERT_EQ(made.first, plain.first);
      ASSERT_EQ(made.is == verdict::differs, plain.is == verdict::differs);
      ASSERT_GE(made.not_judged.size(), plain.not_judged.size());
      ASSERT_TRUE(
          std::equal(plain.not_judged.begin(), plain.not_judged.end(), made.not_judged.begin()));
      ++verdicts;
    }
    // Each finding belongs to one cause, or to none.
    std::vector<int> times(is.of.findings.size());
    for (const cause& one : is.causes)
      for (const std::size_t f : one.findings) ++times[f];
    for (const std::size_t f : is.unexplained) ++times[f];
    ASSERT_TRUE(std::all_of(times.begin(), times.end(), [](int n) { return n == 1; })) << seed;
  }
  EXPECT_GT(verdicts, 1000U);
}

// A run with this many bundles and failures without one.
judged_run doubtful_run(int bundles, int failures) {
  run of;
  for (int i = 1; i <= bundles; ++i) {
    const std::string name = "BE" + std::to_string(i);
    of.objects[of.object_at(object_kind::bundle, name, name)].is_configured = true;
  }
  for (int i = 0; i < failures; ++i) {
    finding& one = of.findings.emplace_back();
    one.kind = finding_kind::failure;
    one.code = "TC-735";
    one.text = "no key " + std::to_string(i);
  }
  return judge(std::move(of));
}

TEST(indexes, a_bundle_lists_all_doubts_unless_they_are_too_many_for_all_bundles) {
  const judged_run few = doubtful_run(3, 2000);
  EXPECT_EQ(few.bundles.front().not_judged.size(), 2000U);
  const judged_run many = doubtful_run(3000, 500);
  EXPECT_EQ(many.causes.size(), 500U);
  for (const bundle_verdict& made : many.bundles) {
    ASSERT_EQ(made.not_judged.size(), 101U);
    ASSERT_EQ(made.not_judged.back(), "400 more causes that name no bundle");
  }
}

// Messages of one bundle about a value, each of a node of its own, and no snapshot.
run run_of_many_nodes(int nodes, const char* code, field what) {
  run of;
  for (int i = 0; i < nodes; ++i) {
    finding& one = of.findings.emplace_back();
    one.code = code;
    one.object = {object_kind::bundle, "BE1", "BE1"};
    one.node = "0/" + std::to_string(i) + "/CPU0";
    one.of = layer::dpa;
    one.what = what;
    one.reported = "0x1";
    if (one.code != "TC-109") one.known = "0x2";
  }
  return of;
}

TEST(indexes, messages_of_eight_times_the_nodes_take_about_eight_times_as_long) {
  for (const char* code : {"TC-108", "TC-109"}) {
    const auto time_of = [&](int nodes) {
      run of = run_of_many_nodes(nodes, code, field::lif);
      const std::clock_t begin = std::clock();
      const judged_run made = judge(std::move(of));
      EXPECT_EQ(made.causes.size(), 1U);
      return std::clock() - begin;
    };
    const auto few = std::max<std::clock_t>(time_of(4000), CLOCKS_PER_SEC / 100);
    EXPECT_LT(time_of(32000), 24 * few) << code << ": eight times the nodes";
  }
}

// ---- Differences --------------------------------------------------------------------------------

TEST(indexes, values_differ_where_a_comparison_of_all_witnesses_says_so) {
  for (std::uint32_t seed = 0; seed < 400; ++seed) {
    random_run random(seed);
    run of;
    random.fill(of);
    fill_coverage(of);
    std::vector<std::pair<std::string, field>> plain;
    for (const object& one : of.objects) {
      if (!one.is_configured) continue;
      for (const field what : {field::lag_id, field::lif, field::rif, field::mac, field::mtu,
                               field::npu, field::member_id}) {
        const difference all = compare_field(of, one, what);
        if (std::any_of(all.witnesses.begin(), all.witnesses.end(),
                        [](const witness& w) { return w.is_odd; }))
          plain.emplace_back(one.name, what);
      }
    }
    std::vector<std::pair<std::string, field>> found;
    for (const difference& one : find_differences(of))
      if (one.what != field::presence && one.what != field::type)
        found.emplace_back(one.object.name, one.what);
    ASSERT_EQ(found, plain) << "seed " << seed;
  }
}

// ---- Messages -----------------------------------------------------------------------------------

TEST(indexes, complete_a_mention_as_a_search_through_all_objects_does) {
  for (std::uint32_t seed = 0; seed < 300; ++seed) {
    random_run random(seed);
    run of;
    random.fill(of);
    mention_finder names(of);
    for (int i = 0; i < 10; ++i) {
      const std::string handle = random.value();
      const auto holder =
          std::find_if(of.objects.begin(), of.objects.end(), [&](const object& one) {
            return std::any_of(one.cells.begin(), one.cells.end(), [&](const cell& c) {
              return c.what == field::handle && of.texts.text(c.value) == handle;
            });
          });
      const mention by_handle = names.in("no key '" + handle + "': failed");
      EXPECT_EQ(by_handle.object.name, holder == of.objects.end() ? "" : holder->name);
      const std::string member = "0/0/0/" + std::to_string(random.below(4));
      const auto first = std::find_if(of.objects.begin(), of.objects.end(), [&](const object& one) {
        return one.kind == object_kind::member && one.name == member;
      });
      EXPECT_EQ(names.in("no key '" + member + "'").object.bundle,
                first == of.objects.end() ? "" : of.objects[first->bundle].name);
    }
  }
}

std::vector<std::pair<std::string, std::int16_t>> plain_weights(const run& of,
                                                                const std::string& weight,
                                                                const std::string& limit) {
  std::vector<std::pair<std::string, std::int16_t>> found;
  for (const object& one : of.objects) {
    if (one.kind != object_kind::bundle || !one.is_configured) continue;
    for (const cell& c : one.cells) {
      if (c.what != field::weight || of.texts.text(c.value) != weight) continue;
      if (c.node != no_place && !of.nodes[static_cast<std::size_t>(c.node)].takes_part) continue;
      const auto allowed = std::find_if(one.cells.begin(), one.cells.end(), [&](const cell& other) {
        return other.what == field::weight_limit && other.node == c.node;
      });
      if (allowed != one.cells.end() && of.texts.text(allowed->value) == limit)
        found.emplace_back(one.name, c.node);
    }
  }
  return found;
}

TEST(indexes, find_the_object_of_a_weight) {
  std::size_t found = 0;
  for (std::uint32_t seed = 0; seed < 300; ++seed) {
    random_run random(seed);
    run of;
    random.fill(of);
    mention_finder names(of);
    std::set<std::pair<std::string, std::string>> asked;
    for (int i = 0; i < 10; ++i) {
      const std::string weight = random.value();
      const std::string limit = random.value();
      if (!asked.emplace(weight, limit).second) continue;
      const auto plain = plain_weights(of, weight, limit);
      std::vector<std::pair<std::string, std::int16_t>> places;
      for (const auto& at : names.weighing(weight, limit))
        places.emplace_back(at.one->name, at.node);
      ASSERT_EQ(places, plain);
      found += places.size();
    }
  }
  EXPECT_GT(found, 100U);
}

// The blanks of a wording filled with anything, also with parts of other wordings.
TEST(indexes, recognise_a_message_as_a_search_through_the_catalogue_does) {
  random_run random(11);
  const auto& all = catalogue();
  const auto fixed = [](const catalogue_entry& one) {
    std::size_t length = one.wording.size();
    for (std::size_t at = one.wording.find("{}"); at != std::string::npos;
         at = one.wording.find("{}", at + 2))
      length -= 2;
    return length;
  };
  for (int round = 0; round < 4000; ++round) {
    const catalogue_entry& one = all[random.below(all.size())];
    std::string text = one.wording;
    for (std::size_t at = text.find("{}"); at != std::string::npos; at = text.find("{}", at)) {
      const std::string blank =
          random.one_in(10) ? all[random.below(all.size())].wording.substr(0, 9) : random.value();
      text.replace(at, 2, blank);
      at += blank.size();
    }
    const auto found = recognise(text);
    if (text.empty()) continue;
    ASSERT_TRUE(found) << text;
    ASSERT_GE(fixed(*found->entry), fixed(one)) << text;
    std::string again;
    std::string_view wording = found->entry->wording;
    for (const std::string_view blank : found->blanks) {
      again.append(wording.substr(0, wording.find("{}"))).append(blank);
      wording.remove_prefix(wording.find("{}") + 2);
    }
    ASSERT_EQ(again.append(wording), text);
  }
}

}  // namespace
}  // namespace desk
