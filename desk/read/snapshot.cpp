#include "desk/read/snapshot.h"

#include <fmt/format.h>

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <nlohmann/json.hpp>
#include <optional>

#include "desk/read/line_reader.h"

namespace desk {

namespace {

using nlohmann::json;

// More nesting than any dump has; a hostile one must not use up the stack or the memory.
constexpr std::size_t deepest = 64;

// What follows 'Start of ' or 'End of ' in such a line: "BM PI" of "'Start of BM PI entries...'".
std::optional<std::string_view> label_in(std::string_view line, std::string_view word) {
  constexpr std::string_view end = " entries...'";
  if (!line.starts_with(word) || !line.ends_with(end)) return {};
  if (line.size() < word.size() + end.size()) return {};
  return line.substr(word.size(), line.size() - word.size() - end.size());
}

// The bytes of a dump, with U+FFFD in place of what is no UTF-8: a text from a tool may hold any
// byte, and the JSON parser would refuse the whole dump for it.
class clean_bytes {
 public:
  explicit clean_bytes(byte_source& from) : from_(from) {}

  [[nodiscard]] bool at_end() {
    if (here_.empty()) fill();
    return here_.empty();
  }
  [[nodiscard]] char front() const { return here_.front(); }
  void pop() {
    here_.remove_prefix(1);
    if (is_view_) from_.skip(1);
  }

 private:
  static bool is_ascii(char c) { return static_cast<unsigned char>(c) < 0x80; }
  static bool continues(char c) { return (static_cast<unsigned char>(c) & 0xC0U) == 0x80; }

  void fill() {
    const std::string_view bytes = from_.at_hand();
    std::size_t plain = 0;
    while (plain < bytes.size() && is_ascii(bytes[plain])) ++plain;
    is_view_ = plain != 0;
    if (is_view_ || bytes.empty())
      here_ = bytes.substr(0, plain);
    else
      fill_with_character();
  }

  // One character of several bytes, which may be split over two reads.
  void fill_with_character() {
    const auto lead = static_cast<unsigned char>(take());
    const std::size_t wanted = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    character_.assign(1, static_cast<char>(lead));
    while (character_.size() < wanted) {
      const std::string_view bytes = from_.at_hand();
      if (bytes.empty() || !continues(bytes.front())) break;
      character_ += take();
    }
    if (character_.size() != wanted || !is_character()) character_ = "\xEF\xBF\xBD";
    here_ = character_;
  }
  char take() {
    const char byte = from_.at_hand().front();
    from_.skip(1);
    return byte;
  }
  // Not overlong, no surrogate, not above U+10FFFF.
  [[nodiscard]] bool is_character() const {
    const auto at = [this](std::size_t i) {
      return static_cast<std::uint32_t>(static_cast<unsigned char>(character_[i]));
    };
    std::uint32_t code = at(0) & (0xFFU >> (character_.size() + 1));
    for (std::size_t i = 1; i < character_.size(); ++i) code = code << 6U | (at(i) & 0x3FU);
    constexpr std::uint32_t least[] = {0, 0, 0x80, 0x800, 0x10000};
    return at(0) >= 0xC2 && code >= least[character_.size()] && code <= 0x10FFFF &&
           (code < 0xD800 || code > 0xDFFF);
  }

  byte_source& from_;
  std::string_view here_;
  bool is_view_ = true;
  std::string character_;
};

class clean_iterator {
 public:
  using iterator_category = std::input_iterator_tag;
  using value_type = char;
  using difference_type = std::ptrdiff_t;
  using pointer = const char*;
  using reference = char;

  clean_iterator() = default;
  explicit clean_iterator(clean_bytes& from) : from_(&from) {}
  char operator*() const { return from_->front(); }
  clean_iterator& operator++() {
    from_->pop();
    return *this;
  }
  clean_iterator operator++(int) = delete;
  bool operator==(const clean_iterator& other) const { return ends() == other.ends(); }
  bool operator!=(const clean_iterator& other) const { return !(*this == other); }

 private:
  [[nodiscard]] bool ends() const { return from_ == nullptr || from_->at_end(); }
  clean_bytes* from_ = nullptr;
};

// Follows the parser through a dump and hands on each value with the keys that lead to it.
class dump_walk : public json::json_sax_t {
 public:
  dump_walk(std::string_view label, const dump_taker& taker) : label_(label), taker_(taker) {}

  bool null() override { return give("null"); }
  bool boolean(bool is_true) override { return give(is_true ? "true" : "false"); }
  bool number_integer(number_integer_t number) override { return give(std::to_string(number)); }
  bool number_unsigned(number_unsigned_t number) override { return give(std::to_string(number)); }
  bool number_float(number_float_t, const string_t& digits) override { return give(digits); }
  bool string(string_t& text) override { return give(text); }
  bool binary(binary_t&) override { return false; }

  bool start_object(std::size_t) override { return open(true); }
  bool key(string_t& text) override {
    keys_[depth_ - 1] = text;
    return true;
  }
  bool end_object() override { return close(); }
  bool start_array(std::size_t) override { return open(false); }
  bool end_array() override { return close(); }
  bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception&) override {
    return false;
  }

 private:
  [[nodiscard]] dump_path path() const { return dump_path(keys_).first(depth_); }
  bool give(std::string_view text) {
    if (taker_.value) taker_.value(label_, path(), text);
    return true;
  }
  // Keys are kept when a map ends, so that the next one of its depth reuses their memory.
  bool open(bool is_map) {
    if (depth_ == deepest) return false;
    if (is_map && depth_ != 0 && taker_.map) taker_.map(label_, path());
    if (keys_.size() == depth_) keys_.emplace_back();
    keys_[depth_++].clear();
    return true;
  }
  bool close() {
    --depth_;
    return true;
  }

  std::string_view label_;
  const dump_taker& taker_;
  std::vector<std::string> keys_;
  std::size_t depth_ = 0;
};

// Skips to the end of the dump. True if its end line is there.
bool skip_dump(line_reader& lines, std::string_view label) {
  std::string line;
  while (lines.next(line))
    if (label_in(line, "'End of ") == label) return true;
  return false;
}

bool read_dump(byte_source& bytes, std::string_view label, const dump_taker& taker) {
  if (taker.wants && !taker.wants(label)) return true;
  clean_bytes clean(bytes);
  dump_walk walk(label, taker);
  return json::sax_parse(clean_iterator(clean), clean_iterator(), &walk, json::input_format_t::json,
                         false);
}

}  // namespace

std::vector<std::string> read_dumps(const std::string& path, const dump_taker& taker) {
  std::vector<std::string> marks;
  byte_source bytes(path);
  line_reader lines(bytes);
  std::string line;
  while (lines.next(line)) {
    const auto found = label_in(line, "'Start of ");
    if (!found) {
      if (taker.line) taker.line(line);
      continue;
    }
    const std::string label(*found);
    if (taker.begins) taker.begins(label);
    const bool is_read = read_dump(bytes, label, taker);
    const bool has_end = skip_dump(lines, label);
    if (!is_read || !has_end)
      marks.push_back(fmt::format("{}: the dump of {} {}", path, label,
                                  has_end ? "is not understood" : "is cut off"));
    if (taker.ended) taker.ended(label, is_read && has_end);
  }
  if (!lines.has_end()) marks.push_back(fmt::format("{} ends in the middle of a line", path));
  return marks;
}

}  // namespace desk
