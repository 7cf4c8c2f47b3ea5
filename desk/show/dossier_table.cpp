#include "desk/show/dossier_table.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <bitset>
#include <cstdint>
#include <map>
#include <numeric>
#include <optional>
#include <tuple>
#include <utility>

#include "desk/model/coverage.h"
#include "desk/model/finding_source.h"
#include "desk/model/numbers.h"
#include "desk/show/dossier_columns.h"

namespace desk {

namespace {

constexpr std::string_view word_missing = "missing";
constexpr std::string_view word_not_read = "not read";

// What the audit holds of a port without a row in the chip's table of VLAN domains.
constexpr std::string_view no_domain = "0";

// ---- Rows and columns ---------------------------------------------------------------------------

constexpr std::array shown_fields = {
    field::type,     field::encapsulation, field::handle,      field::mac,
    field::mtu,      field::lag_id,        field::lif,         field::rif,
    field::npu,      field::member_id,     field::system_port, field::vlan_domain,
    field::deletion, field::weight,        field::presence,    field::sem};
constexpr std::size_t slots = shown_fields.size();

// Behind all slots if the field is not shown.
constexpr auto slots_of_fields = [] {
  std::array<std::size_t, static_cast<std::size_t>(field::none) + 1> made{};
  made.fill(slots);
  for (std::size_t i = 0; i < shown_fields.size(); ++i)
    made[static_cast<std::size_t>(shown_fields[i])] = i;
  return made;
}();

std::size_t slot_of(field what) {
  return slots_of_fields[static_cast<std::size_t>(what)];
}

// The chips' tables of frames, of which no other layer has anything.
constexpr std::size_t slot_of_sem = slots_of_fields[static_cast<std::size_t>(field::sem)];

// Where a value of a field stands that this source says.
struct cell_kind {
  std::uint16_t run = 0;      // of this slot and column, behind it that of a member's own node
  std::uint8_t slot = slots;  // `slots`: it is not shown
  source column = source::none;
  // Which member a LAG has is in the chips of all nodes, the rest of a member on its own node only.
  bool is_everywhere = false;
};

// By field and source. One tool shows all tables of a chip.
const auto cell_kinds = [] {
  std::array<cell_kind, slots_of_fields.size() * source_count> made{};
  for (std::size_t i = 0; i < made.size(); ++i) {
    const std::size_t what = i / source_count;
    const auto from = static_cast<source>(i % source_count);
    const bool is_of_chip = layer_of(from) == layer::bcm;
    cell_kind& one = made[i];
    one.slot = static_cast<std::uint8_t>(slots_of_fields[what]);
    one.column = is_of_chip ? source::chip_lag : from;
    one.is_everywhere = is_of_chip && static_cast<field>(what) == field::presence;
    const auto column = static_cast<std::size_t>(one.column);
    one.run = static_cast<std::uint16_t>((one.slot * source_count + column) * 2);
  }
  return made;
}();

const cell_kind& kind_of(field what, source from) {
  return cell_kinds[static_cast<std::size_t>(what) * source_count + static_cast<std::size_t>(from)];
}

source column_source(source from) {
  return kind_of(field::none, from).column;
}

struct column_key {
  source from = source::none;
  node_place node = whole_router;
};

// A set of NPUs. No node has more; a greater number is none.
using npu_set = std::uint64_t;

npu_set set_of(std::int16_t npu) {
  return npu >= 0 && npu < 64 ? npu_set{1} << static_cast<unsigned>(npu) : npu_set{0};
}

// Of the object at hand.
struct value {
  npu_set npus = 0;  // empty: the node as a whole
  text_id text = 0;
  std::uint32_t column = 0;
  std::uint32_t next = 0;  // of the same slot and column; 0: none
  std::uint8_t slot = 0;
  bool is_odd = false;
  bool is_judged = false;  // the judge compared it
};

// ---- What a table holds -------------------------------------------------------------------------

// Where a layer would hold a field, for what was not read.
struct expected_field {
  object_kind of;
  field what;
  source from;
};
constexpr std::array expected_fields = std::to_array<expected_field>({
    {object_kind::bundle, field::type, source::running_config},
    {object_kind::bundle, field::handle, source::bundle_manager},
    {object_kind::bundle, field::mac, source::bundle_manager},
    {object_kind::bundle, field::mtu, source::bundle_manager},
    {object_kind::bundle, field::lag_id, source::agent},
    {object_kind::bundle, field::lag_id, source::lagport},
    {object_kind::bundle, field::vlan_domain, source::lagport},
    {object_kind::bundle, field::weight, source::lagport},
    {object_kind::bundle, field::mac, source::l2port},
    {object_kind::bundle, field::lif, source::l2port},
    {object_kind::bundle, field::rif, source::l2port},
    {object_kind::bundle, field::presence, source::chip_lag},
    {object_kind::member, field::handle, source::bundle_manager},
    {object_kind::member, field::mtu, source::interfaces},
    {object_kind::member, field::npu, source::agent},
    {object_kind::member, field::member_id, source::agent},
    {object_kind::member, field::system_port, source::agent},
    {object_kind::member, field::member_id, source::lagport},
    {object_kind::member, field::npu, source::l1port},
    {object_kind::member, field::mtu, source::l1port},
    {object_kind::member, field::presence, source::chip_lag},
    {object_kind::sub_bundle, field::type, source::running_config},
    {object_kind::sub_bundle, field::encapsulation, source::running_config},
    {object_kind::sub_bundle, field::handle, source::interface_db},
    {object_kind::sub_bundle, field::lag_id, source::lagport},
    {object_kind::sub_bundle, field::lif, source::l2intf},
    {object_kind::sub_bundle, field::presence, source::chip_lag},
});

struct remark {
  bool is_odd = false;
  bool is_judged = false;
};

// The nodes of the run, and behind them those that only a finding names.
class known_nodes {
 public:
  explicit known_nodes(const run& of) : of_(of) {}
  [[nodiscard]] node_place place_for(std::string_view name) {
    if (name.empty()) return whole_router;
    const std::int16_t known = of_.node_index(name);
    if (known != no_place) return known;
    const auto at = std::find(others_.begin(), others_.end(), name);
    const auto index = static_cast<std::size_t>(at - others_.begin());
    if (at == others_.end()) others_.push_back(name);
    return static_cast<node_place>(of_.nodes.size() + index);
  }
  [[nodiscard]] std::string_view name_of(node_place at) const {
    const auto index = static_cast<std::size_t>(at);
    const std::size_t nodes = of_.nodes.size();
    return index < nodes ? std::string_view(of_.nodes[index].name) : others_[index - nodes];
  }

