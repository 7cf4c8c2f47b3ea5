#include "base/dump.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
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

// The same for eight bytes at once: true if any of them does.
bool needs_escape(std::uint64_t bytes) {
  constexpr std::uint64_t ones = 0x0101010101010101U;
  constexpr std::uint64_t high = 0x80 * ones;
  const std::uint64_t quote = bytes ^ ones * '"';
  const std::uint64_t backslash = bytes ^ ones * '\\';
  const std::uint64_t control = (bytes - 0x20 * ones) & ~bytes;
  return (((quote - ones) & ~quote) | ((backslash - ones) & ~backslash) | control) & high;
}

// The length of the part at the beginning that needs no escape.
std::size_t plain_length(std::string_view text) {
  std::size_t at = 0;
  for (std::uint64_t bytes = 0; at + sizeof bytes <= text.size(); at += sizeof bytes) {
    std::memcpy(&bytes, text.data() + at, sizeof bytes);
    if (needs_escape(bytes)) break;
  }
  while (at < text.size() && !needs_escape(text[at])) ++at;
  return at;
}

void append_escape(std::string& out, char c) {
  switch (c) {
    case '"':
      out += "\\\"";
      break;
    case '\\':
      out += "\\\\";
      break;
    case '\n':
      out += "\\n";
      break;
    case '\r':
      out += "\\r";
      break;
    case '\t':
      out += "\\t";
      break;
    default:
      out += fmt::format("\\u{:04x}", static_cast<unsigned char>(c));
  }
}

void append_json_text(std::string& out, std::string_view text) {
  out += '"';
  while (true) {
    const std::size_t length = plain_length(text);
    out += text.substr(0, length);
    if (length == text.size()) break;
    append_escape(out, text[length]);
    text.remove_prefix(length + 1);
  }
  out += '"';
}

using json_entry = std::pair<std::string_view, const value*>;

bool is_before(const json_entry& left, const json_entry& right) {
  return left.first < right.first;
}

// The tables number their rows, so a large map has long runs of keys in order; merging these takes
// fewer steps than sorting.
void sort_by_key(std::span<json_entry> entries) {
  constexpr std::size_t small = 32;
  if (entries.size() <= small) {
    std::sort(entries.begin(), entries.end(), is_before);
    return;
  }
  std::vector<std::size_t> ends = {0};
  for (std::size_t at = 1; at < entries.size(); ++at) {
    if (is_before(entries[at], entries[at - 1])) ends.push_back(at);
  }
  ends.push_back(entries.size());
  const auto place = [&entries](std::size_t at) {
    return entries.begin() + static_cast<std::ptrdiff_t>(at);
  };
  while (ends.size() > 2) {
    std::vector<std::size_t> merged = {0};
    for (std::size_t run = 2; run < ends.size(); run += 2) {
      std::inplace_merge(place(ends[run - 2]), place(ends[run - 1]), place(ends[run]), is_before);
      merged.push_back(ends[run]);
    }
    if (merged.back() != entries.size()) merged.push_back(entries.size());
    ends = std::move(merged);
  }
}

// Writes a value as indented JSON in pieces, so that a large store is never held as one text.
class json_writer {
 public:
  explicit json_writer(log_file& outfile) : outfile_(outfile) {}

  void write(const value& obj) {
    append(obj, 0);
    outfile_.write(buffer_ + "\n");
  }

  // True if the file already has the first piece.
  bool has_begun() const { return has_begun_; }

 private:
  static constexpr std::size_t indentation = 3;
  static constexpr std::size_t piece = std::size_t{64} * 1024;

  void append(const value& obj, std::size_t depth) {
    if (buffer_.size() > piece) {
      has_begun_ = true;
      outfile_.write(buffer_);
      buffer_.clear();
    }
    switch (obj.kind()) {
      case value_kind::none:
        buffer_ += "null";
        break;
      case value_kind::integer:
        buffer_ += std::to_string(obj.as_integer());
        break;
      case value_kind::text:
        append_json_text(buffer_, obj.as_text());
        break;
      case value_kind::map:
        append_map(obj.as_map(), depth + 1);
        break;
      case value_kind::list:
        append_list(obj.as_list(), depth + 1);
        break;
      case value_kind::record:
        append(dumper(obj), depth);
        break;
    }
  }

  void new_line(std::size_t depth) {
    static const std::string line = "\n" + std::string(60, ' ');
    const std::size_t blanks = depth * indentation;
    if (blanks < line.size()) {
      buffer_.append(line, 0, 1 + blanks);
    } else {
      buffer_.append(1, '\n').append(blanks, ' ');
    }
  }

  void append_map(const map& entries, std::size_t depth) {
    if (!entries.is_locked()) {
      append_entries(entries, depth);
      return;
    }
    // Other threads may insert meanwhile, which moves the entries.
    const value copy = make_map();
    for (const auto& [key, content] : entries.items()) copy.as_map().set(key, content);
    append_entries(copy.as_map(), depth);
  }

  void append_entries(const map& entries, std::size_t depth) {
    // The entries of the maps around this one are in the same list before `first`.
    const std::size_t first = sorted_.size();
    entries.for_each([this](std::string_view key, const value& content) {
      sorted_.emplace_back(key, &content);
    });
    const std::size_t end = sorted_.size();
    if (first == end) {
      buffer_ += "{}";
      return;
    }
    sort_by_key(std::span(sorted_).subspan(first));
    for (std::size_t at = first; at < end; ++at) {
      const auto [key, content] = sorted_[at];
      buffer_ += at == first ? '{' : ',';
      new_line(depth);
      append_json_text(buffer_, key);
      buffer_ += ':';
      append(*content, depth);
    }
    sorted_.resize(first);
    new_line(depth - 1);
    buffer_ += '}';
  }

  void append_list(const value_list& items, std::size_t depth) {
    if (items.empty()) {
      buffer_ += "[]";
      return;
    }
    char before = '[';
    for (const value& item : items) {
      buffer_ += before;
      before = ',';
      new_line(depth);
      append(item, depth);
    }
    new_line(depth - 1);
    buffer_ += ']';
  }

  log_file& outfile_;
  std::string buffer_;
  std::vector<json_entry> sorted_;
  bool has_begun_ = false;
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
      out += '{';
      for (const auto& [key, content] : obj.as_map().items()) {
        comma();
        out += quoted(key) + ": ";
        append_printed(out, content);
      }
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
  json_writer json(outfile);
  try {
    json.write(obj);
  } catch (const std::exception& json_error) {
    logger(fmt::format("json print_object failed: {}", json_error.what()), "exception", true);
    try {
      if (json.has_begun()) outfile.write("\n");
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
