#include "parse/interface_text.h"

#include <algorithm>

#include "base/cursor.h"
#include "base/text.h"

namespace tessel {

namespace {

constexpr std::size_t npos = std::string_view::npos;
constexpr std::string_view l2transport = "l2transport";
constexpr std::string_view encapsulation = "encapsulation";

// True if a pattern reads the head as it is written, except for its points. The library refuses a
// pattern with a head of tens of thousands of characters; this limit is far below that, and far
// above every head that the router accepts.
bool is_plain(std::string_view head) {
  constexpr std::size_t longest_head = 128;
  return !head.empty() && head.size() <= longest_head &&
         std::all_of(head.begin(), head.end(),
                     [](char c) { return is_word(c) || c == ' ' || c == '-' || c == '.'; });
}

// True if the line goes on with the head at `at`.
bool stands_at(std::string_view line, std::size_t at, std::string_view head) {
  const std::string_view found = line.substr(at, head.size());
  return found.size() == head.size() &&
         std::equal(head.begin(), head.end(), found.begin(),
                    [](char wanted, char c) { return wanted == '.' || wanted == c; });
}

// What the line says behind the first head that `counts` accepts, given its position; nothing if
// there is none. What does not follow the first one follows no other.
template <class Counts>
std::string_view behind_head(std::string_view line, std::string_view head, Counts counts) {
  const std::string_view start = head.substr(0, head.find('.'));
  for (std::size_t at = line.find(start); at != npos; at = line.find(start, at + 1)) {
    if (stands_at(line, at, head) && counts(at)) return line.substr(at + head.size());
  }
  return {};
}

std::string_view behind_any_head(std::string_view line, std::string_view head) {
  return behind_head(line, head, [](std::size_t) { return true; });
}

// The same behind a head with a character before it that is no white space.
std::string_view behind_inner_head(std::string_view line, std::string_view head) {
  return behind_head(line, head,
                     [line](std::size_t at) { return at > 0 && !is_white_space(line[at - 1]); });
}

bool contains(std::string_view text, std::string_view what) {
  return text.find(what) != npos;
}

// Calls `step` with each line of the text until it returns true; false if it never does.
template <class Step>
bool any_line(std::string_view text, Step step) {
  for (;;) {
    const std::size_t end = text.find('\n');
    if (step(text.substr(0, end))) return true;
    if (end == npos) return false;
    text.remove_prefix(end + 1);
  }
}

// The tags that the text begins with; empty if it does not.
std::string_view leading_tags(std::string_view text) {
  cursor at(text);
  std::size_t end = 0;
  if (at.skip("dot1q ")) {
    if (!at.digits().empty()) end = at.place();
    if (end > 0 && at.skip(" second-dot1q ") && !at.digits().empty()) end = at.place();
  } else if (at.skip("dot1ad ")) {
    cursor both = at;
    if (!at.digits().empty()) end = at.place();
    if (!both.word().empty() && both.skip(" dot1q ") && !both.digits().empty()) end = both.place();
  }
  return text.substr(0, end);
}

// The tags behind the last "encapsulation" that has some.
std::string_view last_tags(std::string_view text) {
  std::size_t at = text.rfind(encapsulation);
  while (at != npos) {
    cursor behind(text, at + encapsulation.size());
    if (behind.skip(" ")) {
      const std::string_view tags = leading_tags(text.substr(behind.place()));
      if (!tags.empty()) return tags;
    }
    at = at == 0 ? npos : text.rfind(encapsulation, at - 1);
  }
  return {};
}

void add_numbers(std::string_view tags, value_list& numbers) {
  constexpr std::string_view dot = "dot";
  std::size_t at = tags.find(dot);
  while (at != npos) {
    cursor behind(tags, at + dot.size());
    if (!behind.word().empty() && behind.skip_blank()) {
      if (const std::string_view number = behind.digits(); !number.empty()) {
        numbers.emplace_back(number);
      }
    }
    at = tags.find(dot, behind.place());
  }
}

// The same four with a pattern. A head can occur several times in its text, so they skip the others
// on a line, read a long line only once, and find what the definitions find.
bool finds(std::string_view form, std::string_view text, std::string_view head, here where) {
  return !findall(pattern(fill(form, {head})), text, where).empty();
}

constexpr std::string_view l2_pattern = "{}(?:.*?l2transport|.*+(*SKIP)(*FAIL))";
constexpr std::string_view keyword_pattern = R"([^\s]{}(?:.*?encapsulation|.*+(*SKIP)(*FAIL)))";
constexpr std::string_view tagged_pattern =
    R"([^\s]{}(?:.*(encapsulation|l2transport encapsulation) )"
    R"((dot1q \d+ second-dot1q \d+|dot1ad \w+ dot1q \d+|dot1q \d+|dot1ad \d+))"
    R"(|.*+(*SKIP)(*FAIL)))";
constexpr std::string_view untagged_pattern =
    "{} l2transport(?:(?>.*?encapsulation).*?untagged|.*+(*SKIP)(*FAIL))";

}  // namespace

bool is_layer_2(std::string_view text, std::string_view head, here where) {
  if (!is_plain(head)) return finds(l2_pattern, text, head, where);
  return any_line(text, [head](std::string_view line) {
    return contains(behind_any_head(line, head), l2transport);
  });
}

bool has_encapsulation(std::string_view text, std::string_view head, here where) {
  if (!is_plain(head)) return finds(keyword_pattern, text, head, where);
  return any_line(text, [head](std::string_view line) {
    return contains(behind_inner_head(line, head), encapsulation);
  });
}

value_list tags_of(std::string_view text, std::string_view head, here where) {
  value_list numbers;
  if (!is_plain(head)) {
    // All groups, because the head may have some of its own.
    add_numbers(list_text(findall(pattern(fill(tagged_pattern, {head})), text, where)), numbers);
    return numbers;
  }
  any_line(text, [&](std::string_view line) {
    add_numbers(last_tags(behind_inner_head(line, head)), numbers);
    return false;
  });
  return numbers;
}

bool is_untagged(std::string_view text, std::string_view head, here where) {
  if (!is_plain(head)) return finds(untagged_pattern, text, head, where);
  return any_line(text, [head](std::string_view line) {
    const std::string_view behind = behind_head(line, head, [&](std::size_t at) {
      return line.substr(at + head.size()).starts_with(" l2transport");
    });
    const std::size_t at = behind.find(encapsulation);
    return at != npos && contains(behind.substr(at + encapsulation.size()), "untagged");
  });
}

}  // namespace tessel