 private:
  const run& of_;
  std::vector<std::string_view> others_;
};

// The columns that have a value, numbered from 0 in the order in which each came first.
class value_columns {
 public:
  explicit value_columns(std::size_t nodes) : known_(source_count * (nodes + 2), no_column) {}
  [[nodiscard]] std::size_t size() const { return columns_.size(); }
  [[nodiscard]] const column_key& operator[](std::size_t column) const { return columns_[column]; }
  std::uint32_t column_of(source from, node_place node) {
    std::uint32_t& at = index_of(from, node);
    if (at == no_column) {
      at = static_cast<std::uint32_t>(columns_.size());
      columns_.push_back({from, node});
    }
    return at;
  }

 private:
  static constexpr std::uint32_t no_column = static_cast<std::uint32_t>(-1);

  // Of a value that many nodes hold this is asked for each of them.
  std::uint32_t& index_of(source from, node_place node) {
    const std::size_t width = known_.size() / source_count;
    const auto at = static_cast<std::size_t>(node) + 2;  // below 0: the first two
    if (at >= width) return others_.try_emplace({from, node}, no_column).first->second;
    return known_[static_cast<std::size_t>(from) * width + at];
  }

  std::vector<column_key> columns_;
  std::vector<std::uint32_t> known_;  // by source and node of the run
  std::map<std::pair<source, node_place>, std::uint32_t> others_;
};

// Makes one cell of what nodes that follow each other hold the same, of one object after the other.
class cell_runs {
 public:
  void begin_object(std::uint32_t first_row) {
    first_row_ = first_row;
    open_.fill(0);
  }
  // False if that does not continue or begin a run.
  bool add(const cell_kind& kind, node_place place, text_id text, std::vector<made_cell>& cells) {
    std::uint32_t& open = open_[kind.run + (place == own_node ? 1U : 0U)];
    if (open != 0) {
      made_cell& last = cells[open - 1];
      const bool is_next =
          place == last.at.last || (last.at.last >= 0 && place == last.at.last + 1);
      if (is_next && last.text == text) {
        last.at.last = place;
        return true;
      }
      if (place <= last.at.last) return false;
    }
    made_cell& made = cells.emplace_back();
    made.row = first_row_ + kind.slot;
    made.text = text;
    made.at = {kind.column, place, place};
    open = static_cast<std::uint32_t>(cells.size());
    return true;
  }

