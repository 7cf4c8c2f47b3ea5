#include "desk/model/pending.h"

#include <fmt/format.h>

#include <algorithm>
#include <memory>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "desk/model/numbers.h"

namespace desk {

namespace {

constexpr std::uint32_t nowhere = static_cast<std::uint32_t>(-1);

std::uint64_t joined(text_id first, text_id second) {
  return std::uint64_t{first} << 32U | second;
}

const cell* handle_of(const object& of) {
  for (const cell& c : of.cells)
    if (c.what == field::handle) return &c;
  return nullptr;
}

// What so many have does not tell them apart: nothing is of any of them by it. A dump in which all
// have the same would become as many values as its lines times its objects.
constexpr std::size_t most_of_one_name = 16;

// Names of a chip's lines that too many objects have. A name that no line has takes nothing away.
using vague_names = std::set<std::string_view>;

// The members of a bundle, as its chips name them.
class members_of_chip {
 public:
  members_of_chip(const run& of, const object& bundle, vague_names& vague)
      : of_(of), vague_(vague) {
    for (const std::size_t part : bundle.parts) {
      const object& one = of.objects[part];
      if (one.kind != object_kind::member) continue;
      for (const cell& c : one.cells)
        if (c.from == source::agent) add(c, part);
    }
  }

  // In the order of the bundle's parts; none where too many have the name.
  const std::vector<std::size_t>& named(member_name by, text_id name) {
    names& known = by == member_name::id ? ids_ : ports_;
    if (known.next >= known.all.size()) known.next = 0;
    if (known.next == known.all.size() || known.all[known.next].first != name)
      known.next = place_of(known, by, name);
    const std::vector<std::size_t>& members = known.all[known.next++].second;
    return by == member_name::id && is_vague(of_.texts.text(name), members) ? none_ : members;
  }

 private:
  // All chips name the members in the same order, so the next one is behind the last one.
  struct names {
    std::vector<std::pair<text_id, std::vector<std::size_t>>> all;
    std::unordered_map<text_id, std::size_t> at;
    std::size_t next = 0;
  };

  void add(const cell& c, std::size_t member) {
    if (c.what == field::member_id) add_once(ids_.all[place_in(ids_, c.value)].second, member);
    if (c.what != field::system_port) return;
    const std::string_view end = significant_end(of_.texts.text(c.value));
    if (end.empty()) return;
    add_once(ends_[end], member);
    lengths_.insert(end.size());
  }
  // A member of several nodes follows itself.
  static void add_once(std::vector<std::size_t>& to, std::size_t member) {
    if (to.empty() || to.back() != member) to.push_back(member);
  }
  bool is_vague(std::string_view name, const std::vector<std::size_t>& members) const {
    if (members.size() <= most_of_one_name) return false;
    vague_.insert(name);
    return true;
  }
  static std::size_t place_in(names& known, text_id name) {
    const auto [at, is_new] = known.at.try_emplace(name, known.all.size());
    if (is_new) known.all.emplace_back(name, std::vector<std::size_t>());
    return at->second;
  }
  std::size_t place_of(names& known, member_name by, text_id name) const {
    const std::size_t count = known.all.size();
    const std::size_t place = place_in(known, name);
    if (place == count && by == member_name::system_port)
      known.all[place].second = ending(of_.texts.text(name));
    return place;
  }
  std::vector<std::size_t> ending(std::string_view port) const {
    std::set<std::size_t> found;
    for (const std::size_t length : lengths_) {
      if (length > port.size()) break;
      const auto at = ends_.find(port.substr(port.size() - length));
      if (at != ends_.end() && !is_vague(at->first, at->second))
        found.insert(at->second.begin(), at->second.end());
    }
    return {found.begin(), found.end()};
  }

