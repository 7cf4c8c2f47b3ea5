#include "lab/capture/redact_words.h"

#include <algorithm>
#include <array>
#include <cctype>

namespace lab {
namespace {

constexpr std::string_view blanks = " \t\r\v\f";
// Stanzas end at "!", texts are split at ",", and the others decide how a text is quoted.
constexpr std::string_view marks = "!,'\"\\+";
constexpr std::array<std::string_view, 6> words{
    "l2transport", "encapsulation", "untagged",
    "MTU",         "line protocol", "hw-module profile qos hqos-enable"};

bool is_digit(char c) {
  return c >= '0' && c <= '9';
}
bool is_word_part(char c) {
  return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_';
}

// A part of a text, taken from its front.
struct reader {
  std::string_view text;
  std::size_t at = 0;

  bool take(std::string_view what) {
    if (!text.substr(at).starts_with(what)) return false;
    at += what.size();
    return true;
  }
  bool take_one_of(std::string_view characters) {
    if (at == text.size() || characters.find(text[at]) == std::string_view::npos) return false;
    ++at;
    return true;
  }
  template <typename Belongs>
  bool take_all(Belongs belongs) {
    const std::size_t start = at;
    while (at < text.size() && belongs(text[at])) ++at;
    return at > start;
  }
  bool take_number() { return take_all(is_digit); }
};

// "Bundle-Ether12.100", or "HundredGigE0/0/0/1": letters, and numbers with slashes between them.
bool take_interface(reader& r) {
  if (r.take("Bundle-Ether")) {
    if (!r.take_number()) return false;
    reader sub = r;
    if (sub.take(".") && sub.take_number()) r = sub;
    return true;
  }
  if (!r.take_all(is_word_part)) return false;
  std::size_t slashes = 0;
  for (reader next = r; next.take("/") && next.take_number(); ++slashes) r = next;
  return slashes >= 3;
}

std::size_t named_interface(std::string_view text) {
  reader r{text};
  return r.take("interface") && r.take_one_of(blanks) && take_interface(r) ? r.at : 0;
}

std::size_t bundle_id(std::string_view text) {
  reader r{text};
  return r.take("bundle id ") && r.take_number() ? r.at : 0;
}

// "dot1q 10", "second-dot1q 10", "dot1ad 10 dot1q 20".
std::size_t tag(std::string_view text) {
  reader r{text};
  r.take("second-");
  if ((!r.take("dot1q") && !r.take("dot1ad")) || !r.take_one_of(blanks)) return 0;
  return r.take_number() ? r.at : 0;
}

bool is_port_part(char c) {
  return is_digit(c) || c == '/';
}

// "0/0/0/1 is", the beginning of a port in the listing of interfaces.
std::size_t listed_port(std::string_view text) {
  reader r{text};
  if (!r.take_all(is_port_part) || text.substr(0, r.at).find('/') == std::string_view::npos)
    return 0;
  const auto is_blank = [](char c) { return blanks.find(c) != std::string_view::npos; };
  return r.take_all(is_blank) && r.take("is") && r.take_one_of(blanks) ? r.at : 0;
}

// Behind "0/0/0/1 is" the audit reads on over words, blanks, "+", "," and "[", no further.
std::string as_plain_as(std::string_view original, std::string replacement) {
  const bool is_plain = std::all_of(original.begin(), original.end(), [](char c) {
    return is_word_part(c) || blanks.find(c) != std::string_view::npos || c == '[';
  });
  if (is_plain) std::erase(replacement, '-');
  return replacement;
}

std::string_view without_blanks(std::string_view text) {
  const std::size_t first = std::min(text.find_first_not_of(blanks), text.size());
  text.remove_prefix(first);
  return text.substr(0, text.find_last_not_of(blanks) + 1);
}

}  // namespace

std::size_t read_by_audit(std::string_view whole, std::size_t at) {
  const std::string_view text = whole.substr(at);
  if (text.empty()) return 0;
  if (marks.find(text.front()) != std::string_view::npos) return 1;
  for (const std::string_view word : words)
    if (text.starts_with(word)) return word.size();
  for (const auto form : {named_interface, bundle_id, tag})
    if (const std::size_t size = form(text); size > 0) return size;
  // A long number is read once, from its beginning.
  const bool is_begun = at > 0 && is_port_part(whole[at - 1]);
  return is_begun ? 0 : listed_port(text);
}

std::string with_read_words(std::string_view text,
                            const std::function<std::string(std::string_view)>& replacement) {
  std::string out;
  std::size_t done = 0;
  bool is_port_listed = false;
  const auto add_up_to = [&](std::size_t end) {
    const std::string_view piece = text.substr(done, end - done);
    const std::string_view inner = without_blanks(piece);
    const auto begin = static_cast<std::size_t>(inner.data() - piece.data());
    out.append(piece.substr(0, begin));
    if (!inner.empty())
      out += is_port_listed ? as_plain_as(inner, replacement(inner)) : replacement(inner);
    // The number of a replacement must not become part of the port's.
    const bool joins = !inner.empty() && begin + inner.size() == piece.size() &&
                       end < text.size() && is_port_part(text[end]);
    if (joins) out += '-';
    out.append(piece.substr(begin + inner.size()));
  };
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t size = read_by_audit(text, at);
    if (size == 0) {
      ++at;
      continue;
    }
    add_up_to(at);
    is_port_listed = is_port_listed || listed_port(text.substr(at, size)) > 0;
    out.append(text.substr(at, size));
    at = done = at + size;
  }
  add_up_to(text.size());
  return out;
}

}  // namespace lab