 private:
  std::uint32_t first_row_ = 0;
  std::array<std::uint32_t, slots * source_count * 2> open_{};  // the number of a cell and 1
};

class grid {
 public:
  grid(const run& of, shown_texts& texts)
      : of_(of), texts_(texts), nodes_(of), columns_(of.nodes.size()) {}

  void add(const object& one, const dossier_maker::known* known,
           const std::vector<const coverage*>& holes) {
    const std::size_t first_cell = cells_.size();
    const auto place = of_.places.find(static_cast<std::size_t>(&one - of_.objects.data()));
    const bool has_place = one.kind == object_kind::member && place != of_.places.end() &&
                           place->second.node != no_place;
    own_ = has_place ? place->second.node : whole_router;
    parts_.push_back({one.kind == object_kind::bundle ? std::string() : one.name,
                      has_place ? words_for(place->second) : std::string(),
                      {}});
    const std::optional<text_id> mtu = has_place ? place->second.mtu : std::nullopt;
    values_.clear();
    if (known == nullptr && holes.empty() && chip_cells_of(one).empty()) {
      add_runs(one, mtu);
    } else {
      add_cells(one, known);
      if (mtu) put(field::mtu, source::l1port, own_, no_place, *mtu);
      if (known != nullptr) add_differences(*known);
      for (const coverage* hole : holes) add_hole(one.kind, *hole);
      if (known != nullptr)
        for (const finding* each : known->findings) mark(*each);
    }
    make_cells();
    // So that columns which hold the same have it in the same order.
    std::sort(cells_.begin() + static_cast<std::ptrdiff_t>(first_cell), cells_.end(),
              [](const made_cell& a, const made_cell& b) {
                return std::tie(a.row, a.at.from, a.at.first) <
                       std::tie(b.row, b.at.from, b.at.first);
              });
  }

  // Ends the grid.
  [[nodiscard]] dossier_section finish(std::string_view title, dossier_table& into);

 private:
  [[nodiscard]] std::string words_for(const place& of) const {
    std::string words = of_.nodes[static_cast<std::size_t>(of.node)].name;
    if (of.npu != no_place) words += fmt::format(" NPU {}", of.npu);
    if (!of.core.empty()) words += " core " + of.core;
    return words;
  }

  [[nodiscard]] node_place place_of(const cell_kind& kind, node_place node) const {
    return own_ != whole_router && node == own_ && !kind.is_everywhere ? own_node : node;
  }
  [[nodiscard]] node_place place_of(field what, source from, node_place node) const {
    return place_of(kind_of(what, from), node);
  }

