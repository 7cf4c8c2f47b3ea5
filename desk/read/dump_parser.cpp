#include "desk/read/dump_parser.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <utility>

#include "desk/model/utf8.h"
#include "desk/read/byte_steps.h"

namespace desk {

namespace {

// A tool's whole output may be one text. What is longer comes from nothing that the audit reads.
constexpr std::size_t longest_value = std::size_t{32} << 20U;

static_assert(byte_source::slack >= sizeof(some_bytes),
              "the last step may begin at the last byte at hand");

bool is_blank(char c) {
  return c == ' ' || c == '\n' || c == '\t' || c == '\r';
}

bool is_digit(int c) {
  return c >= '0' && c <= '9';
}

int value_of_hex(int c) {
  if (is_digit(c)) return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

void append_code(std::string& to, std::uint32_t code) {
  const auto put = [&to](std::uint32_t byte) { to += static_cast<char>(byte); };
  if (code < 0x80) return put(code);
  if (code < 0x800) {
    put(0xc0U | code >> 6U);
  } else if (code < 0x10000) {
    put(0xe0U | code >> 12U);
    put(0x80U | (code >> 6U & 0x3fU));
  } else {
    put(0xf0U | code >> 18U);
    put(0x80U | (code >> 12U & 0x3fU));
    put(0x80U | (code >> 6U & 0x3fU));
  }
  put(0x80U | (code & 0x3fU));
}

}  // namespace

dump_parser::dump_parser(byte_source& from, std::string_view label, const dump_taker& taker)
    : from_(from), label_(label), taker_(taker) {
  const std::string_view bytes = from_.at_hand();
  begin_ = at_ = bytes.data();
  end_ = begin_ + bytes.size();
}

// ---- Bytes --------------------------------------------------------------------------------------

// Keys that are views of the bytes at hand must outlive them.
void dump_parser::keep_keys() {
  for (std::size_t i = 0; i < depth_; ++i) {
    if (keys_[i].data() == kept_[i].data()) continue;
    kept_[i].assign(keys_[i]);
    keys_[i] = kept_[i];
  }
}

// The next bytes, when all are read. False at the end of the file.
bool dump_parser::fill() {
  keep_keys();
  from_.skip(static_cast<std::size_t>(end_ - begin_));
  const std::string_view bytes = from_.at_hand();
  begin_ = at_ = bytes.data();
  end_ = begin_ + bytes.size();
  return !bytes.empty();
}

// More bytes behind those of a token that has begun.
bool dump_parser::fill_behind(const char*& token) {
  keep_keys();
  from_.skip(static_cast<std::size_t>(token - begin_));
  const auto length = static_cast<std::size_t>(end_ - token);
  const std::string_view bytes = from_.more_at_hand();
  begin_ = token = bytes.data();
  at_ = begin_ + length;
  end_ = begin_ + bytes.size();
  return bytes.size() != length;
}

// The next byte, -1 at the end of the file.
inline int dump_parser::peek() {
  if (at_ == end_ && !fill()) return -1;
  return static_cast<unsigned char>(*at_);
}

// Takes it as well; of a character that is no ASCII all of it.
inline int dump_parser::take() {
  const int byte = peek();
  if (byte < 0x80)
    at_ += byte >= 0 ? 1 : 0;
  else
    (void)take_character();
  return byte;
}

// Takes the first byte behind the white space; 0 at the end of the file.
inline char dump_parser::next_token() {
  do {
    while (at_ != end_) {
      const char byte = *at_++;
      if (byte > ' ') return byte;
      if (byte == '\n')
        at_ = std::min(behind_blanks(at_, end_), end_);
      else if (!is_blank(byte))
        return byte;
    }
  } while (fill());
  return 0;
}

// ---- Texts --------------------------------------------------------------------------------------

// What is between the quotes, of which the first one is taken, if it is at hand and stands for
// itself, as nearly all texts are; otherwise nothing is taken. The view lasts until the next bytes.
inline std::optional<std::string_view> dump_parser::plain_text() {
  const char* const end = behind_plain(at_, end_);
  if (end >= end_ || *end != '"') return {};
  const char* const begin = std::exchange(at_, end + 1);
  return std::string_view(begin, static_cast<std::size_t>(end - begin));
}

// The same for any text.
bool dump_parser::read_text(std::string_view& text) {
  const char* token = at_;
  for (;;) {
    at_ = std::min(behind_plain(at_, end_), end_);
    if (at_ != end_) break;
    const bool is_too_long = static_cast<std::size_t>(end_ - token) > longest_value;
    if (is_too_long || !fill_behind(token)) return false;
  }
  if (*at_ != '"') return read_odd_text(token, text);
  text = {token, static_cast<std::size_t>(at_ - token)};
  ++at_;
  return true;
}

// The same for a text with escapes, with bytes above ASCII or with forbidden ones.
bool dump_parser::read_odd_text(const char* token, std::string_view& text) {
  text_.assign(token, at_);
  while (text_.size() <= longest_value) {
    const int byte = peek();
    if (byte == '"') {
      ++at_;
      text = text_;
      return true;
    }
    if (byte >= 0x80) {
      text_ += take_character();
      continue;
    }
    if (byte == '\\') {
      ++at_;
      if (!read_escape()) return false;
      continue;
    }
    if (byte < 0x20) {
      (void)take();
      return false;
    }
    const char* const plain = at_;
    at_ = std::min(behind_plain(at_, end_), end_);
    text_.append(plain, at_);
  }
  return false;
}

// A character of several bytes, or U+FFFD.
std::string_view dump_parser::take_character() {
  static constexpr std::size_t longest = 4;
  const std::size_t wanted = length_from_lead(*at_);
  kept_character_[0] = *at_++;
  std::size_t length = 1;
  while (length < std::min(wanted, longest)) {
    const int byte = peek();
    if (byte < 0 || !continues_character(static_cast<char>(byte))) break;
    kept_character_[length++] = *at_++;
  }
  const std::string_view bytes(kept_character_.data(), length);
  return first_character(bytes).is_valid ? bytes : replacement_character;
}

bool dump_parser::read_escape() {
  constexpr std::string_view letters = "\"\\/bfnrt";
  constexpr std::string_view meant = "\"\\/\b\f\n\r\t";
  const int letter = take();
  if (letter == 'u') return read_escaped_code();
  const std::size_t at =
      letter < 0 ? std::string_view::npos : letters.find(static_cast<char>(letter));
  if (at == std::string_view::npos) return false;
  text_ += meant[at];
  return true;
}

// Four hexadecimal digits; -1 if there are none.
int dump_parser::take_hex() {
  int code = 0;
  for (int i = 0; i < 4; ++i) {
    const int digit = value_of_hex(take());
    if (digit < 0) return -1;
    code = code * 16 + digit;
  }
  return code;
}

bool dump_parser::read_escaped_code() {
  const auto is_first_half = [](int code) { return code >= 0xd800 && code <= 0xdbff; };
  const auto is_second_half = [](int code) { return code >= 0xdc00 && code <= 0xdfff; };
  int code = take_hex();
  if (code < 0 || is_second_half(code)) return false;
  if (is_first_half(code)) {
    if (take() != '\\' || take() != 'u') return false;
    const int second = take_hex();
    if (!is_second_half(second)) return false;
    code = 0x10000 + (code - 0xd800) * 0x400 + (second - 0xdc00);
  }
  append_code(text_, static_cast<std::uint32_t>(code));
  return true;
}

// ---- Numbers and words --------------------------------------------------------------------------

// At least one.
bool dump_parser::read_digits() {
  const int first = take();
  if (!is_digit(first)) return false;
  text_ += static_cast<char>(first);
  while (is_digit(peek()) && text_.size() <= longest_value) text_ += static_cast<char>(take());
  return true;
}

bool dump_parser::read_fraction() {
  if (peek() != '.') return true;
  text_ += static_cast<char>(take());
  return read_digits();
}

bool dump_parser::read_exponent() {
  if (peek() != 'e' && peek() != 'E') return true;
  text_ += static_cast<char>(take());
  if (peek() == '+' || peek() == '-') text_ += static_cast<char>(take());
  return read_digits();
}

// Into `text_`, with its own digits. A number that is too large for a computer is none.
bool dump_parser::read_number(char first) {
  text_.assign(1, first);
  int lead = static_cast<unsigned char>(first);
  if (first == '-') {
    lead = take();
    if (!is_digit(lead)) return false;
    text_ += static_cast<char>(lead);
  }
  while (lead != '0' && is_digit(peek()) && text_.size() <= longest_value)
    text_ += static_cast<char>(take());
  const std::size_t digits = text_.size();
  if (!read_fraction() || !read_exponent()) return false;
  if (text_ == "-0") text_ = "0";
  constexpr std::size_t surely_finite = 300;
  const bool is_plain = text_.size() == digits && digits < surely_finite;
  if (is_plain || std::isfinite(std::strtod(text_.c_str(), nullptr))) return true;
  (void)take();
  return false;
}

// Most numbers are a few digits. Takes nothing if more belongs to this one, or could.
inline std::optional<std::string_view> dump_parser::digits_at_hand(char first) {
  if (first == '-') return {};
  const char* const end = std::find_if_not(at_, end_, is_digit);
  constexpr std::ptrdiff_t surely_finite = 300;
  const bool is_whole = end != end_ && *end != '.' && *end != 'e' && *end != 'E';
  if (!is_whole || (first == '0' && end != at_) || end - at_ > surely_finite) return {};
  const char* const begin = std::exchange(at_, end) - 1;
  return std::string_view(begin, static_cast<std::size_t>(end - begin));
}

bool dump_parser::read_literal(std::string_view rest) {
  return std::all_of(rest.begin(), rest.end(), [this](char c) { return take() == c; });
}

// ---- Values -------------------------------------------------------------------------------------

inline bool dump_parser::give(std::string_view text) {
  if (taker_.value) taker_.value(label_, path(), text);
  return true;
}

bool dump_parser::open(bool is_map) {
  if (depth_ == deepest) return false;
  if (is_map && depth_ != 0 && taker_.map) taker_.map(label_, path());
  keys_[depth_] = {};
  is_map_[depth_++] = is_map;
  is_empty_ = true;
  return true;
}

bool dump_parser::close() {
  --depth_;
  is_empty_ = false;
  return true;
}

// Something that must not be here is taken whole, so that what follows is read as what it is.
bool dump_parser::refuse(char first) {
  std::string_view text;
  if (first == '"')
    (void)read_text(text);
  else if (first == '-' || is_digit(first))
    (void)(read_number(first) && take());
  else if (first == 't')
    (void)read_literal("rue");
  else if (first == 'f')
    (void)read_literal("alse");
  else if (first == 'n')
    (void)read_literal("ull");
  else if (static_cast<unsigned char>(first) >= 0x80)
    (void)(--at_, take());
  return false;
}

bool dump_parser::read_any_text_value() {
  std::string_view text;
  return read_text(text) && give(text);
}

inline bool dump_parser::read_value(char first) {
  is_empty_ = false;
  switch (first) {
    case '"': {
      const auto text = plain_text();
      return text ? give(*text) : read_any_text_value();
    }
    case '{':
      return open(true);
    case '[':
      return open(false);
    case 't':
      return read_literal("rue") && give("true");
    case 'f':
      return read_literal("alse") && give("false");
    case 'n':
      return read_literal("ull") && give("null");
    default:
      break;
  }
  if (first != '-' && !is_digit(first)) return refuse(first);
  const auto digits = digits_at_hand(first);
  return digits ? give(*digits) : read_number(first) && give(text_);
}

// A comma, a new line, blanks, a plain key and a colon: so nearly all entries begin. Takes nothing
// if anything else is there or the bytes at hand end.
inline bool dump_parser::take_usual_key() {
  if (end_ - at_ < 2 || at_[0] != ',' || at_[1] != '\n') return false;
  const char* const quote = behind_blanks(at_ + 2, end_);
  if (quote >= end_ || *quote != '"') return false;
  const char* const end = behind_plain(quote + 1, end_);
  if (end_ - end < 2 || end[0] != '"' || end[1] != ':') return false;
  keys_[depth_ - 1] = {quote + 1, static_cast<std::size_t>(end - quote - 1)};
  at_ = end + 2;
  return true;
}

inline bool dump_parser::read_key() {
  std::string_view& key = keys_[depth_ - 1];
  if (const auto text = plain_text())
    key = *text;
  else if (!read_text(key))
    return false;
  else if (key.data() == text_.data())
    key = kept_[depth_ - 1] = key;
  const char colon = next_token();
  return colon == ':' || refuse(colon);
}

inline bool dump_parser::read_entry() {
  if (!is_empty_ && take_usual_key()) return read_value(next_token());
  char token = next_token();
  if (token == '}') return close();
  if (!is_empty_) {
    if (token != ',') return refuse(token);
    token = next_token();
  }
  if (token != '"') return refuse(token);
  return read_key() && read_value(next_token());
}

inline bool dump_parser::read_element() {
  char token = next_token();
  if (token == ']') return close();
  if (!is_empty_) {
    if (token != ',') return refuse(token);
    token = next_token();
  }
  return read_value(token);
}

// A mark of the byte order may stand before it.
bool dump_parser::read_start() {
  constexpr int first_of_mark = 0xef;
  if (peek() == first_of_mark && take_character() != "\xef\xbb\xbf") return false;
  const char first = next_token();
  if (!read_value(first)) return false;
  // Where a number ends, only the byte behind it says.
  if (depth_ == 0 && (first == '-' || is_digit(first))) (void)take();
  return true;
}

bool dump_parser::read() {
  bool is_legal = read_start();
  while (is_legal && depth_ != 0) is_legal = is_map_[depth_ - 1] ? read_entry() : read_element();
  // The line behind a dump that was cut off begins so, and must be seen as a whole.
  if (!is_legal && at_ != begin_ && at_[-1] == '\'') --at_;
  from_.skip(static_cast<std::size_t>(at_ - begin_));
  return is_legal;
}

}  // namespace desk
