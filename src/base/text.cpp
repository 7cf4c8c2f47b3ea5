#include "base/text.h"

#define PCRE2_CODE_UNIT_WIDTH 8
#include <fmt/format.h>
#include <pcre2.h>
#include <pthread.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <memory>
#include <new>

#include "base/failure.h"
#include "base/value.h"

namespace tessel {

namespace {

constexpr std::size_t first_jit_stack = std::size_t{64} * 1024;
constexpr std::size_t largest_jit_stack = std::size_t{32} * 1024 * 1024;

// The cost limit of one attempt. A search that takes a few steps per byte can read a text of any
// length, and a search that runs away still ends in linear time.
constexpr std::size_t least_match_limit = 10'000'000;
constexpr std::size_t steps_per_byte = 64;

std::uint32_t match_limit(std::size_t bytes) {
  constexpr std::size_t largest = std::numeric_limits<std::uint32_t>::max();
  if (bytes > (largest - least_match_limit) / steps_per_byte) return largest;
  return static_cast<std::uint32_t>(least_match_limit + bytes * steps_per_byte);
}

pcre2_code* compile(std::string_view expression, letter_case letters) {
  const std::unique_ptr<pcre2_compile_context, decltype(&pcre2_compile_context_free)> context(
      pcre2_compile_context_create(nullptr), &pcre2_compile_context_free);
  if (!context) throw std::bad_alloc();
  pcre2_set_newline(context.get(), PCRE2_NEWLINE_LF);
  int error = 0;
  PCRE2_SIZE position = 0;
  pcre2_code* code = pcre2_compile(
      reinterpret_cast<PCRE2_SPTR>(expression.data()), expression.size(),
      letters == letter_case::ignored ? PCRE2_CASELESS : 0U, &error, &position, context.get());
  if (code != nullptr) return code;
  char why[256] = "";
  pcre2_get_error_message(error, reinterpret_cast<PCRE2_UCHAR*>(why), sizeof why);
  throw failure(fmt::format("pattern {}: {} at {}", brief_text(expression), why, position));
}

struct free_match_data {
  void operator()(pcre2_match_data* data) const { pcre2_match_data_free(data); }
};
struct free_match_context {
  void operator()(pcre2_match_context* context) const { pcre2_match_context_free(context); }
};
struct free_jit_stack {
  void operator()(pcre2_jit_stack* stack) const { pcre2_jit_stack_free(stack); }
};

// What the library needs for a search, beside the pattern.
struct search_memory {
  std::unique_ptr<pcre2_match_data, free_match_data> data;
  std::unique_ptr<pcre2_jit_stack, free_jit_stack> stack;
  std::unique_ptr<pcre2_match_context, free_match_context> context;
};

void forget_spare_memory(void* spare) {
  delete static_cast<search_memory*>(spare);
}

// A search of a short block takes less time than making its memory. So each thread keeps one for
// the next search with machine code. A search without it may need, and keep, much more memory.
//
// The C library ends the process if it has no memory to note the destructor of a `thread_local`. A
// key needs none.
search_memory& spare_memory() {
  static const pthread_key_t key = [] {
    pthread_key_t made{};
    if (pthread_key_create(&made, forget_spare_memory) != 0) throw std::bad_alloc();
    return made;
  }();
  if (void* const kept = pthread_getspecific(key)) return *static_cast<search_memory*>(kept);
  auto made = std::make_unique<search_memory>();
  if (pthread_setspecific(key, made.get()) != 0) throw std::bad_alloc();
  return *made.release();
}

constexpr std::uint32_t spare_groups = 16;

bool fits_spare_memory(const pcre2_code* code) {
  std::size_t machine_code = 0;
  std::uint32_t groups = 0;
  pcre2_pattern_info(code, PCRE2_INFO_JITSIZE, &machine_code);
  pcre2_pattern_info(code, PCRE2_INFO_CAPTURECOUNT, &groups);
  return machine_code > 0 && groups < spare_groups;
}

search_memory take_memory(const pcre2_code* code) {
  const bool is_usual = fits_spare_memory(code);
  if (is_usual && spare_memory().data) return std::move(spare_memory());
  search_memory made;
  made.data.reset(is_usual ? pcre2_match_data_create(spare_groups, nullptr)
                           : pcre2_match_data_create_from_pattern(code, nullptr));
  made.context.reset(pcre2_match_context_create(nullptr));
  if (!made.data || !made.context) throw std::bad_alloc();
  return made;
}

void give_back(search_memory used, const pcre2_code* code) {
  if (!fits_spare_memory(code) || used.stack) return;
  spare_memory() = std::move(used);
}

}  // namespace

// One left-to-right search of one text.
class matcher {
 public:
  matcher(const pattern& what, std::string_view subject, here where)
      : what_(what),
        code_(static_cast<pcre2_code*>(what.code_)),
        subject_(subject),
        where_(where),
        memory_(take_memory(code_)) {
    pcre2_set_match_limit(context(), match_limit(subject_.size()));
  }
  ~matcher() { give_back(std::move(memory_), code_); }
  matcher(const matcher&) = delete;
  matcher& operator=(const matcher&) = delete;

