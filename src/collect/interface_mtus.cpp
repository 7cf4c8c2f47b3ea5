#include "collect/interface_mtus.h"

#include <algorithm>
#include <vector>

#include "base/text.h"

namespace tessel {

namespace {

constexpr std::string_view number_characters = "0123456789/";
constexpr std::size_t npos = std::string_view::npos;

// The character class in the definition.
bool is_between(char c) {
  return is_word(c) || c == '+' || c == ',' || c == '[' || is_white_space(c);
}

std::size_t end_of(std::string_view text, std::size_t from, bool (*belongs)(char)) {
  while (from < text.size() && belongs(text[from])) ++from;
  return from;
}

// The word "MTU" where it is indented and the first word on its line.
struct mtu_word {
  std::size_t word;       // its position
  std::size_t line_feed;  // position of the last line feed with a blank between it and the word
  std::string_view mtu;
};

std::vector<mtu_word> mtu_words(std::string_view listing) {
  // The value is only looked ahead at, because it may itself be such a word.
  static const pattern& mtu = constant(R"((?<=\s)(MTU)(?=\s+(\w+)))");
  std::vector<mtu_word> words;
  const matches found = findall(mtu, listing);
  for (std::size_t at = 0; at < found.size(); ++at) {
    const auto word = static_cast<std::size_t>(found[at][0].data() - listing.data());
    const std::size_t before = listing.find_last_not_of(white_space, word - 1);
    const std::size_t blanks = before == npos ? 0 : before + 1;
    // Search the white space only: a long line may have many such words.
    const std::size_t line_feed = listing.substr(blanks, word - 1 - blanks).rfind('\n');
    if (line_feed != npos) words.push_back({word, blanks + line_feed, found[at][1]});
  }
  return words;
}

// The end of "\s+is\s" after the number that ends at `number_end`, or npos.
std::size_t end_of_head(std::string_view text, std::size_t number_end) {
  const std::size_t is = end_of(text, number_end, is_white_space);
  if (is == number_end || text.substr(is, 2) != "is") return npos;
  return is + 2 < text.size() && is_white_space(text[is + 2]) ? is + 3 : npos;
}

// The last MTU in the run of characters that follows a head, or null.
const mtu_word* last_mtu_of(std::size_t head_end, std::size_t run_end,
                            const std::vector<mtu_word>& words) {
  const auto behind = std::partition_point(
      words.begin(), words.end(), [run_end](const mtu_word& each) { return each.word < run_end; });
  if (behind == words.begin()) return nullptr;
  const mtu_word& last = *std::prev(behind);
  return last.line_feed >= head_end ? &last : nullptr;
}

}  // namespace

value parse_interface_mtus(std::string_view listing) {
  const std::string text = replace_all(listing, "Bundle-Ether", "BE");
  const std::string_view interfaces = text;
  const std::vector<mtu_word> words = mtu_words(interfaces);
  value mtus = make_map();
  std::size_t run_end = 0;  // end of the run of such characters around the last head
  std::size_t number = interfaces.find_first_of(number_characters);
  while (number != npos) {
    const std::size_t number_end =
        std::min(interfaces.find_first_not_of(number_characters, number), interfaces.size());
    std::size_t next = number_end;
    const std::size_t head_end = end_of_head(interfaces, number_end);
    if (head_end != npos) {
      if (run_end < head_end) run_end = end_of(interfaces, head_end, is_between);
      if (const mtu_word* last = last_mtu_of(head_end, run_end, words)) {
        mtus.as_map().set(interfaces.substr(number, number_end - number), last->mtu);
        next = static_cast<std::size_t>(last->mtu.data() - interfaces.data()) + last->mtu.size();
      }
    }
    number = interfaces.find_first_of(number_characters, next);
  }
  return mtus;
}

}  // namespace tessel