  void put(field what, source from, node_place node, std::int16_t npu, text_id text,
           remark with = {}) {
    put(slot_of(what), what, from, node, npu, text, with);
  }
  void put(std::size_t slot, field what, source from, node_place node, std::int16_t npu,
           text_id text, remark with) {
    const npu_set npus = set_of(npu);
    const std::uint32_t column =
        columns_.column_of(column_source(from), place_of(what, from, node));
    if (!values_.empty()) {
      // The NPUs of a node follow each other and mostly hold the same.
      value& last = values_.back();
      if (last.slot == slot && last.column == column && last.text == text && last.npus != 0 &&
          npus != 0 && last.is_odd == with.is_odd && last.is_judged == with.is_judged) {
        last.npus |= npus;
        return;
      }
    }
    value& made = values_.emplace_back();
    made.npus = npus;
    made.text = text;
    made.column = column;
    made.slot = static_cast<std::uint8_t>(slot);
    made.is_odd = with.is_odd;
    made.is_judged = with.is_judged;
  }

  [[nodiscard]] const std::vector<cell>& chip_cells_of(const object& one) const {
    static const std::vector<cell> none;
    const auto at = of_.chip_cells.find(static_cast<std::size_t>(&one - of_.objects.data()));
    return at == of_.chip_cells.end() ? none : at->second;
  }

  // Of an object of which nothing but its cells is known. On the largest router these are a
  // million, most of them the same on all nodes, one after the other. Fields of which a node holds
  // two values, or the nodes are in another order, become values one by one.
  void add_runs(const object& one, std::optional<text_id> mtu) {
    const std::size_t first_cell = cells_.size();
    runs_.begin_object(row_of(0));
    std::bitset<slots> odd;
    const auto add = [&](const cell& c) {
      const cell_kind& kind = kind_of(c.what, c.from);
      if (kind.slot < slots && !runs_.add(kind, place_of(kind, c.node), word_for_value(c), cells_))
        odd.set(kind.slot);
    };
    const cell* last = nullptr;
    for (const cell& c : one.cells) {
      const bool is_next_npu = last != nullptr && last->what == c.what && last->from == c.from &&
                               last->node == c.node && last->value == c.value;
      if (!is_next_npu) add(c);
      last = &c;
    }
    if (mtu) add(cell_of_mtu(*mtu));
    if (odd.none()) return;
    const auto from = cells_.begin() + static_cast<std::ptrdiff_t>(first_cell);
    cells_.erase(
        std::remove_if(from, cells_.end(), [&](const made_cell& c) { return odd[c.row % slots]; }),
        cells_.end());
    const auto put_odd = [&](const cell& c) {
      if (slot_of(c.what) < slots && odd[slot_of(c.what)])
        put(c.what, c.from, c.node, c.npu, word_for_value(c));
    };
    for (const cell& c : one.cells) put_odd(c);
    if (mtu) put_odd(cell_of_mtu(*mtu));
  }
  [[nodiscard]] cell cell_of_mtu(text_id mtu) const {
    return {field::mtu, source::l1port, static_cast<std::int16_t>(own_), no_place, mtu};
  }
  // Of the part at hand.
  [[nodiscard]] std::uint32_t row_of(std::size_t slot) const {
    return static_cast<std::uint32_t>((parts_.size() - 1) * slots + slot);
  }

  void add_cells(const object& one, const dossier_maker::known* known) {
    std::array<bool, static_cast<std::size_t>(field::none) + 1> is_judged{};
    if (known != nullptr)
      for (const difference* each : known->differences)
        is_judged[static_cast<std::size_t>(each->what)] = each->what != field::presence;
    const std::vector<cell>& chip_cells = chip_cells_of(one);
    for (const cell& c : one.cells)
      if (!is_judged[static_cast<std::size_t>(c.what)] && slot_of(c.what) < slots &&
          !has_newer(chip_cells, c))
        put(c.what, c.from, c.node, c.npu, word_for_value(c));
    for (const cell& c : chip_cells) put(c.what, c.from, c.node, c.npu, c.value);
  }

  // The snapshot's word for a VLAN domain cannot say whether the table was read at all.
  static bool has_newer(const std::vector<cell>& chip_cells, const cell& old) {
    return old.from == source::chip_domain &&
           std::any_of(chip_cells.begin(), chip_cells.end(), [&](const cell& c) {
             return c.from == source::chip_domain && c.node == old.node;
           });
  }
  [[nodiscard]] text_id word_for_value(const cell& c) const {
    const bool is_none = c.from == source::chip_domain && of_.texts.text(c.value) == no_domain;
    return is_none ? missing_ : c.value;
  }