  std::uint32_t groups() const {
    std::uint32_t count = 0;
    pcre2_pattern_info(code_, PCRE2_INFO_CAPTURECOUNT, &count);
    return count;
  }

  // Moves to the next match; false if there is none.
  bool next() {
    while (start_ <= subject_.size()) {
      if (!match()) {
        if (!after_empty_) return false;
        // There was an empty match here, and there is no longer one: continue one byte later.
        after_empty_ = false;
        ++start_;
        continue;
      }
      const PCRE2_SIZE* ends = pcre2_get_ovector_pointer(data());
      begin_ = ends[0];
      end_ = ends[1];
      after_empty_ = begin_ == end_;
      start_ = end_;
      return true;
    }
    return false;
  }

  std::size_t begin() const { return begin_; }
  std::size_t end() const { return end_; }

  std::string_view group(std::uint32_t number) const {
    const PCRE2_SIZE* ends = pcre2_get_ovector_pointer(data());
    const std::size_t at = std::size_t{2} * number;
    if (ends[at] == PCRE2_UNSET) return {};
    return subject_.substr(ends[at], ends[at + 1] - ends[at]);
  }

 private:
  pcre2_match_data* data() const { return memory_.data.get(); }
  pcre2_match_context* context() const { return memory_.context.get(); }

  int attempt() {
    const std::uint32_t options = after_empty_ ? PCRE2_NOTEMPTY_ATSTART | PCRE2_ANCHORED : 0U;
    return pcre2_match(code_, reinterpret_cast<PCRE2_SPTR>(subject_.data()), subject_.size(),
                       start_, options, data(), context());
  }

  // The machine stack is enough for nearly every match; a deep match gets memory of its own.
  void grow_jit_stack() {
    memory_.stack.reset(pcre2_jit_stack_create(first_jit_stack, largest_jit_stack, nullptr));
    if (!memory_.stack) throw std::bad_alloc();
    pcre2_jit_stack_assign(context(), nullptr, memory_.stack.get());
  }

  bool match() {
    int result = attempt();
    if (result == PCRE2_ERROR_JIT_STACKLIMIT && !memory_.stack) {
      grow_jit_stack();
      result = attempt();
    }
    if (result == PCRE2_ERROR_NOMATCH) return false;
    if (result >= 0) return true;
    char why[256] = "";
    pcre2_get_error_message(result, reinterpret_cast<PCRE2_UCHAR*>(why), sizeof why);
    throw failure(fmt::format("searching {} in {} bytes: {}", brief_text(what_.expression()),
                              subject_.size(), why),
                  where_);
  }

