#include "base/dump.h"

#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <deque>
#include <map>
#include <memory>
#include <numeric>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "base/logs.h"
#include "base/records.h"
#include "base/text.h"

namespace tessel {

namespace {

// True for a byte that JSON text cannot hold as it is.
constexpr bool needs_escape(char c) {
  return static_cast<unsigned char>(c) < 0x20 || c == '"' || c == '\\';
}

// The same for eight bytes at once: not 0 if any of them does. The lowest bit is in the first one
// that does.
constexpr std::uint64_t escapes_in(std::uint64_t bytes) {
  constexpr std::uint64_t ones = 0x0101010101010101U;
  constexpr std::uint64_t high = 0x80 * ones;
  const std::uint64_t quote = bytes ^ ones * '"';
  const std::uint64_t backslash = bytes ^ ones * '\\';
  const std::uint64_t control = (bytes - 0x20 * ones) & ~bytes;
  return (((quote - ones) & ~quote) | ((backslash - ones) & ~backslash) | control) & high;
}

template <class Word>
Word read_word(const char* from) {
  Word word = 0;
  std::memcpy(&word, from, sizeof word);
  return word;
}

constexpr std::size_t longest_escape = 6;

char* put_escape(char* out, char c) {
  const auto put = [&out](std::string_view text) {
    return std::copy(text.begin(), text.end(), out);
  };
  switch (c) {
    case '"':
      return put("\\\"");
    case '\\':
      return put("\\\\");
    case '\n':
      return put("\\n");
    case '\r':
      return put("\\r");
    case '\t':
      return put("\\t");
    default:
      return fmt::format_to(out, "\\u{:04x}", static_cast<unsigned char>(c));
  }
}

// Copies a text of 4 to 16 bytes in two pieces that overlap. False, with nothing of use copied, if
// a byte needs an escape: names and numbers of the tables do not.
bool put_plain(char* out, std::string_view text) {
  const char* const first = text.data();
  const std::size_t size = text.size();
  if (size < sizeof(std::uint64_t)) {
    const std::size_t last = size - sizeof(std::uint32_t);
    const auto front = read_word<std::uint32_t>(first);
    const auto back = read_word<std::uint32_t>(first + last);
    std::memcpy(out, &front, sizeof front);
    std::memcpy(out + last, &back, sizeof back);
    return escapes_in(front | std::uint64_t{back} << 32) == 0;
  }
  const std::size_t last = size - sizeof(std::uint64_t);
  const auto front = read_word<std::uint64_t>(first);
  const auto back = read_word<std::uint64_t>(first + last);
  std::memcpy(out, &front, sizeof front);
  std::memcpy(out + last, &back, sizeof back);
  return (escapes_in(front) | escapes_in(back)) == 0;
}

// Copies a text with its escapes. The eight bytes behind what it writes are lost.
char* put_escaped(char* out, std::string_view text) {
  std::size_t at = 0;
  while (at + sizeof(std::uint64_t) <= text.size()) {
    const auto bytes = read_word<std::uint64_t>(text.data() + at);
    std::memcpy(out, &bytes, sizeof bytes);
    const std::uint64_t escapes = escapes_in(bytes);
    const auto plain = static_cast<std::size_t>(std::countr_zero(escapes)) / 8;
    at += plain;
    out += plain;
    if (escapes != 0) out = put_escape(out, text[at++]);
  }
  for (; at < text.size(); ++at) {
    if (needs_escape(text[at])) {
      out = put_escape(out, text[at]);
    } else {
      *out++ = text[at];
    }
  }
  return out;
}

using json_entry = std::pair<std::string_view, const value*>;

bool is_before(const json_entry& left, const json_entry& right) {
  return left.first < right.first;
}

using positions = std::vector<std::uint32_t>;

// True if `order` has the entries by key.
bool is_order_of(const positions& order, std::span<const json_entry> entries) {
  if (order.size() != entries.size()) return false;
  for (std::size_t at = 1; at < order.size(); ++at) {
    if (!is_before(entries[order[at - 1]], entries[order[at]])) return false;
  }
  return true;
}

// The positions of the entries by key. The tables number their rows, so a large map has long runs
// of keys in order; merging these takes fewer steps than sorting.
positions order_by_key(std::span<const json_entry> entries) {
  positions order(entries.size());
  std::iota(order.begin(), order.end(), 0U);
  std::vector<std::size_t> ends = {0};
  for (std::size_t at = 1; at < entries.size(); ++at) {
    if (is_before(entries[at], entries[at - 1])) ends.push_back(at);
  }
  ends.push_back(entries.size());
  const auto place = [&order](std::size_t at) {
    return order.begin() + static_cast<std::ptrdiff_t>(at);
  };
  while (ends.size() > 2) {
    std::vector<std::size_t> merged = {0};
    for (std::size_t run = 2; run < ends.size(); run += 2) {
      std::inplace_merge(place(ends[run - 2]), place(ends[run - 1]), place(ends[run]),
                         [&entries](std::uint32_t left, std::uint32_t right) {
                           return is_before(entries[left], entries[right]);
                         });
      merged.push_back(ends[run]);
    }
    if (merged.back() != entries.size()) merged.push_back(entries.size());
    ends = std::move(merged);
  }
  return order;
}

// Sorts by key. All chips list the same LAGs, so the order of the last large map of a size often
// fits the next one, too.
class key_sorter {
 public:
  void sort(std::span<json_entry> entries) {
    constexpr std::size_t small = 32;
    if (entries.size() <= small) {
      std::sort(entries.begin(), entries.end(), is_before);
      return;
    }
    positions& order = orders_[entries.size()];
    if (!is_order_of(order, entries)) order = order_by_key(entries);
    sorted_.clear();
    for (const std::uint32_t at : order) sorted_.push_back(entries[at]);
    std::copy(sorted_.begin(), sorted_.end(), entries.begin());
  }