  void add_differences(const dossier_maker::known& known) {
    for (const difference* each : known.differences) {
      if (slot_of(each->what) >= slots) continue;
      for (const witness& one : each->witnesses) {
        put(each->what, one.from, nodes_.place_for(one.node), npu_in(one.npu),
            texts_.number_of(desk::words_for(one)), {one.is_odd, true});
      }
    }
  }

  void add_hole(object_kind kind, const coverage& hole) {
    const node_place node = nodes_.place_for(hole.node);
    for (const expected_field& each : expected_fields) {
      if (each.of != kind || layer_of(each.from) != hole.of) continue;
      const node_place at = place_of(each.what, each.from, node);
      // What one node did not answer about a member of another one does not matter.
      const bool is_elsewhere = own_ != whole_router && node != whole_router && at != own_node &&
                                each.what != field::presence;
      if (is_elsewhere || has_value(each, at, hole)) continue;
      put(each.what, each.from, node, npu_in(hole.npu), not_read_);
    }
  }
  // A dump can hold what was read before the rest was lost.
  [[nodiscard]] bool has_value(const expected_field& each, node_place at,
                               const coverage& hole) const {
    const npu_set npus = set_of(npu_in(hole.npu));
    const std::size_t slot = slot_of(each.what);
    return std::any_of(values_.begin(), values_.end(), [&](const value& one) {
      return one.slot == slot && columns_[one.column].node == at &&
             columns_[one.column].from == column_source(each.from) &&
             (npus == 0 || (one.npus & npus) != 0);
    });
  }

  // ---- Findings ----

  void mark(const finding& one);
  [[nodiscard]] bool is_judged(std::size_t slot, const finding& one, node_place node) const;
  bool mark_same(std::size_t slot, const finding& one, node_place node, npu_set npus);

  // ---- Cells ----

