#include "desk/read/snapshot.h"

#include <fmt/format.h>

#include <optional>

#include "desk/read/dump_parser.h"
#include "desk/read/line_reader.h"

namespace desk {

namespace {

constexpr std::string_view begin_word = "'Start of ";
constexpr std::string_view start_of_run = "'Started Tessel Checker'";

// What follows 'Start of ' or 'End of ' in such a line: "BM PI" of "'Start of BM PI entries...'".
std::optional<std::string_view> label_in(std::string_view line, std::string_view word) {
  constexpr std::string_view end = " entries...'";
  if (!line.starts_with(word) || !line.ends_with(end)) return {};
  if (line.size() < word.size() + end.size()) return {};
  return line.substr(word.size(), line.size() - word.size() - end.size());
}

// Where the line has the beginning of a dump. It may stand behind the last words of a tool that
// ended its complaint without a line end.
std::size_t begin_of_dump(std::string_view line) {
  const std::size_t at = line.rfind(begin_word);
  return at != line.npos && label_in(line.substr(at), begin_word) ? at : line.npos;
}

// What can stand behind a dump that was cut off, in a log to which the next run appends.
bool begins_something_else(std::string_view line) {
  return line == start_of_run || begin_of_dump(line) != line.npos;
}

enum class stop : std::uint8_t { end_of_dump, something_else, end_of_file };

// Skips to the end of the dump. If it has none, `line` may be the first of something else.
stop skip_dump(line_reader& lines, std::string_view label, std::string& line) {
  while (lines.next(line)) {
    if (label_in(line, "'End of ") == label) return stop::end_of_dump;
    if (begins_something_else(line)) return stop::something_else;
  }
  return stop::end_of_file;
}

bool read_dump(byte_source& bytes, std::string_view label, const dump_taker& taker) {
  if (taker.wants && !taker.wants(label)) return true;
  return dump_parser(bytes, label, taker).read();
}

}  // namespace

std::string_view without_quotes(std::string_view line) {
  const bool begins = line.starts_with('\'') || line.starts_with('"');
  if (!begins || line.size() == 1 || line.back() != line.front()) return line;
  return line.substr(1, line.size() - 2);
}

std::vector<std::string> read_dumps(const std::string& path, const dump_taker& taker) {
  std::vector<std::string> marks;
  byte_source bytes(path);
  line_reader lines(bytes);
  std::string line;
  stop before = stop::end_of_dump;
  while (before == stop::something_else || lines.next(line)) {
    before = stop::end_of_dump;
    const std::string_view whole = line;
    const std::size_t begin = begin_of_dump(whole);
    const std::string_view words = whole.substr(0, begin);
    if (taker.line && (!words.empty() || begin == whole.npos)) taker.line(words);
    if (begin == whole.npos) continue;
    const std::string label(*label_in(whole.substr(begin), begin_word));
    if (taker.begins) taker.begins(label);
    const bool is_read = read_dump(bytes, label, taker);
    before = skip_dump(lines, label, line);
    const dump_end how = before != stop::end_of_dump ? dump_end::cut_off
                         : is_read                   ? dump_end::whole
                                                     : dump_end::unread;
    if (how != dump_end::whole)
      marks.push_back(fmt::format("{}: the dump of {} {}", path, label,
                                  how == dump_end::unread ? "is not understood" : "is cut off"));
    if (taker.ended) taker.ended(label, how);
  }
  if (!lines.has_end()) marks.push_back(fmt::format("{} ends in the middle of a line", path));
  return marks;
}

}  // namespace desk
