#include "programming/chip_rows.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <map>
#include <mutex>
#include <unordered_map>
#include <utility>
#include <vector>

#include "base/text.h"
#include "base/value.h"
#include "base/worker.h"
#include "run/state.h"

namespace tessel {

// The words before a payload. Keys have only a few lengths. Each length that is looked up gets a
// map from the last characters of each word, in that length, to the first payload. It is made once
// and then read without a lock.
class sem_rows {
 public:
  explicit sem_rows(std::string_view table) {
    static const pattern& row = constant(sem_row);
    static const pattern& braced = constant(braced_row);
    const matches found = findall(row, table);
    rows_.reserve(found.size());
    for (std::size_t at = 0; at < found.size(); ++at)
      rows_.emplace_back(found[at][0], found[at][1]);
    has_braced_ = !findall(braced, table).empty();
  }

  std::optional<std::string_view> find(std::string_view key) const {
    const value* payload = payloads_of(key.size()).look_up(key);
    return payload == nullptr ? std::nullopt : std::optional(payload->as_text());
  }

  bool has_braced() const { return has_braced_; }

 private:
  static constexpr std::size_t longest_published = 31;

  const tessel::map& payloads_of(std::size_t length) const {
    if (length <= longest_published) {
      const tessel::map* known = published_[length].load(std::memory_order_acquire);
      if (known != nullptr) return *known;
    }
    const patient_lock lock(mutex_);
    auto found = by_length_.find(length);
    if (found == by_length_.end()) found = by_length_.emplace(length, payloads(length)).first;
    const tessel::map& made = found->second.as_map();
    if (length <= longest_published) published_[length].store(&made, std::memory_order_release);
    return made;
  }

  value payloads(std::size_t length) const {
    value made = make_map(rows_.size());
    for (const auto& [word, payload] : rows_) {
      if (word.size() < length) continue;
      const std::string_view end = tail(word, length);
      if (!made.contains(end)) made.as_map().set(end, payload);
    }
    return made;
  }

  std::vector<std::pair<std::string_view, std::string_view>> rows_;
  bool has_braced_ = false;
  mutable std::mutex mutex_;
  mutable std::map<std::size_t, value> by_length_;  // guarded by mutex_; what it holds is constant
  mutable std::array<std::atomic<const tessel::map*>, longest_published + 1> published_{};
};

namespace {

constexpr std::string_view mac_name = "MY_MAC=0x";

// The position of `part`, a view into `whole`.
std::size_t place(std::string_view part, std::string_view whole) {
  return static_cast<std::size_t>(part.data() - whole.data());
}

class vsi_rows {
 public:
  explicit vsi_rows(std::string_view table) {
    static const pattern& head = constant(vsi_head);
    static const pattern& mac = constant(vsi_mac);
    const matches heads = findall(head, table);
    const matches macs = findall(mac, table);
    // A line may have several rows; each extends to the line's last MAC.
    std::size_t line_end = 0;
    std::size_t behind = 0;  // the first MAC after the line
    for (std::size_t at = 0; at < heads.size(); ++at) {
      const std::size_t value = place(heads[at][1], table);
      if (value >= line_end) line_end = std::min(table.find('\n', value), table.size());
      while (behind < macs.size() && place(macs.text(behind), table) < line_end) ++behind;
      if (behind == 0) continue;
      const std::string_view last = macs.text(behind - 1);
      if (place(last, table) - mac_name.size() > value) macs_.try_emplace(heads[at][0], last);
    }
  }

  std::optional<std::string> find(std::string_view rif) const {
    const auto found = macs_.find(rif);
    return found == macs_.end() ? std::nullopt : std::optional<std::string>(found->second);
  }

 private:
  std::unordered_map<std::string_view, std::string_view> macs_;
};

bool is_one_word(std::string_view key) {
  return std::all_of(key.begin(), key.end(), is_word);
}

// True if the key has only characters that match themselves, and points, which match one character
// each.
bool has_fixed_length(std::string_view key) {
  return key.find_first_of("\\^$[]|()?*+{}") == std::string_view::npos;
}

}  // namespace

const sem_rows& sem_table::rows() const {
  if (!rows_) rows_ = st().indexes.get<sem_rows>(table_);
  return *rows_;
}

std::optional<std::string_view> sem_table::payload_of(std::string_view key) const {
  if (!key.empty() && is_one_word(key)) return rows().find(key);
  const std::string_view search = has_fixed_length(key) ? sem_payload : sem_definition;
  const matches found = findall(pattern(fill(search, {key})), *table_);
  return found.empty() ? std::nullopt : std::optional(found.text(0));
}

bool sem_table::has_braced_row() const {
  return rows().has_braced();
}

std::optional<std::string> vsi_mac_of(const raw_table& table, std::string_view rif) {
  return st().indexes.get<vsi_rows>(table)->find(rif);
}

}  // namespace tessel
