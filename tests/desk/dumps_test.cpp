#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "desk/model/utf8.h"
#include "desk/read/dump_parser.h"
#include "desk/read/line_reader.h"
#include "desk/read/snapshot.h"

namespace desk {
namespace {

using namespace std::string_literals;
using nlohmann::json;
using testing::ElementsAre;

// All that a reader of dumps hands on, a line each.
using events = std::vector<std::string>;

std::string shown(std::string_view what, std::string_view label, dump_path path) {
  std::string text(what);
  text.append(" ").append(label);
  for (const std::string_view key : path) text.append("/").append(key);
  return text;
}

// ---- The definition -----------------------------------------------------------------------------

// A file as a general parser sees it: invalid UTF-8 is U+FFFD already.
struct plain_file {
  std::string_view bytes;
  std::size_t at = 0;
  std::string character{};
  std::size_t shown = 0;

  bool has_byte() {
    if (shown < character.size()) return true;
    if (at == bytes.size()) return false;
    const utf8_character one = first_character(bytes.substr(at));
    character = one.is_valid ? bytes.substr(at, one.length) : replacement_character;
    at += one.length;
    shown = 0;
    return true;
  }
  // The rest of the file begins behind the character of which a byte was taken.
  bool next_line(std::string& line) {
    line.clear();
    if (at == bytes.size()) return false;
    const std::size_t end = bytes.find('\n', at);
    line = bytes.substr(at, end == std::string_view::npos ? end : end - at);
    at = end == std::string_view::npos ? bytes.size() : end + 1;
    line.resize(std::min(line.size(), longest_line));
    return true;
  }
};

class plain_iterator {
 public:
  using iterator_category = std::input_iterator_tag;
  using value_type = char;
  using difference_type = std::ptrdiff_t;
  using pointer = const char*;
  using reference = char;

  plain_iterator() = default;
  explicit plain_iterator(plain_file& of) : of_(&of) {}
  char operator*() const { return of_->character[of_->shown]; }
  plain_iterator& operator++() {
    ++of_->shown;
    return *this;
  }
  bool operator==(const plain_iterator& other) const { return ends() == other.ends(); }
  bool operator!=(const plain_iterator& other) const { return ends() != other.ends(); }

 private:
  [[nodiscard]] bool ends() const { return of_ == nullptr || !of_->has_byte(); }
  plain_file* of_ = nullptr;
};

class plain_walk : public json::json_sax_t {
 public:
  plain_walk(std::string_view label, const dump_taker& taker) : label_(label), taker_(taker) {}
  bool null() override { return give("null"); }
  bool boolean(bool is_true) override { return give(is_true ? "true" : "false"); }
  bool number_integer(number_integer_t number) override { return give(std::to_string(number)); }
  bool number_unsigned(number_unsigned_t number) override { return give(std::to_string(number)); }
  bool number_float(number_float_t, const string_t& digits) override { return give(digits); }
  bool string(string_t& text) override { return give(text); }
  bool binary(binary_t&) override { return false; }
  bool start_object(std::size_t) override { return open(true); }
  bool key(string_t& text) override {
    keys_.back() = text;
    return true;
  }
  bool end_object() override { return close(); }
  bool start_array(std::size_t) override { return open(false); }
  bool end_array() override { return close(); }
  bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception&) override {
    return false;
  }

 private:
  [[nodiscard]] std::vector<std::string_view> path() const { return {keys_.begin(), keys_.end()}; }
  bool give(std::string_view text) {
    taker_.value(label_, path(), text);
    return true;
  }
  bool open(bool is_map) {
    if (keys_.size() == deepest) return false;
    if (is_map && !keys_.empty()) taker_.map(label_, path());
    keys_.emplace_back();
    return true;
  }
  bool close() {
    keys_.pop_back();
    return true;
  }

