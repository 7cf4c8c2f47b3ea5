#include "faults.h"

#include <gtest/gtest.h>

#include <set>

#include "description.h"
#include "render.h"
#include "support.h"

namespace {

using namespace lab;

constexpr const char* routers[] = {"birch-small", "elm-single", "aspen-standby", "birch-untagged"};

router plain(const std::string& name) {
  return lab_test::rendered_router(name).r;
}

TEST(Catalogue, NamesAreUniqueAndTold) {
  std::set<std::string_view> names;
  for (const fault& f : fault_catalogue()) {
    EXPECT_TRUE(names.insert(f.name).second) << f.name;
    EXPECT_FALSE(f.description.empty()) << f.name;
    EXPECT_FALSE(f.finding.empty()) << f.name;
    EXPECT_TRUE(f.plant != nullptr || f.edit != nullptr) << f.name;
  }
}

TEST(Catalogue, EveryFaultAppliesSomewhere) {
  for (const fault& f : fault_catalogue()) {
    bool somewhere = false;
    for (const char* name : routers) somewhere = somewhere || applies(plain(name), f.name);
    EXPECT_TRUE(somewhere) << f.name;
  }
}

TEST(Catalogue, EveryFaultChangesWhatTheToolsPrint) {
  for (const fault& f : fault_catalogue())
    for (const char* name : routers) {
      router r = plain(name);
      if (!applies(r, f.name)) continue;
      const capture healthy = render(r);
      r.faults.push_back(parse_fault(std::string{f.name}));
      const capture faulty = render(r);
      EXPECT_TRUE(faulty.answers != healthy.answers) << f.name << " in " << name;
    }
}

TEST(Catalogue, ModelFaultsNameKnownFields) {
  std::set<std::string_view> known;
  for (const field_description& field : override_fields()) known.insert(field.name);
  for (const fault& f : fault_catalogue())
    for (const char* name : routers) {
      router r = plain(name);
      if (f.plant == nullptr || !f.plant(r, "")) continue;
      for (const override_rule& rule : r.overrides)
        EXPECT_TRUE(known.contains(rule.field)) << f.name << ": " << rule.field;
    }
}

TEST(Fault, ThatDoesNotApplyIsTold) {
  router r = plain("elm-single");
  r.faults.push_back(parse_fault("node-not-final"));
  try {
    render(r);
    FAIL() << "a single node cannot be in another band";
  } catch (const lab_error& failure) {
    EXPECT_STREQ(failure.what(), "fault node-not-final does not apply to elm-single");
  }
}

TEST(Fault, NameAndArgumentAreChecked) {
  EXPECT_EQ(parse_fault("tool-empty=lagmgr_health").argument, "lagmgr_health");
  EXPECT_THROW(parse_fault("tool-emptied"), lab_error);
  EXPECT_THROW(parse_fault("sem-missing=BE1"), lab_error);
  EXPECT_THROW(parse_fault("tool-missing=ssh"), lab_error);
  router r = plain("elm-single");
  r.faults.push_back(parse_fault("tool-empty=no_such_tool"));
  EXPECT_THROW(render(r), lab_error);
}

TEST(Fault, LagIdDiffersOnOneNodeAlone) {
  router r = plain("birch-small");
  const capture healthy = render(r);
  r.faults.push_back(parse_fault("dpa-lag-id"));
  const capture faulty = render(r);
  std::size_t changed = 0;
  for (const auto& [key, text] : faulty.answers) changed += text != healthy.answers.at(key) ? 1 : 0;
  EXPECT_EQ(changed, 1U);
}

TEST(Fault, MissingToolIsInTheManifestAndAnswersNothing) {
  router r = plain("birch-small");
  r.faults.push_back(parse_fault("tool-missing"));
  const capture c = render(r);
  EXPECT_EQ(c.missing_tools, std::vector<std::string>{"lagmgr_agent_show"});
  for (const auto& [key, text] : c.answers) EXPECT_NE(key.second.rfind("lagmgr_agent_show", 0), 0U);
}

TEST(Fault, BytesAndMegabytesStandInTheConfiguration) {
  router r = plain("birch-small");
  r.faults.push_back(parse_fault("overlong-line"));
  EXPECT_GT(render(r).answers.at({"local", "cfg_render,-c,-l,1,-t,1,-o,1"}).size(), 8U << 20U);
  r.faults = {parse_fault("binary-bytes")};
  const capture c = render(r);
  EXPECT_NE(c.answers.at({"local", "cfg_render,-c,-l,1,-t,1,-o,1"}).find('\0'), std::string::npos);
}

TEST(Router, RendersTheSameTwice) {
  for (const char* name : routers) {
    const router r = plain(name);
    EXPECT_TRUE(render(r).answers == render(r).answers) << name;
  }
}

TEST(Router, EveryDescribedOneRenders) {
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
