#include "desk/show/dossier_columns.h"

#include <algorithm>
#include <numeric>

namespace desk {

column_set::column_set(const std::vector<made_cell>& cells) {
  std::array<std::vector<node_place>, source_count> bounds;
  for (const made_cell& one : cells) {
    std::vector<node_place>& of_source = bounds[static_cast<std::size_t>(one.at.from)];
    if (of_source.size() > 1 && of_source.back() == one.at.last + 1 &&
        of_source[of_source.size() - 2] == one.at.first)
      continue;
    of_source.push_back(one.at.first);
    of_source.push_back(one.at.last + 1);
  }
  for (std::size_t i = 0; i < source_count; ++i) {
    std::vector<node_place>& of_source = bounds[i];
    std::sort(of_source.begin(), of_source.end());
    of_source.erase(std::unique(of_source.begin(), of_source.end()), of_source.end());
    first_[i] = columns_.size();
    for (std::size_t k = 0; k + 1 < of_source.size(); ++k)
      columns_.push_back({static_cast<source>(i), of_source[k], of_source[k + 1] - 1});
  }
}

std::vector<std::size_t> column_set::sorted() const {
  std::vector<std::size_t> order(columns_.size());
  std::iota(order.begin(), order.end(), std::size_t{0});
  std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
    return layer_of(columns_[a].from) < layer_of(columns_[b].from);
  });
  return order;
}

contents_of_columns::contents_of_columns(const std::vector<made_cell>& cells,
                                         const column_set& columns)
    : first_(columns.size() + 1) {
  for (const made_cell& one : cells)
    columns.for_each_of(one, [&](std::size_t column) { first_[column + 1] += 2; });
  std::partial_sum(first_.begin(), first_.end(), first_.begin());
  numbers_.resize(first_.back());
  std::vector<std::size_t> next = first_;
  for (const made_cell& one : cells)
    columns.for_each_of(one, [&](std::size_t column) {
      numbers_[next[column]++] = static_cast<char32_t>(one.row);
      numbers_[next[column]++] = static_cast<char32_t>(one.text);
    });
}

}  // namespace desk
