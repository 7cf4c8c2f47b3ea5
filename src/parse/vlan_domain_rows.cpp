#include "parse/vlan_domain_rows.h"

#include <algorithm>
#include <unordered_map>

#include "base/text.h"
#include "base/value.h"
#include "run/state.h"

namespace tessel {

namespace {

// The first row of each core and port. A row may start inside another row, even inside the name of
// its core. So the text before "IHP" is only looked back at, and the text after it only looked
// ahead at.
class vlan_domain_rows {
 public:
  explicit vlan_domain_rows(std::string_view table) {
    static const pattern& row = constant(
        R"((?<=\w.)IHP(?=([\w-]{0,20}+)\[([\w-]{0,20}+)\]:\s<\w+=\w+,VLAN_DOMAIN=(\w+),))");
    const matches rows = findall(row, table);
    for (std::size_t at = 0; at < rows.size(); ++at) {
      domains_.try_emplace(key(rows[at][0], rows[at][1]), rows[at][2]);
    }
  }

  std::optional<std::string> find(std::string_view core, std::string_view port) const {
    const auto found = domains_.find(key(core, port));
    return found == domains_.end() ? std::nullopt : std::optional<std::string>(found->second);
  }

 private:
  static std::string key(std::string_view core, std::string_view port) {
    return std::string(core).append(1, '[').append(port);
  }
  std::unordered_map<std::string, std::string_view> domains_;
};

// True if the rows' pattern accepts `name` as a core or a port.
bool is_plain(std::string_view name) {
  constexpr std::size_t longest_number = 20;
  return name.size() <= longest_number &&
         std::all_of(name.begin(), name.end(), [](char c) { return is_word(c) || c == '-'; });
}

}  // namespace

std::optional<std::string> vlan_domain_of(const std::shared_ptr<const std::string>& table,
                                          std::string_view core, std::string_view port) {
  if (is_plain(core) && is_plain(port)) {
    return st().indexes.get<vlan_domain_rows>(table)->find(core, port);
  }
  // The same as vlan_domain_definition, except that it does not try the leading word from each of
  // its characters.
  const pattern row(fill(R"((?<=\w.)IHP{}\[{}\]:\s<\w+=\w+,VLAN_DOMAIN=(\w+),)", {core, port}));
  const matches found = findall(row, *table);
  return found.empty() ? std::nullopt : std::optional<std::string>(found.text(0));
}

}  // namespace tessel