  std::string_view label_;
  const dump_taker& taker_;
  std::vector<std::string> keys_;
};

std::string label_in(std::string_view line, std::string_view word) {
  constexpr std::string_view end = " entries...'";
  if (line.size() < word.size() + end.size() || !line.starts_with(word) || !line.ends_with(end))
    return {};
  return std::string(line.substr(word.size(), line.size() - word.size() - end.size()));
}

bool begins_something_else(const std::string& line) {
  const std::size_t begin = std::min(line.rfind("'Start of "), line.size());
  return line == "'Started Tessel Checker'" || !label_in(line.substr(begin), "'Start of ").empty();
}

void read_plainly(std::string_view bytes, const dump_taker& taker) {
  plain_file file{bytes};
  std::string line;
  bool has_line = false;
  while (std::exchange(has_line, false) || file.next_line(line)) {
    const std::size_t begin = std::min(line.rfind("'Start of "), line.size());
    const std::string label = label_in(line.substr(begin), "'Start of ");
    if (label.empty()) {
      taker.line(line);
      continue;
    }
    if (begin > 0) taker.line(line.substr(0, begin));
    taker.begins(label);
    file.character.clear();
    plain_walk walk(label, taker);
    const bool is_read = json::sax_parse(plain_iterator(file), plain_iterator(), &walk,
                                         json::input_format_t::json, false);
    if (!is_read && file.character == "'") --file.at;
    bool has_end = false;
    while (!has_end && !has_line && file.next_line(line)) {
      has_end = label_in(line, "'End of ") == label;
      has_line = !has_end && begins_something_else(line);
    }
    const dump_end read = is_read ? dump_end::whole : dump_end::unread;
    taker.ended(label, has_end ? read : dump_end::cut_off);
  }
}

// ---- Dumps of all kinds -------------------------------------------------------------------------

class dump_writer {
 public:
  explicit dump_writer(std::uint32_t seed) : random_(seed) {}

  std::size_t below(std::size_t limit) { return random_() % limit; }
  bool one_in(std::size_t count) { return below(count) == 0; }

