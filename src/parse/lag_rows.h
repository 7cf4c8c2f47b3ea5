// The rows of the LAG tables of both chip families. The tables have tens of thousands of them on
// each chip, and a search with a pattern costs more than the reading itself. Each function here
// finds what the pattern beside it defines.
//
// All functions may be called from any thread.
#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

namespace tessel {

// The LAG id in a block of `diag lag`: the first text that the definition finds; empty if there is
// none.
inline constexpr std::string_view diag_lag_id_definition = R"((?<=ID:\s)\d+)";
std::string_view diag_lag_id(std::string_view lag);

// A member in a block of `diag lag`, as printed.
//
//       0 | 0x04001001 | Y
struct diag_lag_row {
  std::string_view member;
  std::string_view gport;
  std::string_view is_active;
};
inline constexpr std::string_view diag_lag_row_definition = R"((\d+)\s+\|\s+(\w+)\s+\|\s+([YN]))";
// Replaces the content of `rows`.
void find_diag_lag_rows(std::string_view lag, std::vector<diag_lag_row>& rows);

// The pieces into which the definition cuts a text of `tm lag`, without the one in front of the
// first cut. Two cells with numbers begin a LAG.
//
//   tm_lag_pieces pieces(text);
//   while (pieces.next()) read(pieces.piece());
class tm_lag_pieces {
 public:
  static constexpr std::string_view definition = R"(\|\s+\d+\s+\|\s+\d+\s+\|)";

  // `text` must outlive this object.
  explicit tm_lag_pieces(std::string_view text);

  // Moves to the next piece; false if there is none.
  bool next();
  std::string_view piece() const { return piece_; }

 private:
  void find_cut();

  std::string_view text_;
  std::string_view piece_;
  std::size_t cut_ = 0;      // where the next cut begins; npos if there is none
  std::size_t cut_end_ = 0;  // where it ends
};

// The rows in a piece of `tm lag`. The groups of the definition are the LAG id, the global port and
// the last word, each empty for a blank cell.
//
//   |       |      | 16    | 1    | hash   | 0xc001001   | up    |
class tm_lag_rows {
 public:
  static constexpr std::string_view definition =
      "\\d*\\s+\\|\\s+(\\d*)\\s+\\|\\s+\\w*\\s+\\|\\s+(\\w*)\\s+\\|\\s+(\\w*)\\s+\\|\n";

  // `piece` must outlive this object.
  explicit tm_lag_rows(std::string_view piece) : piece_(piece) {}

  // Moves to the next row; false if there is none.
  bool next();
  std::string_view lag_id() const { return lag_id_; }
  std::string_view gport() const { return gport_; }

 private:
  bool read_row(std::size_t last_bar);

  std::string_view piece_;
  std::size_t done_ = 0;  // the end of the last row
  std::size_t at_ = 0;    // where the search goes on
  std::string_view lag_id_;
  std::string_view gport_;
};

}  // namespace tessel
