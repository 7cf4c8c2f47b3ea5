#include "programming/chip.h"

#include <cstddef>

#include "run/state.h"

namespace tessel {

namespace {

constexpr std::array<std::string_view, 2> sem_keys = {"SEMA", "SEMB"};

value all_tables() {
  value kept = st().chip_tables.get();
  return kept.kind() == value_kind::none ? st().BCM.get() : kept;
}

}  // namespace

chip::chip(std::string_view nodename, std::string_view npu)
    : nodename_(nodename), npu_(npu), tables_(store_part(all_tables()).at(nodename).at(npu)) {}

value chip::table(std::string_view key, here where) const {
  return tables_.get(where).at(key, where);
}

const sem_table& chip::sem(sem_name name, here where) const {
  const auto at = static_cast<std::size_t>(name);
  std::optional<sem_table>& known = sems_.at(at);
  if (!known) known.emplace(table(sem_keys.at(at), where).as_shared_text(where));
  return *known;
}

}  // namespace tessel