  const run& of_;
  vague_names& vague_;
  const std::vector<std::size_t> none_;
  names ids_;
  names ports_;
  std::unordered_map<std::string_view, std::vector<std::size_t>> ends_;
  std::set<std::size_t> lengths_;
};

}  // namespace

// What has a LAG id: a LAG of a chip is of all of them, a member only of those with members.
class lag_holders {
 public:
  using members = std::unique_ptr<members_of_chip>;

  explicit lag_holders(const run& of) : of_(of), known_(of.texts.size()) {
    for (const auto& [lag, holders] : of.lag_ids) {
      holders_of_lag& made = known_[lag];
      if (holders.size() > most_of_one_name) {
        made.first = nowhere;
        continue;
      }
      made.first = static_cast<std::uint32_t>(all_.size());
      made.first_with_members = static_cast<std::uint32_t>(with_members_.size());
      for (const std::size_t one : holders) {
        all_.push_back(static_cast<std::uint32_t>(one));
        ++made.count;
        if (of.objects[one].parts.empty()) continue;
        with_members_.push_back(std::make_unique<members_of_chip>(of, of.objects[one], vague_));
        ++made.count_with_members;
      }
    }
  }
  [[nodiscard]] std::span<const std::uint32_t> of(text_id lag) {
    const holders_of_lag& known = looked_up(lag);
    return part_of(all_, known.first, known.count);
  }
  [[nodiscard]] std::span<const members> with_members(text_id lag) {
    const holders_of_lag& known = looked_up(lag);
    return part_of(with_members_, known.first_with_members, known.count_with_members);
  }
  // Of what was looked up.
  [[nodiscard]] const vague_names& vague() const { return vague_; }

 private:
  struct holders_of_lag {
    std::uint32_t first = 0;  // `nowhere`: too many have the id
    std::uint32_t count = 0;
    std::uint32_t first_with_members = 0;
    std::uint32_t count_with_members = 0;
  };

  const holders_of_lag& looked_up(text_id lag) {
    const holders_of_lag& known = known_[lag];
    if (known.first == nowhere) vague_.insert(of_.texts.text(lag));
    return known;
  }
  template <class Value>
  static std::span<const Value> part_of(const std::vector<Value>& all, std::uint32_t first,
                                        std::uint32_t count) {
    if (count == 0) return {};
    return std::span(all).subspan(first, count);
  }