  void make_cells();
  void add_cell(std::uint32_t first);
  [[nodiscard]] bool is_same(const value& a, const value& b) const;
  void show_cells(const column_set& columns, const std::vector<std::size_t>& shown_at,
                  dossier_section& into);
  const run& of_;
  shown_texts& texts_;
  text_id missing_ = texts_.number_of(word_missing);
  text_id not_read_ = texts_.number_of(word_not_read);
  known_nodes nodes_;
  value_columns columns_;
  cell_runs runs_;
  node_place own_ = whole_router;           // of the object at hand
  std::vector<value> values_;               // of the object at hand
  std::vector<std::uint32_t> first_value_;  // by column and slot: its number and 1
  std::vector<dossier_part> parts_;
  std::vector<made_cell> cells_;  // of all parts so far
};

// ---- Findings -----------------------------------------------------------------------------------

bool is_about_no_domain(const finding& one) {
  return one.of == layer::bcm && one.what == field::vlan_domain && one.reported == no_domain;
}

// The value that the message reports; empty if it names none.
std::string_view reported_by(const finding& one) {
  return is_about_no_domain(one) ? word_missing : std::string_view(one.reported);
}

bool is_about_sem(const finding& one) {
  return one.code == "TC-203";
}

// What stands in a cell where the message names no value.
std::string_view word_in_cell(const finding& one) {
  if (one.what == field::presence) return word_missing;
  if (one.code == "TC-201" || one.code == "TC-204" || one.code == "TC-205") return word_missing;
  return one.what == field::deletion ? std::string_view("pending") : "differs";
}

bool is_about_value(const finding& one) {
  switch (one.kind) {
    case finding_kind::inconsistency:
    case finding_kind::programming:
    case finding_kind::delay_delete:
      return one.of != layer::none && slot_of(one.what) < slots;
    default:
      return false;
  }
}

// A message can blame the nodes that are right. Where the judge compared the values, they count.
bool grid::is_judged(std::size_t slot, const finding& one, node_place node) const {
  bool has_odd = false;
  bool has_chip = false;
  for (const value& each : values_) {
    if (each.slot != slot || !each.is_judged) continue;
    const column_key& at = columns_[each.column];
    has_odd = has_odd || each.is_odd;
    has_chip = has_chip || (layer_of(at.from) == layer::bcm && at.node == node);
  }
  return has_odd && (one.of != layer::bcm || has_chip);
}

// Marks what the message reports among the values of its layer and place; false without such one.
bool grid::mark_same(std::size_t slot, const finding& one, node_place node, npu_set npus) {
  const std::string wanted =
      compared_form(one.what, one.reported.empty() ? word_in_cell(one) : reported_by(one));
  const bool has_word = !one.reported.empty() || word_in_cell(one) == word_missing;
  bool is_marked = false;
  std::vector<value> others;
  for (value& each : values_) {
    const column_key& at = columns_[each.column];
    const bool is_there = layer_of(at.from) == one.of && (at.node == node || one.node.empty());
    const bool is_npu = (each.npus & npus) != 0 || each.npus == 0 || npus == 0;
    if (each.slot != slot || !is_there || !is_npu || each.text == not_read_) continue;
    if (has_word && compared_form(one.what, texts_.text(each.text)) != wanted) continue;
    is_marked = true;
    if (npus != 0 && (each.npus & ~npus) != 0) {  // other NPUs hold it as well
      others.push_back(each);
      others.back().npus &= ~npus;
      each.npus &= npus;
    }
    each.is_odd = true;
  }
  values_.insert(values_.end(), others.begin(), others.end());
  return is_marked;
}

void grid::mark(const finding& one) {
  if (!is_about_value(one)) return;
  const std::size_t slot = is_about_sem(one) ? slot_of_sem : slot_of(one.what);
  const bool is_of_router = one.of == layer::config || one.of == layer::pi;
  const node_place named = is_of_router ? whole_router : nodes_.place_for(node_of_value(of_, one));
  const source from = source_of(one);
  const node_place node = place_of(one.what, from, named);
  const std::int16_t npu = npu_in(one.npu);
  const npu_set npus = set_of(npu);
  if (is_judged(slot, one, node)) return;
  if (one.what == field::presence) {
    // The message names the entry itself, so what others say of the same table does not count.
    const std::uint32_t column = columns_.column_of(column_source(from), node);
    std::erase_if(values_, [&](value& each) {
      if (each.slot != slot || each.column != column) return false;
      if (npus == 0) return true;
      const bool had_npus = each.npus != 0;
      each.npus &= ~npus;
      return had_npus && each.npus == 0;
    });
  } else if (mark_same(slot, one, node, npus)) {
    return;
  }
  const std::string_view text =
      one.reported.empty() || one.what == field::presence ? word_in_cell(one) : reported_by(one);
  put(slot, one.what, from, named, npu, texts_.number_of(text), {true, false});
}

// ---- Cells --------------------------------------------------------------------------------------

bool grid::is_same(const value& a, const value& b) const {
  if (a.is_odd != b.is_odd) return false;
  if (a.text == b.text) return true;
  const field what = shown_fields[a.slot];
  return compared_form(what, texts_.text(a.text)) == compared_form(what, texts_.text(b.text));
}

std::string words_for_npus(npu_set npus) {
  std::string words = " (NPU ";
  for (std::int16_t i = 0; npus >> static_cast<unsigned>(i) != 0; ++i) {
    if ((npus & set_of(i)) != 0) words += fmt::format("{}, ", i);
    if (i == 63) break;
  }
  words.resize(words.size() - 2);
  return words + ")";
}

// The values of one slot and column, each with its NPUs; of equal ones the first notation.
void grid::add_cell(std::uint32_t first) {
  const value& alone = values_[first - 1];
  made_cell& made = cells_.emplace_back();
  const column_key& column = columns_[alone.column];
  made.row = row_of(alone.slot);
  made.text = alone.text;
  made.at = {column.from, column.node, column.node};
  if (alone.next == 0 && !alone.is_odd) return;
  std::vector<value> shown;
  for (std::uint32_t at = first; at != 0; at = values_[at - 1].next) {
    const value& each = values_[at - 1];
    const auto same = std::find_if(shown.begin(), shown.end(),
                                   [&](const value& one) { return is_same(one, each); });
    if (same == shown.end())
      shown.push_back(each);
    else
      same->npus |= each.npus;
  }
  std::stable_partition(shown.begin(), shown.end(), [](const value& one) { return !one.is_odd; });
  std::string text;
  for (const value& one : shown) {
    if (!text.empty()) text += " / ";
    text += texts_.text(one.text);
    if (one.is_odd) text += '*';
    made.is_odd = made.is_odd || one.is_odd;
    if ((shown.size() > 1 || one.is_odd) && one.npus != 0) text += words_for_npus(one.npus);
  }
  made.text = texts_.number_of(text);
}

// Of the object at hand. Its values are chained by slot and column first, each chain in order.
void grid::make_cells() {
  first_value_.resize(columns_.size() * slots);
  const auto first_at = [&](const value& one) -> std::uint32_t& {
    return first_value_[one.column * slots + one.slot];
  };
  for (auto i = static_cast<std::uint32_t>(values_.size()); i != 0; --i)
    values_[i - 1].next = std::exchange(first_at(values_[i - 1]), i);
  for (const value& one : values_)
    if (const std::uint32_t first = std::exchange(first_at(one), 0); first != 0) add_cell(first);
}

// "3 nodes"; other three nodes are "3 nodes (2)".
std::string label_of_fold(dossier_table& into, const std::vector<std::string_view>& nodes) {
  std::size_t same_count = 1;
  for (const auto& [label, known] : into.folds) {
    if (known == nodes) return label;
    if (known.size() == nodes.size()) ++same_count;
  }
  std::string label = fmt::format("{} nodes", nodes.size());
  if (same_count > 1) label += fmt::format(" ({})", same_count);
  into.folds.emplace_back(label, nodes);
  return label;
}

// The rows, whose cells are in order. `shown_at` says for each column where it stands in a row, or
// behind them.
void grid::show_cells(const column_set& columns, const std::vector<std::size_t>& shown_at,
                      dossier_section& into) {
  const auto begins_row = [&](std::size_t i) {
    return i == 0 || cells_[i].row != cells_[i - 1].row;
  };
  std::vector<std::size_t> rows_of(parts_.size());
  for (std::size_t i = 0; i < cells_.size(); ++i)
    if (begins_row(i)) ++rows_of[cells_[i].row / slots];
  for (std::size_t i = 0; i < parts_.size(); ++i) parts_[i].rows.reserve(rows_of[i]);
  const std::size_t width = into.columns.size();
  into.cells.resize(std::accumulate(rows_of.begin(), rows_of.end(), std::size_t{0}) * width);
  std::span<dossier_cell> row;
  for (std::size_t i = 0; i < cells_.size(); ++i) {
    const made_cell& one = cells_[i];
    if (begins_row(i)) {
      row = {i == 0 ? into.cells.data() : row.data() + width, width};
      parts_[one.row / slots].rows.push_back({word_for(shown_fields[one.row % slots]), row});
    }
    columns.for_each_of(one, [&](std::size_t column) {
      if (shown_at[column] < width) row[shown_at[column]] = {texts_.text(one.text), one.is_odd};
    });
  }
}

dossier_section grid::finish(std::string_view title, dossier_table& into) {
  const column_set columns(cells_);
  const contents_of_columns contents(cells_, columns);
  std::vector<bool> has_odd(columns.size());
  for (const made_cell& one : cells_)
    if (one.is_odd) columns.for_each_of(one, [&](std::size_t column) { has_odd[column] = true; });
  dossier_section made;
  made.title = title;
  constexpr auto not_shown = static_cast<std::size_t>(-1);
  std::vector<std::size_t> shown_at(columns.size(), not_shown);
  std::vector<std::vector<std::string_view>> nodes;
  std::map<std::pair<source, std::u32string_view>, std::size_t> known;
  for (const std::size_t i : columns.sorted()) {
    if (contents[i].empty()) continue;
    const nodes_of_source& at = columns[i];
    std::size_t target = made.columns.size();
    if (at.first >= 0 && !has_odd[i])
      target = known.try_emplace({at.from, contents[i]}, target).first->second;
    if (target == made.columns.size()) {
      shown_at[i] = target;
      made.columns.push_back({layer_of(at.from), at.from, at.first == own_node ? "its node" : ""});
      nodes.emplace_back();
    }
    for (node_place node = std::max(at.first, 0); node <= at.last; ++node)
      nodes[target].push_back(nodes_.name_of(node));
    if (std::find(into.tools.begin(), into.tools.end(), at.from) == into.tools.end())
      into.tools.push_back(at.from);
  }
  for (std::size_t i = 0; i < nodes.size(); ++i)
    if (!nodes[i].empty())
      made.columns[i].place =
          nodes[i].size() == 1 ? std::string(nodes[i].front()) : label_of_fold(into, nodes[i]);
  show_cells(columns, shown_at, made);
  made.parts = std::move(parts_);
  return made;
}

}  // namespace

std::string_view short_tool(source from) {
  std::string_view name = tool_of(from);
  if (const std::size_t option = name.rfind(' '); option != std::string_view::npos)
    return name.substr(option + 1);
  constexpr std::string_view ending = "_show";
  if (name.ends_with(ending)) name.remove_suffix(ending.size());
  return name;
}

dossier_maker::dossier_maker(const judged_run& of)
    : of_(of), texts_(std::make_shared<shown_texts>(of.of.texts)) {
  const auto at = [&](const object_ref& one) -> known& {
    return known_[{one.kind, one.bundle, one.name}];
  };
  for (const cause& why : of.causes)
    for (const difference& each : why.differences) at(each.object).differences.push_back(&each);
  for (const finding& each : of.of.findings)
    if (is_about_value(each)) at(each.object).findings.push_back(&each);
  for (const coverage& each : of.of.covered)
    if (is_hole(each) && each.state != coverage_state::partly) holes_.push_back(&each);
  if (of.of.has_snapshot && !of.of.has_chip_tables) add_silent_chips();
}

// Where the run ended before it read the chips, nothing may say so of each of them.
void dossier_maker::add_silent_chips() {
  const auto& covered = of_.of.covered;
  for (const node& each : of_.of.nodes) {
    if (!each.takes_part || !each.has_supported_asic || each.role == "Standby") continue;
    const bool is_known = std::any_of(covered.begin(), covered.end(), [&](const coverage& one) {
      return one.of == layer::bcm && one.node == each.name;
    });
    if (is_known) continue;
    coverage& made = silent_chips_.emplace_back();
    made.of = layer::bcm;
    made.node = each.name;
    holes_.push_back(&made);
  }
}

dossier_table dossier_maker::table_of(const object& bundle) {
  const run& of = of_.of;
  const auto known_of = [&](const object& one) {
    const auto at = known_.find(object_key_view(one.kind, bundle.name, one.name));
    return at == known_.end() ? nullptr : &at->second;
  };
  dossier_table made;
  made.texts = texts_;
  grid whole(of, *texts_);
  whole.add(bundle, known_of(bundle), holes_);
  made.sections.push_back(whole.finish("Bundle", made));
  for (const auto& [kind, title] : {std::pair(object_kind::member, "Members"),
                                    std::pair(object_kind::sub_bundle, "Sub-bundles")}) {
    grid parts(of, *texts_);
    bool has_part = false;
    for (const std::size_t index : bundle.parts) {
      const object& part = of.objects[index];
      if (part.kind != kind) continue;
      parts.add(part, known_of(part), holes_);
      has_part = true;
    }
    if (has_part) made.sections.push_back(parts.finish(title, made));
  }
  std::sort(made.tools.begin(), made.tools.end());
  return made;
}

}  // namespace desk
