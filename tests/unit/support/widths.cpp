#include "support/widths.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <vector>

#include "base/text.h"

namespace tessel {

namespace {

struct piece {
  std::string_view text;
  char times = 'x';  // x for a fixed part
  bool is_shown = false;
};

std::vector<piece> pieces_of(std::string_view text) {
  std::vector<piece> pieces;
  while (!text.empty()) {
    const std::size_t open = text.find('{');
    if (open != 0) pieces.push_back({text.substr(0, open)});
    if (open == std::string_view::npos) break;
    const std::size_t colon = text.find(':', open);
    const std::size_t close = text.find('}', colon);
    pieces.push_back(
        {text.substr(colon + 1, close - colon - 1), text[open + 1], text[colon - 1] == '='});
    text.remove_prefix(close + 1);
  }
  return pieces;
}

// The parts of one text: how often each piece occurs in it.
std::vector<std::string> repeated(const std::vector<piece>& pieces, std::size_t changed,
                                  std::size_t count) {
  std::vector<std::string> parts;
  for (std::size_t at = 0; at < pieces.size(); ++at) {
    parts.emplace_back();
    for (std::size_t times = at == changed ? count : 1; times > 0; --times) {
      parts.back() += pieces[at].text;
    }
  }
  return parts;
}

std::string in_hexadecimal(const std::string& decimal) {
  return fmt::format("{:x}", decimal.empty() ? 0 : std::stoull(decimal));
}

std::string filled(std::string_view expected, const std::vector<piece>& pieces,
                   const std::vector<std::string>& parts) {
  std::string result(expected);
  std::size_t number = 0;
  for (std::size_t at = 0; at < pieces.size(); ++at) {
    if (!pieces[at].is_shown) continue;
    ++number;
    result = replace_all(result, fmt::format("${}", number), parts[at]);
    const std::string hexadecimal = fmt::format("$h{}", number);
    if (result.find(hexadecimal) != std::string::npos) {
      result = replace_all(result, hexadecimal, in_hexadecimal(parts[at]));
    }
  }
  return result;
}

bool is_tried(char times, std::size_t count) {
  const std::string_view without = "1+*?0";
  const std::string_view twice = "1+*?2m";
  return (count == 0 ? without : twice).find(times) != std::string_view::npos;
}

bool is_found(char times, std::size_t count) {
  return std::string_view(count == 0 ? "*?" : "+*m").find(times) != std::string_view::npos;
}

}  // namespace

void expect_widths(const width_row& row) {
  SCOPED_TRACE(row.why);
  const std::vector<piece> pieces = pieces_of(row.text);
  const auto expect = [&](std::size_t changed, std::size_t count, bool found) {
    const std::vector<std::string> parts = repeated(pieces, changed, count);
    std::string text;
    for (const std::string& part : parts) text += part;
    const std::string_view expected = found ? row.expected : row.nothing;
    EXPECT_EQ(row.read(text), replace_all(filled(expected, pieces, parts), "$0", text))
        << quoted(text);
  };
  expect(pieces.size(), 1, true);
  for (std::size_t at = 0; at < pieces.size(); ++at) {
    for (const std::size_t count : {std::size_t{0}, std::size_t{2}}) {
      if (!is_tried(pieces[at].times, count)) continue;
      expect(at, count, is_found(pieces[at].times, count));
    }
  }
}

}  // namespace tessel
