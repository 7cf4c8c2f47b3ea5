// The columns of a dossier: nodes that hold the same in each row belong together.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "desk/model/names.h"
#include "desk/model/text_pool.h"

namespace desk {

inline constexpr std::size_t source_count = static_cast<std::size_t>(source::none) + 1;

// A node of the run by its index, or one that only a finding names behind them.
using node_place = std::int32_t;
inline constexpr node_place whole_router = -1;
inline constexpr node_place own_node = -2;  // of a member: the one that it sits on

// Nodes that follow each other in the run; one of them for the router or a member's own node.
struct nodes_of_source {
  source from = source::none;
  node_place first = whole_router;
  node_place last = whole_router;
  bool operator==(const nodes_of_source&) const = default;
};

// What is shown of a slot where all these nodes hold the same.
struct made_cell {
  std::uint32_t row = 0;  // the part's number times the slots, and the slot
  text_id text = 0;
  nodes_of_source at;
  bool is_odd = false;
};

// The nodes of each source, parted where a cell of any row begins or ends.
class column_set {
 public:
  explicit column_set(const std::vector<made_cell>& cells);

  [[nodiscard]] std::size_t size() const { return columns_.size(); }
  [[nodiscard]] const nodes_of_source& operator[](std::size_t column) const {
    return columns_[column];
  }
  // Calls `take` with each column that the cell is of.
  template <class Take>
  void for_each_of(const made_cell& one, Take take) const {
    const auto is_before = [&](const nodes_of_source& column) {
      return std::tie(column.from, column.last) < std::tie(one.at.from, one.at.first);
    };
    auto at = columns_.begin() +
              static_cast<std::ptrdiff_t>(first_[static_cast<std::size_t>(one.at.from)]);
    if (is_before(*at)) at = std::partition_point(at, columns_.end(), is_before);
    for (; at != columns_.end() && at->from == one.at.from && at->last <= one.at.last; ++at)
      take(static_cast<std::size_t>(at - columns_.begin()));
  }
  // From the top layer down, the router before its nodes, a member's own node before the others.
  [[nodiscard]] std::vector<std::size_t> sorted() const;

 private:
  std::vector<nodes_of_source> columns_;           // by source and node
  std::array<std::size_t, source_count> first_{};  // of each source
};

// By column the rows where it has a text, each with that text's number. As text of wide characters:
// columns are compared and looked up by it as a whole, and a view of a string has the means.
class contents_of_columns {
 public:
  contents_of_columns(const std::vector<made_cell>& cells, const column_set& columns);
  [[nodiscard]] std::u32string_view operator[](std::size_t column) const {
    return std::u32string_view(numbers_).substr(first_[column],
                                                first_[column + 1] - first_[column]);
  }

 private:
  std::u32string numbers_;
  std::vector<std::size_t> first_;  // where each column begins
};

}  // namespace desk
