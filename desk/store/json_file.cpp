#include "desk/store/json_file.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <set>
#include <utility>
#include <vector>

#include "command_line/one_line.h"
#include "desk/read/line_reader.h"

namespace desk {

namespace {

using nlohmann::json;

// The bytes of the file one after the other. Throws `misfit` where they go beyond the bounds.
class bounded_bytes {
 public:
  bounded_bytes(byte_source& from, std::size_t largest) : from_(from), largest_(largest) {}

  [[nodiscard]] bool at_end() {
    if (at_ < here_.size()) return false;
    from_.skip(here_.size());
    here_ = from_.at_hand();
    at_ = 0;
    return here_.empty();
  }
  [[nodiscard]] char front() const { return here_[at_]; }
  void pop() {
    count(here_[at_]);
    ++at_;
  }
  [[nodiscard]] std::size_t line() const { return line_; }
  [[nodiscard]] bool is_empty() const { return bytes_ == 0; }

 private:
  // The lexer holds a whole run of one kind.
  enum class kind : std::uint8_t { text, word, blank, sign };

  kind kind_of(char byte) {
    if (is_in_text_) {
      is_in_text_ = is_escaped_ || byte != '"';
      is_escaped_ = !is_escaped_ && byte == '\\';
      return kind::text;
    }
    is_in_text_ = byte == '"';
    if (is_in_text_) return kind::text;
    constexpr std::string_view blanks = " \t\r\n";
    constexpr std::string_view signs = "{}[],:";
    if (blanks.find(byte) != std::string_view::npos) return kind::blank;
    return signs.find(byte) != std::string_view::npos ? kind::sign : kind::word;
  }

  void count(char byte) {
    const bool was_in_text = is_in_text_;
    const kind is = kind_of(byte);
    const bool goes_on = is == run_of_ && (is != kind::text || was_in_text);
    run_ = goes_on ? run_ + 1 : 1;
    run_of_ = is;
    line_ += byte == '\n' ? 1 : 0;
    if (++bytes_ > largest_)
      throw misfit(fmt::format("the file is larger than {} bytes", largest_));
    if (is == kind::word && run_ > longest_json_number)
      throw misfit(fmt::format("a number or word of more than {} digits", longest_json_number));
    if ((is == kind::text || is == kind::blank) && run_ > longest_json_text)
      throw misfit(fmt::format("a text of more than {} bytes", longest_json_text));
  }

  byte_source& from_;
  std::size_t largest_;
  std::string_view here_;
  std::size_t at_ = 0;
  std::size_t line_ = 1;
  std::size_t bytes_ = 0;
  std::size_t run_ = 0;
  kind run_of_ = kind::blank;
  bool is_in_text_ = false;
  bool is_escaped_ = false;
};

class bounded_iterator {
 public:
  using iterator_category = std::input_iterator_tag;
  using value_type = char;
  using difference_type = std::ptrdiff_t;
  using pointer = const char*;
  using reference = char;

  bounded_iterator() = default;
  explicit bounded_iterator(bounded_bytes& from) : from_(&from) {}
  char operator*() const { return from_->front(); }
  bounded_iterator& operator++() {
    from_->pop();
    return *this;
  }
  bounded_iterator operator++(int) = delete;
  bool operator==(const bounded_iterator& other) const { return ends() == other.ends(); }
  bool operator!=(const bounded_iterator& other) const { return !(*this == other); }

 private:
  [[nodiscard]] bool ends() const { return from_ == nullptr || from_->at_end(); }
  bounded_bytes* from_ = nullptr;
};

// Follows the parser. Builds one value at a time: of a key of the document, or of an element if the
// key's value is a list.
class document_walk : public json::json_sax_t {
 public:
  explicit document_walk(const json_taker& taker) : taker_(taker) {}

  bool null() override { return plain(json()); }
  bool boolean(bool is_true) override { return plain(json(is_true)); }
  bool number_integer(number_integer_t number) override { return plain(json(number)); }
  bool number_unsigned(number_unsigned_t number) override { return plain(json(number)); }
  bool number_float(number_float_t number, const string_t&) override { return plain(json(number)); }
  bool string(string_t& text) override { return plain(json(std::move(text))); }
  bool binary(binary_t&) override { return false; }