 private:
  std::map<std::size_t, positions> orders_;  // by size
  std::vector<json_entry> sorted_;
};

// Text on its way into a file, in pieces, so that a large store is never held as one text.
class json_file {
 public:
  explicit json_file(log_file& outfile) : outfile_(outfile), memory_(new char[piece]) {}

  // True if the file already has a piece that is not the last.
  bool has_begun() const { return has_begun_; }

  void flush() {
    outfile_.write({memory_.get(), static_cast<std::size_t>(at_ - memory_.get())});
    at_ = memory_.get();
  }

  void put(char c) { *room(1)++ = c; }

  void put(std::string_view text) { at_ = std::copy(text.begin(), text.end(), room(text.size())); }

  void put(std::int64_t number) {
    char* const end = room(longest_number) + longest_number;
    at_ = std::to_chars(at_, end, number).ptr;
  }

  void put_quoted(std::string_view text) {
    constexpr std::size_t shortest = 4;
    constexpr std::size_t longest = 16;
    put('"');
    if (text.size() >= shortest && text.size() <= longest && put_plain(room(longest), text)) {
      at_ += text.size();
    } else {
      put_in_parts(text);
    }
    put('"');
  }

  void new_line(std::size_t depth) {
    constexpr std::size_t indentation = 3;
    constexpr std::size_t usual = 31;
    static constexpr char line[] = "\n                               ";
    const std::size_t blanks = depth * indentation;
    if (blanks <= usual) {
      std::memcpy(room(1 + usual), line, 1 + usual);
      at_ += 1 + blanks;
      return;
    }
    put('\n');
    for (std::size_t at = 0; at < blanks; ++at) put(' ');
  }

 private:
  static constexpr std::size_t piece = std::size_t{64} * 1024;
  static constexpr std::size_t longest_number = 20;

  // The end of what is written, with room for so many bytes, far fewer than a piece.
  char*& room(std::size_t bytes) {
    if (static_cast<std::size_t>(memory_.get() + piece - at_) < bytes) {
      has_begun_ = true;
      flush();
    }
    return at_;
  }

  void put_in_parts(std::string_view text) {
    constexpr std::size_t part = 4096;
    while (!text.empty()) {
      const std::string_view next = text.substr(0, part);
      at_ = put_escaped(room(next.size() * longest_escape + sizeof(std::uint64_t)), next);
      text.remove_prefix(next.size());
    }
  }

  log_file& outfile_;
  std::unique_ptr<char[]> memory_;
  char* at_ = memory_.get();
  bool has_begun_ = false;
};

// Writes a value as indented JSON.
class json_writer {
 public:
  explicit json_writer(log_file& outfile) : file_(outfile) {}

  void write(const value& obj) {
    append(obj, 0);
    file_.put('\n');
    file_.flush();
  }

  bool has_begun() const { return file_.has_begun(); }

 private:
  // How rows with the same shared keys are written.
  struct row_form {
    const row_keys* keys;
    std::vector<std::size_t> order;   // the positions by key
    std::vector<std::string> starts;  // the keys in this order, with quotes and colon
  };

  void append(const value& obj, std::size_t depth) {
    switch (obj.kind()) {
      case value_kind::none:
        file_.put("null");
        break;
      case value_kind::integer:
        file_.put(obj.as_integer());
        break;
      case value_kind::text:
        file_.put_quoted(obj.as_text());
        break;
      case value_kind::map:
        append_map(obj, depth + 1);
        break;
      case value_kind::list:
        append_list(obj.as_list(), depth + 1);
        break;
      case value_kind::record:
        append(dumper(obj), depth);
        break;
    }
  }

  void append_map(const value& obj, std::size_t depth) {
    if (!obj.truthy()) {
      file_.put("{}");
      return;
    }
    const map& entries = obj.as_map();
    if (const row_keys* keys = entries.shared_keys()) {
      append_row(entries, form_of(*keys), depth);
    } else if (!entries.is_locked()) {
      append_entries(entries, depth);
    } else {
      // Other threads may insert meanwhile, which moves the entries.
      map copy;
      for (const auto& [key, content] : entries.items()) copy.set(key, content);
      append_entries(copy, depth);
    }
  }