  std::string text() {
    static const std::vector<std::string> texts = {
        "0x1",        "Not set",        "",        "LAG 0x1_npu0_node0/0/CPU0_memid0x0",
        "a b",        "\xc3\xbc",       "\x7f",    "\\n\\t",
        "\\u00e4",    "\\ud83d\\ude00", "\\u0000", "\xe2\x82\xac",
        "\\\"\\\\\\/"};
    static const std::vector<std::string> bad = {
        "\\ud800",    "\\udc00",        "\\x",         "\\u12",        "\x01",
        "\xff",       "\xc3",           "\xe2\x82",    "\xed\xa0\x80", "\xf9\x90\x80\x80",
        "\\ud800\\n", "\\ud800\\u0041", "\x80\x80",    "\xc0\xaf",     "\0"s,
        "\n",         "\\uD83D\\uDE0",  "\xef\xbb\xbf"};
    std::string made;
    for (std::size_t count = below(3) + (one_in(4) ? 0 : 1); count > 0; --count)
      made += one_in(is_hostile ? 10 : 1000) ? bad[below(bad.size())] : texts[below(texts.size())];
    if (one_in(3000)) made.append(below(300'000), 'x');
    return '"' + made + '"';
  }
  std::string number() {
    static const std::vector<std::string> numbers = {"0",
                                                     "-0",
                                                     "1",
                                                     "-17",
                                                     "18446744073709551615",
                                                     "18446744073709551616",
                                                     "-9223372036854775809",
                                                     "1.50",
                                                     "1e5",
                                                     "-0.0",
                                                     "1E-3",
                                                     "123456789012345678901234567890"};
    static const std::vector<std::string> bad = {"01",    "-",  "1.",  "1e", "+1",
                                                 "1e999", "-x", "0x1", ".5", std::string(400, '9')};
    return one_in(is_hostile ? 8 : 500) ? bad[below(bad.size())] : numbers[below(numbers.size())];
  }
  std::string value(std::size_t depth) {
    if (depth < 7 && !one_in(depth + 2)) return one_in(5) ? list(depth) : map(depth);
    if (one_in(6)) return number();
    if (one_in(20)) return one_in(is_hostile ? 3 : 100) ? "nul" : "true";
    return text();
  }
  std::string line(std::size_t depth) {
    if (one_in(is_hostile ? 30 : 300))
      return std::vector<std::string>{"", " ", "\r\n\t", "\n"}[below(4)];
    return "\n" + std::string(3 * depth, ' ');
  }
  std::string map(std::size_t depth) {
    std::string made = "{";
    const std::size_t count = below(5);
    for (std::size_t i = 0; i < count; ++i)
      made += (i == 0 ? "" : ",") + line(depth + 1) + text() + ":" + value(depth + 1);
    return made + (count == 0 ? "" : line(depth)) + "}";
  }
  std::string list(std::size_t depth) {
    std::string made = "[";
    const std::size_t count = below(4);
    for (std::size_t i = 0; i < count; ++i)
      made += (i == 0 ? "" : ",") + line(depth + 1) + value(depth + 1);
    return made + (count == 0 ? "" : line(depth)) + "]";
  }
  std::string dump() {
    const std::string label = std::vector<std::string>{"BM PI", "DPA", "BCM"}[below(3)];
    return "'Start of " + label + " entries...'\n" +
           (one_in(40)   ? "\xef\xbb\xbf"
            : one_in(40) ? "\xef"
                         : "") +
           (one_in(10) ? value(7) : map(0)) + (one_in(20) ? "" : "\n") + "'End of " + label +
           " entries...'\n";
  }
  std::string file() {
    is_hostile = one_in(2);
    std::string made;
    for (std::size_t count = 1 + below(3); count > 0; --count) {
      if (one_in(4)) made += "grep: no such file\n";
      made += dump();
    }
    if (one_in(2)) mutate(made);
    return made;
  }
  void mutate(std::string& file) {
    static const std::vector<std::string> pieces = {"\"",
                                                    "'",
                                                    "\\",
                                                    "{",
                                                    "}",
                                                    "[",
                                                    "]",
                                                    ":",
                                                    ",",
                                                    "\n",
                                                    "\0"s,
                                                    "9",
                                                    "-",
                                                    "\xc3",
                                                    "\x80",
                                                    "t",
                                                    "'Started Tessel Checker'\n",
                                                    "\n'Start of DPA entries...'\n",
                                                    "'End of DPA entries...'\n"};
    if (one_in(3)) file.resize(below(file.size() + 1));
    for (std::size_t count = below(4); count > 0 && !file.empty(); --count)
      file.replace(below(file.size()), below(3), pieces[below(pieces.size())]);
  }

 private:
  std::mt19937 random_;
  bool is_hostile = false;
};

// ---- Tests --------------------------------------------------------------------------------------

class dumps : public testing::Test {
 protected:
  void SetUp() override {
    std::string name = testing::TempDir() + "desk_dumps.XXXXXX";
    ASSERT_NE(::mkdtemp(name.data()), nullptr);
    folder = name;
  }
  void TearDown() override { std::filesystem::remove_all(folder); }

  static dump_taker taker_into(events& into) {
    dump_taker taker;
    taker.value = [&into](auto label, auto path, auto text) {
      into.push_back(shown("value", label, path).append("=").append(text));
    };
    taker.map = [&into](auto label, auto path) { into.push_back(shown("map", label, path)); };
    taker.begins = [&into](auto label) { into.push_back(shown("begins", label, {})); };
    taker.ended = [&into](auto label, dump_end how) {
      const bool has_end = how != dump_end::cut_off;
      into.push_back(shown(how == dump_end::whole ? "whole"
                           : has_end              ? "unread"
                                                  : "cut off",
                           label, {}));
    };
    taker.line = [&into](auto line) { into.push_back("line " + std::string(line)); };
    return taker;
  }
  [[nodiscard]] events events_of(std::string_view bytes) const {
    const std::string path = folder + "/log";
    std::ofstream(path, std::ios::binary) << bytes;
    events made;
    (void)read_dumps(path, taker_into(made));
    return made;
  }
  [[nodiscard]] static events plain_events_of(std::string_view bytes) {
    events made;
    read_plainly(bytes, taker_into(made));
    return made;
  }
  [[nodiscard]] events events_of_dump(const std::string& text) const {
    return events_of("'Start of DPA entries...'\n" + text + "\n'End of DPA entries...'\n");
  }

  std::string folder;
};

TEST_F(dumps, pass_by_as_single_values) {
  EXPECT_THAT(events_of_dump(R"({"a":{"b":"c","d":[1,{}]},"e":null})"),
              ElementsAre("begins DPA", "map DPA/a", "value DPA/a/b=c", "value DPA/a/d/=1",
                          "map DPA/a/d/", "value DPA/e=null", "whole DPA"));
}

TEST_F(dumps, have_one_mark_for_each_sequence_that_is_no_utf8) {
  EXPECT_THAT(
      events_of_dump("{\"a\":\"\x80\x80-\xc3-\xed\xa0\x80-\xf9\x90\x80\x80\"}"),
      ElementsAre("begins DPA", "value DPA/a=\xef\xbf\xbd-\xef\xbf\xbd-\xef\xbf\xbd-\xef\xbf\xbd",
                  "whole DPA"));
}

TEST_F(dumps, are_not_followed_deeper_than_any_dump_is) {
  const auto nested = [](std::size_t depth) {
    return std::string(depth, '[') + "1" + std::string(depth, ']');
  };
  EXPECT_EQ(events_of_dump(nested(deepest)).back(), "whole DPA");
  EXPECT_EQ(events_of_dump(nested(deepest + 1)).back(), "unread DPA");
}

// As when ssh complains without a line end.
TEST_F(dumps, may_begin_behind_the_last_words_of_a_tool) {
  EXPECT_THAT(events_of("ssh: gone'Start of DPA entries...'\n{\"a\":1}\n'End of DPA entries...'\n"),
              ElementsAre("line ssh: gone", "begins DPA", "value DPA/a=1", "whole DPA"));
  EXPECT_THAT(events_of("it says 'Start of DPA entries...' and goes on\n"),
              ElementsAre("line it says 'Start of DPA entries...' and goes on"));
}

TEST_F(dumps, are_whole_only_with_their_end) {
  EXPECT_EQ(events_of("'Start of DPA entries...'\n{}\n").back(), "cut off DPA");
  EXPECT_EQ(events_of("'Start of DPA entries...'\n{\n'End of DPA entries...'\n").back(),
            "unread DPA");
}

// What the audit writes if something keeps it from writing JSON.
TEST_F(dumps, in_a_plain_form_are_not_cut_off) {
  EXPECT_EQ(events_of_dump("{'BE1': {'ifh': '0x1'}}").back(), "unread DPA");
  EXPECT_EQ(events_of_dump("{\n   \"BE1\":{\n      \"if\n{'BE1': {'ifh': '0x1'}}").back(),
            "unread DPA");
}

// The next run appends to the log of stale entries, behind whatever the one before has left.
TEST_F(dumps, that_are_cut_off_do_not_swallow_what_follows) {
  const std::string next =
      "'Started Tessel Checker'\n'Start of PI entries...'\n[]\n"
      "'End of PI entries...'\n";
  for (const char* torn :
       {"", "[\n", "[\n   {\n", "[\n   {\n      \"Node Descr\n",
        "[\n   {\n      \"Node Description\":\n", "[\n   {\n      \"Visited\":0\n",
        "[\n   {\n      \"Visited\":-\n", "[\n   {\n      \"a\":nu\n",
        "[\n   {\n      \"a\":\"\\\n", "[\n   {}\n", "[]\n"}) {
    const events found = events_of("'Start of PI entries...'\n" + std::string(torn) + next);
    EXPECT_THAT(
        std::vector(found.end() - std::min<std::ptrdiff_t>(4, std::ssize(found)), found.end()),
        ElementsAre("cut off PI", "line 'Started Tessel Checker'", "begins PI", "whole PI"))
        << torn;
  }
  EXPECT_THAT(events_of("'Start of PI entries...'\n{\n'Start of DPA entries...'\n{}\n"
                        "'End of DPA entries...'\n"),
              ElementsAre("begins PI", "cut off PI", "begins DPA", "whole DPA"));
}

// The reader looks at several bytes in one step, and its bytes come in blocks. A general parser,
// which sees one byte after the other, is the definition of what it must make of a file.
TEST_F(dumps, are_read_as_a_general_parser_reads_them) {
  constexpr std::size_t block = std::size_t{256} << 10U;
  std::size_t whole = 0;
  for (std::uint32_t seed = 0; seed < 1500; ++seed) {
    dump_writer writer(seed);
    std::string file = writer.file();
    // A block ends somewhere in the middle.
    if (seed % 8 == 0)
      file.insert(
          0,
          std::string(block - 1 - writer.below(std::min(block - 1, file.size() + 1)), '.') + "\n");
    const events found = events_of(file);
    ASSERT_EQ(found, plain_events_of(file)) << "seed " << seed;
    if (!found.empty() && found.back().starts_with("whole")) ++whole;
  }
  EXPECT_GT(whole, 400U) << "most of them must not be broken at once";
}

// The audit may still be writing it.
TEST_F(dumps, are_read_to_the_end_of_a_file_that_grows) {
  const std::string path = folder + "/grows.log";
  std::ofstream file(path, std::ios::binary);
  file << "x" << std::flush;
  byte_source bytes(path);
  std::string read(bytes.at_hand());
  bytes.skip(read.size());
  const std::string more(1'000'000, 'y');
  file << more << std::flush;
  EXPECT_EQ(bytes.more_at_hand().front(), 'y');
  for (std::string_view part = bytes.at_hand(); !part.empty(); part = bytes.at_hand()) {
    read.append(part);
    bytes.skip(part.size());
  }
  EXPECT_EQ(read, "x" + more);
}

// A text over several blocks, and the keys that lead to it.
TEST_F(dumps, may_hold_a_text_of_several_blocks) {
  const std::string text(3'000'000, 'y');
  const events found = events_of_dump("{\"a\":{\"b\":\"" + text + "\",\"c\":\"\\n" + text + "\"}}");
  ASSERT_EQ(found.size(), 5U);
  EXPECT_EQ(found[2], "value DPA/a/b=" + text);
  EXPECT_EQ(found[3], "value DPA/a/c=\n" + text);
}

TEST(utf8, knows_what_unicode_allows) {
  const auto is_valid = [](std::string_view text) {
    const utf8_character one = first_character(text);
    return one.is_valid && one.length == text.size();
  };
  for (const char* good : {"a", "\x7f", "\xc2\x80", "\xdf\xbf", "\xe0\xa0\x80", "\xed\x9f\xbf",
                           "\xee\x80\x80", "\xf0\x90\x80\x80", "\xf4\x8f\xbf\xbf"})
    EXPECT_TRUE(is_valid(good)) << good;
  for (const char* bad : {"\x80", "\xc0\xaf", "\xc1\xbf", "\xe0\x9f\xbf", "\xed\xa0\x80",
                          "\xed\xbf\xbf", "\xf0\x8f\xbf\xbf", "\xf4\x90\x80\x80",
                          "\xf5\x80\x80\x80", "\xf9\x90\x80\x80", "\xff", "\xe2\x82", "\xc3"})
    EXPECT_FALSE(is_valid(bad)) << bad;
  EXPECT_EQ(first_character("\xe2\x82\xac").code, 0x20acU);
  EXPECT_EQ(first_character("\xf0\x9f\x98\x80").code, 0x1f600U);
  EXPECT_EQ(first_character("\xe2\x82(").length, 2U) << "what does not continue it is the next one";
}

}  // namespace
}  // namespace desk
