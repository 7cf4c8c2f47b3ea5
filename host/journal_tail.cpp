#include "journal_tail.h"

#include <fcntl.h>
#include <unistd.h>

#include <charconv>
#include <system_error>

namespace tessel_host {

namespace {

// The JSON after the key, from its first byte to the end of the line. In a text each quote is
// escaped, so no text holds what is looked for.
std::string_view from_value(std::string_view line, std::string_view key) {
  const std::string head = ",\"" + std::string(key) + "\":";
  const std::size_t at = line.find(head);
  return at == line.npos ? std::string_view() : line.substr(at + head.size());
}

template <class Number>
Number number_in(std::string_view line, std::string_view key) {
  const std::string_view value = from_value(line, key);
  Number number{};
  std::from_chars(value.data(), value.data() + value.size(), number);
  return number;
}

// A character outside of what is shown anyway becomes a question mark.
char unescaped(char escape) {
  if (escape == 'n' || escape == 'r' || escape == 't') return ' ';
  return escape == 'u' ? '?' : escape;
}

std::string text_in(std::string_view line, std::string_view key) {
  constexpr std::size_t digits_of_u = 4;
  std::string text;
  std::string_view value = from_value(line, key);
  if (!value.starts_with('"')) return text;
  for (std::size_t at = 1; at < value.size() && value[at] != '"'; ++at) {
    if (value[at] != '\\' || at + 1 == value.size()) {
      text += value[at];
      continue;
    }
    const char escape = value[++at];
    text += unescaped(escape);
    if (escape == 'u') at += digits_of_u;
  }
  return text;
}

journal_event_kind kind_of(std::string_view event) {
  if (event == "run") return journal_event_kind::run;
  if (event == "start") return journal_event_kind::start;
  if (event == "end") return journal_event_kind::end;
  if (event == "finished") return journal_event_kind::finished;
  return journal_event_kind::other;
}

}  // namespace

std::optional<journal_event> read_event(std::string_view line) {
  constexpr std::string_view head = "{\"n\":";
  if (!line.starts_with(head) || !line.ends_with('}')) return std::nullopt;
  journal_event event;
  std::from_chars(line.data() + head.size(), line.data() + line.size(), event.number);
  event.kind = kind_of(text_in(line, "event"));
  event.id = number_in<std::uint64_t>(line, "id");
  event.shell = number_in<pid_t>(line, "pid");
  event.at = number_in<double>(line, "at");
  event.seconds = number_in<double>(line, "seconds");
  event.timed_out = from_value(line, "timeout").starts_with("true");
  event.node = text_in(line, "node");
  event.npu = text_in(line, "npu");
  event.command = text_in(line, "command");
  return event;
}

journal_tail::journal_tail(int descriptor, off_t from, bool is_for_us_alone)
    : descriptor_(descriptor), at_(from), is_for_us_alone_(is_for_us_alone) {}

journal_tail::~journal_tail() {
  ::close(descriptor_);
}

bool journal_tail::read_more() {
  const ssize_t count = ::pread(descriptor_, block_.data(), block_.size(), at_);
  if (count <= 0) return false;
  text_.append(block_.data(), static_cast<std::size_t>(count));
  at_ += count;
  return true;
}

void journal_tail::take_lines(const std::function<void(std::string_view)>& take) {
  const off_t before = at_;
  while (read_more()) {
    std::string_view left = text_;
    for (std::size_t end = 0; (end = left.find('\n')) != left.npos; left.remove_prefix(end + 1))
      take(left.substr(0, end));
    text_.erase(0, text_.size() - left.size());
  }
  if (is_for_us_alone_ && at_ > before)
    ::fallocate(descriptor_, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, 0, at_);
}

}  // namespace tessel_host
