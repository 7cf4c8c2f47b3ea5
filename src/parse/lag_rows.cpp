#include "parse/lag_rows.h"

#include <algorithm>

#include "base/cursor.h"
#include "base/text.h"

namespace tessel {

namespace {

constexpr std::size_t npos = std::string_view::npos;

bool is_digit(char c) {
  return c >= '0' && c <= '9';
}

// The start of the run of characters that ends at `end` and belongs to a set; not before `from`.
template <class Belongs>
std::size_t start_of_run(std::string_view text, std::size_t from, std::size_t end,
                         Belongs belongs) {
  while (end > from && belongs(text[end - 1])) --end;
  return end;
}

// The number that ends at the first bar of a row, with blanks between them; empty if there is none.
std::string_view number_before(std::string_view text, std::size_t from, std::size_t bar) {
  const std::size_t end = start_of_run(text, from, bar, is_white_space);
  if (end == bar) return {};
  const std::size_t start = start_of_run(text, from, end, is_digit);
  return text.substr(start, end - start);
}

// A cell of `tm lag` between two bars: blanks around a word, or at least two blanks.
struct table_cell {
  std::size_t bar;        // the one in front
  std::string_view word;  // empty if the cell is blank
};

// Reads the cell before `end`, where a bar stands. Returns false if there is no cell.
bool read_cell(std::string_view text, std::size_t end, table_cell& found) {
  const std::size_t word_end = start_of_run(text, 0, end, is_white_space);
  const std::size_t word = start_of_run(text, 0, word_end, is_word);
  const std::size_t blanks = word == word_end ? word : start_of_run(text, 0, word, is_white_space);
  if (word_end == end || blanks == 0 || text[blanks - 1] != '|') return false;
  if (word == word_end ? end - word_end < 2 : blanks == word) return false;
  found = {blanks - 1, text.substr(word, word_end - word)};
  return true;
}

bool skip_number_cell(cursor& at) {
  return at.skip_blanks() && !at.digits().empty() && at.skip_blanks() && at.skip("|");
}

}  // namespace

std::string_view diag_lag_id(std::string_view lag) {
  constexpr std::string_view head = "ID:";
  for (std::size_t at = lag.find(head); at != npos; at = lag.find(head, at + 1)) {
    cursor behind(lag, at + head.size());
    if (!behind.skip_blank()) continue;
    if (const std::string_view id = behind.digits(); !id.empty()) return id;
  }
  return {};
}

// Each row has a first bar, and no two rows have the same one. So it is enough to look at each bar.
void find_diag_lag_rows(std::string_view lag, std::vector<diag_lag_row>& rows) {
  rows.clear();
  std::size_t done = 0;  // the end of the last row
  for (std::size_t bar = lag.find('|'); bar != npos; bar = lag.find('|', bar + 1)) {
    const std::string_view member = number_before(lag, done, bar);
    if (member.empty()) continue;
    cursor at(lag, bar + 1);
    if (!at.skip_blanks()) continue;
    const std::string_view gport = at.word();
    if (gport.empty() || !at.skip_blanks() || !at.skip("|") || !at.skip_blanks()) continue;
    const std::size_t flag = at.place();
    if (!at.skip("Y") && !at.skip("N")) continue;
    rows.push_back({member, gport, lag.substr(flag, 1)});
    done = at.place();
    bar = flag;
  }
}

tm_lag_pieces::tm_lag_pieces(std::string_view text) : text_(text) {
  find_cut();
}

// Moves to the first cut that begins at the end of the last one or behind it. What has been read of
// a cell has no bar in it, so the search goes on behind it.
void tm_lag_pieces::find_cut() {
  std::size_t from = cut_end_;
  while ((cut_ = text_.find('|', from)) != npos) {
    cursor at(text_, cut_ + 1);
    if (!skip_number_cell(at)) {
      from = at.place();
      continue;
    }
    from = at.place() - 1;
    if (!skip_number_cell(at)) continue;
    cut_end_ = at.place();
    return;
  }
}

bool tm_lag_pieces::next() {
  if (cut_ == npos) return false;
  const std::size_t start = cut_end_;
  find_cut();
  piece_ = text_.substr(start, cut_ == npos ? npos : cut_ - start);
  return true;
}

// A row ends in a bar and a line feed, and no two rows end in the same one.
bool tm_lag_rows::next() {
  while (at_ < piece_.size()) {
    const std::size_t line_feed = piece_.find('\n', at_);
    if (line_feed == npos) return false;
    at_ = line_feed + 1;
    if (line_feed == 0 || piece_[line_feed - 1] != '|' || !read_row(line_feed - 1)) continue;
    done_ = at_;
    return true;
  }
  return false;
}

bool tm_lag_rows::read_row(std::size_t last_bar) {
  table_cell state{};
  table_cell port{};
  table_cell mode{};
  table_cell id{};
  if (!read_cell(piece_, last_bar, state) || !read_cell(piece_, state.bar, port)) return false;
  if (!read_cell(piece_, port.bar, mode) || !read_cell(piece_, mode.bar, id)) return false;
  if (!std::all_of(id.word.begin(), id.word.end(), is_digit)) return false;
  if (id.bar <= done_ || !is_white_space(piece_[id.bar - 1])) return false;
  lag_id_ = id.word;
  gport_ = port.word;
  return true;
}

}  // namespace tessel
