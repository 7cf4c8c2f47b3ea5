// What every layer holds of a bundle, its members and its sub-bundles: a row a field, a column a
// layer, a tool and a place. The terminal and the page show the same tables.
#pragma once

#include <deque>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "desk/judge/judged_run.h"

namespace desk {

// The texts of the run, and behind them those that only a table has: one number for equal ones.
class shown_texts {
 public:
  explicit shown_texts(const text_pool& of) : kept_(of) {}
  [[nodiscard]] text_id number_of(std::string_view text) {
    const std::optional<text_id> known = kept_.find(text);
    return known ? *known : static_cast<text_id>(kept_.size()) + made_.keep(text);
  }
  [[nodiscard]] std::string_view text(text_id number) const {
    return number < kept_.size() ? kept_.text(number)
                                 : made_.text(number - static_cast<text_id>(kept_.size()));
  }

 private:
  const text_pool& kept_;
  text_pool made_;
};

// Raw text: "0x1", "missing*", "present (NPU 1) / missing* (NPU 0)"; empty where the tool has no
// such value. An asterisk stands behind what differs.
struct dossier_cell {
  std::string_view text;
  bool is_odd = false;
};

// Columns of several nodes that hold the same are one. One with an odd value stands alone.
struct dossier_column {
  layer of = layer::none;
  source from = source::none;
  std::string place;  // "0/0/CPU0", "3 nodes", "its node"; empty: the router as a whole
};

struct dossier_row {
  std::string_view label;
  std::span<const dossier_cell> cells;  // a cell for each column
};

// The rows of one object. A bundle needs no name above its rows.
struct dossier_part {
  std::string name;
  std::string place;  // "0/0/CPU0 NPU 0 core 1"; only of a member
  std::vector<dossier_row> rows;
};

struct dossier_section {
  dossier_section() = default;
  // A copy's rows would be of the cells of another one.
  dossier_section(dossier_section&&) = default;
  dossier_section& operator=(dossier_section&&) = default;
  std::string_view title;
  std::vector<dossier_column> columns;
  std::vector<dossier_part> parts;
  std::vector<dossier_cell> cells;  // of all rows
};

struct dossier_table {
  std::vector<dossier_section> sections;     // the bundle, its members, its sub-bundles
  std::vector<source> tools;                 // that the columns were read from
  std::shared_ptr<const shown_texts> texts;  // that only a table has
  // What "3 nodes" stands for.
  std::vector<std::pair<std::string, std::vector<std::string_view>>> folds;
};

// Makes the tables of one run, which must stay as it is meanwhile. For several bundles take the
// same maker. Does not fail. Not for two threads.
class dossier_maker {
 public:
  explicit dossier_maker(const judged_run& of);
  dossier_maker(const dossier_maker&) = delete;
  dossier_maker& operator=(const dossier_maker&) = delete;
  // The texts of the table last as long as the run and the table.
  [[nodiscard]] dossier_table table_of(const object& bundle);

  // What is known of one object besides its cells.
  struct known {
    std::vector<const difference*> differences;
    std::vector<const finding*> findings;
  };

 private:
  void add_silent_chips();

  const judged_run& of_;
  std::unordered_map<object_key, known, object_key_hash, object_key_equal> known_;
  std::vector<const coverage*> holes_;
  std::deque<coverage> silent_chips_;
  std::shared_ptr<shown_texts> texts_;
};

// "lagport" of "fwd_object_show -t lagport", "lagmgr_agent" of "lagmgr_agent_show".
[[nodiscard]] std::string_view short_tool(source from);

}  // namespace desk