  bool start_object(std::size_t) override { return open(json::object()); }
  bool end_object() override { return close(); }
  bool start_array(std::size_t) override { return open(json::array()); }
  bool end_array() override { return close(); }

  bool key(string_t& text) override {
    if (depth_ != 1) {
      if (!is_wanted_) return true;
      if (open_.back()->contains(text)) twice(text);
      key_of_next_ = std::move(text);
      return true;
    }
    if (!met_.insert(text).second) twice(text);
    key_ = std::move(text);
    is_wanted_ = taker_.wants(key_);
    return true;
  }

  bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception&) override {
    return false;
  }

 private:
  [[noreturn]] static void twice(const std::string& key) {
    throw misfit(fmt::format("the key \"{}\" is there twice", key));
  }

  bool plain(json value) {
    if (depth_ == 0) throw misfit("expected an object");
    if (!is_wanted_) return true;
    if (open_.empty()) return hand_on(value);
    add(std::move(value));
    return true;
  }

  bool open(json value) {
    if (depth_ == 0 && !value.is_object()) throw misfit("expected an object");
    if (depth_ == deepest_json) throw misfit(fmt::format("nested more than {} deep", deepest_json));
    ++depth_;
    if (depth_ == 1 || !is_wanted_) return true;
    if (depth_ == 2 && value.is_array()) {
      is_list_ = true;
      index_ = 0;
      taker_.list(key_);
    } else if (open_.empty()) {
      built_ = std::move(value);
      open_.push_back(&built_);
    } else {
      open_.push_back(add(std::move(value)));
    }
    return true;
  }

  bool close() {
    --depth_;
    if (depth_ == 0 || !is_wanted_) return true;
    if (open_.empty()) {
      is_list_ = false;
      return true;
    }
    open_.pop_back();
    return !open_.empty() || hand_on(built_);
  }

  // Its address holds until the next sibling comes.
  json* add(json value) {
    json& to = *open_.back();
    if (to.is_array()) {
      to.push_back(std::move(value));
      return &to.back();
    }
    json& place = to[key_of_next_];
    place = std::move(value);
    return &place;
  }

  bool hand_on(const json& value) {
    try {
      if (is_list_)
        taker_.element(key_, value);
      else
        taker_.value(key_, value);
    } catch (misfit& error) {
      if (is_list_) error.set_below(std::to_string(index_));
      error.set_below(key_);
      throw;
    }
    ++index_;
    return true;
  }

  const json_taker& taker_;
  std::set<std::string> met_;  // keys of the document
  std::string key_;            // of these, the last one
  std::string key_of_next_;    // further in
  std::vector<json*> open_;    // from the built value to the innermost
  json built_;
  std::size_t depth_ = 0;
  std::size_t index_ = 0;
  bool is_wanted_ = false;
  bool is_list_ = false;
};

// One line, whatever the file holds, and not cut inside a character.
std::string short_line(std::string_view text) {
  constexpr std::size_t longest = 400;
  const auto continues = [](char c) { return (static_cast<unsigned char>(c) & 0xC0U) == 0x80; };
  std::size_t end = std::min(text.size(), longest);
  while (end < text.size() && end != 0 && continues(text[end])) --end;
  return command_line::one_line(text.substr(0, end)) + (end < text.size() ? "..." : "");
}

[[noreturn]] void cannot_read(const std::string& path, std::size_t line, const misfit& error) {
  const std::string place = error.place().empty() ? "" : error.place() + ": ";
  throw read_error(
      fmt::format("cannot read {}: line {}: {}", path, line, short_line(place + error.what())));
}

}  // namespace

void read_json_file(const std::string& path, const json_taker& taker, std::size_t largest) {
  byte_source source(path);
  bounded_bytes bytes(source, largest);
  document_walk walk(taker);
  try {
    if (json::sax_parse(bounded_iterator(bytes), bounded_iterator(), &walk)) return taker.end();
    if (!bytes.at_end()) throw misfit("this is no JSON");
    throw misfit(bytes.is_empty() ? "the file is empty" : "the file is cut off, or no JSON");
  } catch (const misfit& error) {
    cannot_read(path, bytes.line(), error);
  }
}

}  // namespace desk
