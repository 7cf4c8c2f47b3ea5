// One healthy bundle as collection and parsing leave it; tests vary it.
//
// BE12, layer 3, has a member on a node with two chips of the older family, a member on a node with
// two Jericho2 chips, and two sub-bundles with LAGs of their own. All layers agree: without
// changes, every check returns SUCCESS and logs nothing.
//
//   TEST_F(bundle_test, a_wrong_LAG_id_is_reported) {
//     put(st().DPA.get(), {be12::older, "lagport", be12::ifh, "lagid"}, "0x9");
//     ...
//     EXPECT_THAT(findings(), ElementsAre("Inconsistency 1:..."));
//     EXPECT_EQ(counted(), (outcome{.inconsistent = 1}));
//   }
#pragma once

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "base/value.h"
#include "run/state.h"
#include "support/fake_router.h"

namespace tessel {

namespace be12 {

inline constexpr std::string_view older = "0/0/CPU0";
inline constexpr std::string_view j2 = "0/1/CPU0";

inline constexpr std::string_view name = "BE12";
inline constexpr std::string_view ifh = "0x3000120";
inline constexpr std::string_view lagid = "0x5";
inline constexpr std::string_view mac = "0011.2233.445a";

// The member on each node: its tail and handle. Both are on NPU 0, the first on core 0, the second
// on core 1.
inline constexpr std::string_view older_port = "0/0/0/1";
inline constexpr std::string_view older_mifh = "0x110";
inline constexpr std::string_view j2_port = "0/1/0/2";
inline constexpr std::string_view j2_mifh = "0x210";

// The sub-bundles: one of layer 3, one of layer 2.
inline constexpr std::string_view l3_sub = "BE12.100";
inline constexpr std::string_view l3_sub_ifh = "0x3000a60";
inline constexpr std::string_view l2_sub = "BE12.200";
inline constexpr std::string_view l2_sub_ifh = "0x3000a68";

// The names of the objects on the node with the older chips, as the pass forms them.
inline constexpr std::string_view bundle_text = "BE12(0x3000120), 0/0/CPU0";
inline constexpr std::string_view member_text = "0/0/0/1,BE12(0x3000120), 0/0/CPU0";
inline constexpr std::string_view sub_text = "BE12.100(0x3000a60),0/0/CPU0";

}  // namespace be12

// Fills the stores of the run state; the records are as the parsers leave them.
void enter_healthy_bundle();
// Sets in the records what the bundle manager and its agents report, so that a check of a lower
// layer can be called by itself.
void enter_upper_layers();

// A path into nested maps, whose entry is set or removed.
using entry_path = std::initializer_list<std::string_view>;
value look(const value& root, entry_path path);
void put(const value& root, entry_path path, value content);
void drop(const value& root, entry_path path);

record& port_record(std::string_view nodename, std::string_view member);
record& sub_record(std::string_view sub);

// The counters that the checks touch.
struct outcome {
  std::int64_t inconsistent = 0;
  std::int64_t exception = 0;
  std::int64_t deletePending = 0;
  bool operator==(const outcome&) const = default;
};
void PrintTo(const outcome& shown, std::ostream* out);
outcome counted();

// The messages on the channels so far, without time stamps and tracebacks.
std::vector<std::string> findings();
std::vector<std::string> exceptions();
std::vector<std::string> delete_notes();
// The first message, or an empty text if there is none.
std::string first(const std::vector<std::string>& told);
std::string last(const std::vector<std::string>& told);
// True if each of these failures was logged with its traceback.
bool all_have_tracebacks();

// Matches a failure's message: the failure's own text, which contains `named`, then the handler's.
testing::Matcher<const std::string&> failed_on(std::string_view named, std::string_view rest);

// The value of `count` while `body`, on another thread, is in the middle of writing to `channel`.
// The message must be longer than a page; a long object name makes it so.
std::int64_t count_while_logging(std::string_view channel, const counter& count,
                                 const std::function<void()>& body);
// A name that is longer than a page.
std::string page_long_name();

// Waits until another thread makes `condition` true; returns false after an unreasonably long time.
bool comes_true(const std::function<bool()>& condition);
bool reaches(const counter& count, std::int64_t number);

// A test with open logs.
class logged_test : public router_test {
 protected:
  void SetUp() override;
};

// A test with the healthy bundle on a router of type birch. Waits for workers that a pass leaves
// running before the next test puts a fresh state in place.
class bundle_test : public logged_test {
 protected:
  void SetUp() override;
  void TearDown() override;
};

}  // namespace tessel
