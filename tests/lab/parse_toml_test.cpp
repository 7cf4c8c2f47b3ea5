#include "lab/base/parse_toml.h"
#include "lab/base/error.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "lab/capture/capture.h"
#include "lab/describe/description.h"
#include "support.h"

namespace {

using namespace lab;

// The message that refuses the text; empty if it is accepted.
template <typename Parse>
std::string refusal(Parse parse) {
  try {
    parse();
  } catch (const lab_error& failure) {
    return failure.what();
  }
  return {};
}

std::string refusal_of_toml(const std::string& text) {
  return refusal([&] { parse_toml(text, "f.toml"); });
}

void expect_one_line(const std::string& message, const std::string& begin) {
  EXPECT_TRUE(message.starts_with(begin)) << message;
  EXPECT_EQ(message.find('\n'), std::string::npos) << message;
}

TEST(toml, broken_headers_are_refused_with_their_line) {
  const std::string rows[] = {"[",          "[[",
                              "[[[",        "[.a]",
                              "[[,",        "[[{",
                              "[[#",        "[a",
                              "[[\xc3\xa9", "[a.",
                              "[ [a]]",     "[]",
                              "[[]]",       "[a.]",
                              "[\"a",       "[[a]",
                              "[[a",        "[ ",
                              "[\t.",       "[=]",
                              "[a..b]",     std::string{"[[\0", 3}};
  for (const std::string& row : rows)
    for (const char* behind : {"", "\n", "\ntype = \"birch\"\n[[node]]\n", "]\n", "]]"})
      for (const std::string before :
           {"", "# one\n\ntype = \"elm\"\n[a]\nb = \"\"\"\n[\n\"\"\"\n"}) {
        const std::string text = before + row + behind;
        const std::string message = refusal_of_toml(text);
        if (message.empty()) continue;  // the next character made it a header
        expect_one_line(message, before.empty() ? "f.toml:1: " : "f.toml:8: ");
      }
  for (const char* row : {"[", "[[", "[[[", "[.a]", "[[,", "[[{", "[[#"})
    EXPECT_NE(refusal_of_toml(row), "") << row;
  EXPECT_EQ(refusal_of_toml("a = 1\n[\n"),
            "f.toml:2: not TOML: the text in brackets is not a name");
}

TEST(toml, depth_is_refused_and_not_followed) {
  constexpr std::size_t many = 200'000;
  std::string inline_tables = "a = ";
  std::string dots = "a";
  std::string lines;
  for (std::size_t i = 0; i < many; ++i) {
    inline_tables += "{a = ";
    dots += ".a";
    lines += "[{a" + std::string(i % 200, '.') + "a=\n";
  }
  for (const std::string& text :
       {std::string(many, '['), "a = " + std::string(many, '['), inline_tables, dots + " = 1",
        "[" + dots + "]", "[[" + dots + "]]", "a = {" + dots + " = 1}", "a = " + lines})
    expect_one_line(refusal_of_toml(text), "f.toml:");
}

TEST(toml, the_deepest_allowed_table_is_freed) {
  std::string key = "a";
  for (int i = 0; i < 256; ++i) key += ".a";
  std::string text = "[" + key + "]\n" + key + " = [\n";
  for (int i = 0; i < 7; ++i) text += "{" + key + " = [\n";
  for (int i = 0; i < 7; ++i) text += "]}";
  EXPECT_EQ(refusal_of_toml(text + "]\n"), "");
}

// Where a blank may occur, the library takes some letters for neither blank nor letter.
TEST(toml, letters_beyond_ascii_are_refused_outside_of_texts) {
  for (const char* letter : {"\xc3\xa9", "\xc2\xa1", "\xef\xbb\xbd", "\xef\xac\xa9", "\xd9\x86"})
    for (const char* before : {"", "[", "a ", "a = ", "a = 1 ", "[a] ", "a = { ", "a = [1 "})
      expect_one_line(refusal_of_toml(std::string{before} + letter + "\n"), "f.toml:1: ");
  EXPECT_EQ(refusal_of_toml("a = \"\xc3\xa9\" # \xc3\xa9\n"), "");
}

TEST(toml, dots_in_a_name_are_not_depth) {
  EXPECT_EQ(refusal_of_toml("router = \"" + std::string(255, '.') + "\"\n"), "");
}

std::vector<std::string> descriptions() {
  std::vector<std::string> texts;
  for (const auto& entry : std::filesystem::directory_iterator(LAB_ROUTERS))
    texts.push_back(lab_test::read_text(entry.path()));
  std::sort(texts.begin(), texts.end());
  return texts;
}

std::string a_manifest() {
  const lab_test::scratch_folder scratch;
  write_folder(lab_test::rendered_router("birch-small").c, scratch.path() / "out");
  return lab_test::read_text(scratch.path() / "out" / "manifest");
}

std::string mutilated(const std::string& text, std::mt19937& random) {
  using namespace std::string_view_literals;
  constexpr std::string_view loved = "[[]]{}=.,\"'#\n\\ -_0x\xc3\xa9\0"sv;
  std::string result = text;
  const auto place = [&] { return random() % (result.size() + 1); };
  switch (random() % 5) {
    case 0:
      result.resize(place());
      return result;
    case 1:
      return result.insert(place(), result.substr(place(), 200));
    case 2:
      return result.erase(place(), 1 + random() % 40);
    case 3:
      result.resize(place());
      [[fallthrough]];
    default:
      for (unsigned count = 1 + random() % 4; count > 0; --count)
        result.insert(place(), 1, loved[random() % loved.size()]);
      return result;
  }
}

// Accepted, or refused in one line that begins with the file; nothing else happens.
TEST(toml, no_text_ends_the_program) {
  std::mt19937 random(7);
  const std::string manifest = a_manifest();
  for (int i = 0; i < 2000; ++i) {
    const std::string text = mutilated(manifest, random);
    const std::string message = refusal([&] { parse_manifest(text, "m"); });
    if (!message.empty()) expect_one_line(message, "m:");
  }
  const std::vector<std::string> texts = descriptions();
  for (int i = 0; i < 2000; ++i) {
    const std::string text = mutilated(texts[random() % texts.size()], random);
    refusal([&] { parse_router(text, "f.toml"); });
  }
}

}  // namespace