  const row_form& form_of(const row_keys& keys) {
    const auto found = std::find_if(forms_.begin(), forms_.end(),
                                    [&keys](const row_form& each) { return each.keys == &keys; });
    if (found != forms_.end()) return *found;
    row_form& form = forms_.emplace_back();
    form.keys = &keys;
    for (std::size_t at = 0; at < keys.size(); ++at) form.order.push_back(at);
    std::sort(form.order.begin(), form.order.end(),
              [&keys](std::size_t left, std::size_t right) { return keys[left] < keys[right]; });
    for (const std::size_t at : form.order) form.starts.push_back(start_of(keys[at]));
    return form;
  }

  static std::string start_of(std::string_view key) {
    std::string start(longest_escape * key.size() + sizeof(std::uint64_t), ' ');
    start.resize(static_cast<std::size_t>(put_escaped(start.data(), key) - start.data()));
    return '"' + start + "\":";
  }

  void append_row(const map& entries, const row_form& form, std::size_t depth) {
    char before = '{';
    for (std::size_t at = 0; at < form.order.size(); ++at) {
      file_.put(std::exchange(before, ','));
      file_.new_line(depth);
      file_.put(form.starts[at]);
      append(entries.content_at(form.order[at]), depth);
    }
    file_.new_line(depth - 1);
    file_.put('}');
  }

  void append_entries(const map& entries, std::size_t depth) {
    // The entries of the maps around this one are in the same list before `first`.
    const std::size_t first = sorted_.size();
    entries.for_each([this](std::string_view key, const value& content) {
      sorted_.emplace_back(key, &content);
    });
    const std::size_t end = sorted_.size();
    sorter_.sort(std::span(sorted_).subspan(first));
    for (std::size_t at = first; at < end; ++at) {
      const auto [key, content] = sorted_[at];
      file_.put(at == first ? '{' : ',');
      file_.new_line(depth);
      file_.put_quoted(key);
      file_.put(':');
      append(*content, depth);
    }
    sorted_.resize(first);
    file_.new_line(depth - 1);
    file_.put('}');
  }

  void append_list(const value_list& items, std::size_t depth) {
    if (items.empty()) {
      file_.put("[]");
      return;
    }
    char before = '[';
    for (const value& item : items) {
      file_.put(std::exchange(before, ','));
      file_.new_line(depth);
      append(item, depth);
    }
    file_.new_line(depth - 1);
    file_.put(']');
  }

  json_file file_;
  key_sorter sorter_;
  std::vector<json_entry> sorted_;
  std::deque<row_form> forms_;
};

void append_printed(std::string& out, const value& obj) {
  auto comma = [&out, first = true]() mutable {
    if (!first) out += ", ";
    first = false;
  };
  switch (obj.kind()) {
    case value_kind::none:
      out += "None";
      break;
    case value_kind::integer:
      out += std::to_string(obj.as_integer());
      break;
    case value_kind::text:
      out += quoted(obj.as_text());
      break;
    case value_kind::map:
      if (!obj.truthy()) {
        out += "{}";
        break;
      }
      out += '{';
      obj.as_map().for_each([&](std::string_view key, const value& content) {
        comma();
        out += quoted(key);
        out += ": ";
        append_printed(out, content);
      });
      out += '}';
      break;
    case value_kind::list:
      out += '[';
      for (const value& item : obj.as_list()) {
        comma();
        append_printed(out, item);
      }
      out += ']';
      break;
    case value_kind::record:
      append_printed(out, dumper(obj));
      break;
  }
}

}  // namespace

value dumper(const value& obj) {
  return obj.as_record().fields_as_map();
}

void pprint(std::string_view text, log_file& outfile) {
  outfile.write(quoted(text) + "\n");
}

void print_object(const value& obj, log_file& outfile, std::string_view layer) {
  pprint(fmt::format("Start of {} entries...", layer), outfile);
  std::optional<json_writer> json;  // made where a lack of memory is a failure of the dump
  try {
    json.emplace(outfile);
    json->write(obj);
  } catch (const std::exception& json_error) {
    logger(fmt::format("json print_object failed: {}", json_error.what()), "exception", true);
    try {
      if (json && json->has_begun()) outfile.write("\n");
      outfile.write(printed(obj) + "\n");
    } catch (const std::exception& print_error) {
      logger(fmt::format("pprint print_object failed: {}", print_error.what()), "exception", true);
    }
  }
  pprint(fmt::format("End of {} entries...", layer), outfile);
}

std::string plain(const value& obj) {
  return obj.is_text() ? std::string(obj.as_text()) : printed(obj);
}

std::string printed(const value& obj) {
  std::string out;
  append_printed(out, obj);
  return out;
}

}  // namespace tessel
