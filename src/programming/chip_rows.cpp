#include "programming/chip_rows.h"

#include <algorithm>
#include <map>
#include <mutex>
#include <unordered_map>
#include <utility>
#include <vector>

#include "base/text.h"
#include "base/value.h"
#include "run/state.h"

namespace tessel {

namespace {

// Words in front of a payload. Keys come in a few lengths, and each length asked for gets a map
// from the words' ends of that length to the first payload.
class sem_rows {
 public:
  explicit sem_rows(std::string_view table) {
    // A payload may itself be the word in front of the next one, so that is only looked ahead at.
    static const pattern& row = constant(R"((?<!\w)(\w++)(?=\s+Payload=(\w+)))");
    static const pattern& braced = constant(R"(\{\}\w+\s+Payload=0x\w+\{\})");
    const matches found = findall(row, table);
    rows_.reserve(found.size());
    for (std::size_t at = 0; at < found.size(); ++at)
      rows_.emplace_back(found[at][0], found[at][1]);
    has_braced_ = !findall(braced, table).empty();
  }

  std::optional<std::string> find(std::string_view key) const {
    const std::lock_guard lock(mutex_);
    auto [slot, is_new] = by_length_.try_emplace(key.size());
    if (is_new) {
      for (const auto& [word, payload] : rows_) {
        if (word.size() >= key.size()) slot->second.try_emplace(tail(word, key.size()), payload);
      }
    }
    const auto found = slot->second.find(key);
    return found == slot->second.end() ? std::nullopt : std::optional<std::string>(found->second);
  }

  bool has_braced() const { return has_braced_; }

 private:
  std::vector<std::pair<std::string_view, std::string_view>> rows_;
  bool has_braced_ = false;
  mutable std::mutex mutex_;
  mutable std::map<std::size_t, std::unordered_map<std::string_view, std::string_view>>
      by_length_;  // guarded by mutex_
};

class vsi_rows {
 public:
  explicit vsi_rows(std::string_view table) {
    // A line may hold several rows, each reaching to the line's last MAC.
    static const pattern& row =
        constant(R"(IHP\w+.IHP0\[(-?\d+)\](?=: <\w+=\w+,\w+=\w+.*MY_MAC=0x(\w+)))");
    require_readable(table);
    const matches found = findall(row, table);
    for (std::size_t at = 0; at < found.size(); ++at) macs_.try_emplace(found[at][0], found[at][1]);
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

}  // namespace

std::optional<std::string> sem_payload_of(const raw_table& table, std::string_view key) {
  if (!key.empty() && is_one_word(key)) return st().indexes.get<sem_rows>(table)->find(key);
  require_readable(*table);
  const matches found = findall(pattern(fill(sem_definition, {key})), *table);
  return found.empty() ? std::nullopt : std::optional<std::string>(found.text(0));
}

bool has_braced_sem_row(const raw_table& table) {
  return st().indexes.get<sem_rows>(table)->has_braced();
}

std::optional<std::string> vsi_mac_of(const raw_table& table, std::string_view rif) {
  return st().indexes.get<vsi_rows>(table)->find(rif);
}

}  // namespace tessel
