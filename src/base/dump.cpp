#include "base/dump.h"

#include <fmt/format.h>

#include <algorithm>

#include "base/logs.h"
#include "base/records.h"
#include "base/text.h"

namespace tessel {

namespace {

void append_json_text(std::string& out, std::string_view text) {
  out += '"';
  for (const char c : text) {
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
        if (static_cast<unsigned char>(c) < 0x20) {
          out += fmt::format("\\u{:04x}", static_cast<unsigned char>(c));
        } else {
          out += c;
        }
    }
  }
  out += '"';
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
  static constexpr std::size_t piece = 1 << 20;

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

  void new_line(std::size_t depth) { buffer_.append(1, '\n').append(depth * indentation, ' '); }

  void append_map(const map& entries, std::size_t depth) {
    auto items = entries.items();
    if (items.empty()) {
      buffer_ += "{}";
      return;
    }
    std::sort(items.begin(), items.end(),
              [](const auto& left, const auto& right) { return left.first < right.first; });
    char before = '{';
    for (const auto& [key, content] : items) {
      buffer_ += before;
      before = ',';
      new_line(depth);
      append_json_text(buffer_, key);
      buffer_ += ':';
      append(content, depth);
    }
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