  const pattern& what_;
  pcre2_code* code_;
  std::string_view subject_;
  here where_;
  search_memory memory_;
  std::size_t start_ = 0;
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
  bool after_empty_ = false;
};

pattern::pattern(std::string_view expression, letter_case letters)
    : expression_(expression), code_(compile(expression, letters)) {}

pattern::~pattern() {
  pcre2_code_free(static_cast<pcre2_code*>(code_));
}

const pattern& constant(std::string_view expression, letter_case letters) {
  const auto* made = new pattern(expression, letters);
  // If this fails (no executable memory), the pattern is interpreted: slower, but with the same
  // result.
  pcre2_jit_compile(static_cast<pcre2_code*>(made->code_), PCRE2_JIT_COMPLETE);
  return *made;
}

matches findall(const pattern& what, std::string_view subject, here where) {
  matcher search(what, subject, where);
  const std::uint32_t groups = search.groups();
  matches found;
  found.width_ = std::max(groups, 1U);
  while (search.next()) {
    if (groups == 0) found.parts_.push_back(search.group(0));
    for (std::uint32_t number = 1; number <= groups; ++number) {
      found.parts_.push_back(search.group(number));
    }
  }
  return found;
}

std::string sub(const pattern& what, std::string_view replacement, std::string_view subject,
                here where) {
  matcher search(what, subject, where);
  std::string result;
  result.reserve(subject.size());  // a large one that grows would be held twice
  std::size_t done = 0;
  while (search.next()) {
    result += subject.substr(done, search.begin() - done);
    result += replacement;
    done = search.end();
  }
  result += subject.substr(done);
  return result;
}

std::vector<std::string_view> split(std::string_view subject, std::string_view separator) {
  if (separator.empty()) throw failure("an empty separator");
  std::vector<std::string_view> pieces;
  std::size_t start = 0;
  for (std::size_t at = subject.find(separator); at != std::string_view::npos;
       at = subject.find(separator, start)) {
    pieces.push_back(subject.substr(start, at - start));
    start = at + separator.size();
  }
  pieces.push_back(subject.substr(start));
  return pieces;
}

std::vector<std::string_view> split(std::string_view subject, const pattern& separator,
                                    here where) {
  matcher search(separator, subject, where);
  std::vector<std::string_view> pieces;
  std::size_t start = 0;
  while (search.next()) {
    pieces.push_back(subject.substr(start, search.begin() - start));
    start = search.end();
  }
  pieces.push_back(subject.substr(start));
  return pieces;
}

std::vector<std::string_view> split_words(std::string_view subject) {
  std::vector<std::string_view> words;
  std::size_t start = subject.find_first_not_of(white_space);
  while (start != std::string_view::npos) {
    const std::size_t end = std::min(subject.find_first_of(white_space, start), subject.size());
    words.push_back(subject.substr(start, end - start));
    start = subject.find_first_not_of(white_space, end);
  }
  return words;
}

std::string_view strip(std::string_view subject) {
  return strip_set(subject, white_space);
}

std::string_view strip_set(std::string_view subject, std::string_view set) {
  subject = strip_set_left(subject, set);
  return subject.substr(0, subject.find_last_not_of(set) + 1);
}

std::string_view strip_set_left(std::string_view subject, std::string_view set) {
  return subject.substr(std::min(subject.find_first_not_of(set), subject.size()));
}

std::string_view tail(std::string_view subject, std::size_t count) {
  return subject.substr(subject.size() - std::min(count, subject.size()));
}

std::size_t count_of(std::string_view subject, std::string_view what) {
  std::size_t found = 0;
  for (std::size_t at = subject.find(what); at != std::string_view::npos;
       at = subject.find(what, at + what.size())) {
    ++found;
  }
  return found;
}

std::string replace_all(std::string_view subject, std::string_view what, std::string_view by) {
  if (what.empty()) return std::string(subject);
  const std::size_t found = count_of(subject, what);
  std::string result;
  // Exactly, because a large one that grows would be held twice.
  result.reserve(subject.size() + found * by.size() - found * what.size());
  std::size_t start = 0;
  for (std::size_t at = subject.find(what); at != std::string_view::npos;
       at = subject.find(what, start)) {
    result += subject.substr(start, at - start);
    result += by;
    start = at + what.size();
  }
  result += subject.substr(start);
  return result;
}

std::string joined(std::initializer_list<std::string_view> parts) {
  std::size_t size = 0;
  for (const std::string_view part : parts) size += part.size();
  std::string whole;
  whole.reserve(size);
  for (const std::string_view part : parts) whole += part;
  return whole;
}

std::string fill(std::string_view form, std::span<const std::string_view> values) {
  std::string result;
  auto next = values.begin();
  std::size_t start = 0;
  for (std::size_t at = form.find("{}"); at != std::string_view::npos && next != values.end();
       at = form.find("{}", start)) {
    result += form.substr(start, at - start);
    result += *next++;
    start = at + 2;
  }
  result += form.substr(start);
  return result;
}

std::string fill(std::string_view form, std::initializer_list<std::string_view> values) {
  return fill(form, std::span(values.begin(), values.size()));
}

namespace {

// True if a quoted text holds this character as it is, or if only the quote around it decides that.
constexpr bool is_printable(char c) {
  return c >= 0x20 && c < 0x7f && c != '\\';
}

void append_escape(std::string& out, char c) {
  if (c == '\n') {
    out += "\\n";
  } else if (c == '\r') {
    out += "\\r";
  } else if (c == '\t') {
    out += "\\t";
  } else if (is_printable(c) || c == '\\') {
    out += {'\\', c};
  } else {
    out += fmt::format("\\x{:02x}", static_cast<unsigned char>(c));
  }
}

void append_quoted(std::string& out, std::string_view text) {
  const bool single = text.find('\'') == text.npos || text.find('"') != text.npos;
  const char quote = single ? '\'' : '"';
  out += quote;
  std::size_t done = 0;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (is_printable(text[at]) && text[at] != quote) continue;
    out += text.substr(done, at - done);
    append_escape(out, text[at]);
    done = at + 1;
  }
  out += text.substr(done);
  out += quote;
}

}  // namespace

std::string quoted(std::string_view text) {
  std::string result;
  result.reserve(text.size() + 2);
  append_quoted(result, text);
  return result;
}

std::string list_text(std::span<const std::string_view> entries) {
  constexpr std::size_t around_entry = 4;
  std::size_t size = 2;
  for (const std::string_view entry : entries) size += entry.size() + around_entry;
  std::string result = "[";
  result.reserve(size);
  for (const std::string_view entry : entries) {
    if (result.size() > 1) result += ", ";
    append_quoted(result, entry);
  }
  result += ']';
  return result;
}

std::string list_text(const matches& entries) {
  std::string result = "[";
  for (std::size_t at = 0; at < entries.size(); ++at) {
    if (at > 0) result += ", ";
    const auto parts = entries[at];
    if (parts.size() == 1) {
      append_quoted(result, parts[0]);
      continue;
    }
    result += '(';
    for (std::size_t part = 0; part < parts.size(); ++part) {
      result += part > 0 ? ", " : "";
      append_quoted(result, parts[part]);
    }
    result += ')';
  }
  return result + "]";
}

}  // namespace tessel