  const run& of_;
  vague_names vague_;
  std::vector<holders_of_lag> known_;  // by LAG id
  std::vector<std::uint32_t> all_;
  std::vector<members> with_members_;
};

void pending_values::add_lag_member(text_id lag, std::int16_t node, std::int16_t npu,
                                    member_name by, text_id name) {
  open_chip({node, npu});
  const auto is_of = [&](const chip_lag& one) {
    return one.lag == lag && (one.members == 0 || one.by == by);
  };
  if (open_.lags == 0 || !is_of(lags_.back())) {
    lags_.push_back({lag, 0, by, false});
    ++open_.lags;
  }
  lags_.back().by = by;
  ++lags_.back().members;
  names_.push_back(name);
  ++open_.names;
}

namespace {

// Whether so many values at the end are the same as those before them.
template <class Values>
bool ends_alike(const Values& of, std::size_t count) {
  const auto last = of.end() - static_cast<std::ptrdiff_t>(count);
  return std::equal(last, of.end(), last - static_cast<std::ptrdiff_t>(count));
}

template <class Values>
void drop_last(Values& of, std::size_t count) {
  of.erase(of.end() - static_cast<std::ptrdiff_t>(count), of.end());
}

}  // namespace

bool pending_values::is_like_last() const {
  return !alike_.empty() && alike_.back().lags == open_.lags &&
         alike_.back().names == open_.names && ends_alike(lags_, open_.lags) &&
         ends_alike(names_, open_.names);
}

void pending_values::close_chip() {
  if (open_.lags == 0) return;
  if (is_like_last()) {
    drop_last(lags_, open_.lags);
    drop_last(names_, open_.names);
  } else {
    alike_.push_back(open_);
  }
  ++alike_.back().chips;
  chips_.push_back(chip_);
  open_ = {};
}

// From handles to the numbers of objects; members by the handle of their bundle and their own.
void pending_values::find_objects(const run& of) {
  std::vector<std::uint32_t> objects(of.texts.size(), nowhere);
  std::unordered_map<std::uint64_t, std::uint32_t> members;
  for (std::uint32_t i = 0; i < of.objects.size(); ++i) {
    const cell* handle = handle_of(of.objects[i]);
    if (handle == nullptr) continue;
    if (of.objects[i].kind != object_kind::member) {
      if (objects[handle->value] == nowhere) objects[handle->value] = i;
    } else if (const cell* bundle = handle_of(of.objects[of.objects[i].bundle])) {
      members.try_emplace(joined(bundle->value, handle->value), i);
    }
  }
  for (value& one : by_handle_) one.key = objects[one.key];
  for (value_of_member& one : of_members_) {
    const auto at = members.find(joined(one.key, one.member));
    one.key = at == members.end() ? nowhere : at->second;
  }
}

template <class Take>
void pending_values::for_each_in_chips(lag_holders& holders, Take take) const {
  auto lag = lags_.begin();
  auto name = names_.begin();
  const chip* first = chips_.data();
  for (const chips_alike& alike : alike_) {
    const std::span chips(first, alike.chips);
    first += alike.chips;
    for (std::size_t i = 0; i < alike.lags; ++i, ++lag) {
      const auto end = name + lag->members;
      if (lag->is_entry)
        for (const std::uint32_t holder : holders.of(lag->lag)) take(holder, chips);
      if (lag->members == 0) continue;
      const auto bundles = holders.with_members(lag->lag);
      if (bundles.empty()) name = end;
      for (; name != end; ++name)
        for (const auto& bundle : bundles)
          for (const std::size_t member : bundle->named(lag->by, *name)) take(member, chips);
    }
  }
}

namespace {

void note(const vague_names& vague, run& into) {
  if (vague.empty()) return;
  into.marks.push_back(fmt::format(
      "LAGs and members of the chips are left out: more than {} objects have the LAG id or "
      "member's name {}{}",
      most_of_one_name, *vague.begin(),
      vague.size() == 1 ? "" : fmt::format(", and so it is with {} more", vague.size() - 1)));
}

}  // namespace

// Goes through all values twice, the look-ups in the chips included: first to count those of each
// object, so that its cells get their room in one step, then to put each into its place. To keep
// what was found would take several times the memory of the names that the chips list. An object
// gets its values of all chips alike at once: to go from object to object with each chip would be
// as many waits for the memory.
void pending_values::attach(run& into, text_id present) {
  close_chip();
  find_objects(into);
  lag_holders holders(into);
  const auto for_each_by_handle = [&](auto take) {
    for (const value& one : by_handle_)
      if (one.key != nowhere) take(one.key, one.of);
    for (const value_of_member& one : of_members_)
      if (one.key != nowhere) take(one.key, one.of);
  };
  std::vector<std::uint32_t> counts(into.objects.size());
  for_each_by_handle([&](std::size_t object, const cell&) { ++counts[object]; });
  for_each_in_chips(holders, [&](std::size_t object, std::span<const chip> chips) {
    counts[object] += static_cast<std::uint32_t>(chips.size());
  });
  std::vector<cell*> next(into.objects.size());
  for (std::size_t i = 0; i < counts.size(); ++i) {
    std::vector<cell>& cells = into.objects[i].cells;
    const std::size_t had = cells.size();
    cells.resize(had + counts[i]);
    next[i] = cells.data() + had;
  }
  for_each_by_handle([&](std::size_t object, const cell& of) { *next[object]++ = of; });
  for_each_in_chips(holders, [&](std::size_t object, std::span<const chip> chips) {
    cell* to = next[object];
    for (const chip& at : chips)
      *to++ = {field::presence, source::chip_lag, at.node, at.npu, present};
    next[object] = to;
  });
  note(holders.vague(), into);
}

}  // namespace desk
