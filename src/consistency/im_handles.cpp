#include "consistency/im_handles.h"

#include <unordered_map>

#include "base/text.h"
#include "run/state.h"

namespace tessel {

namespace {

class im_handles {
 public:
  explicit im_handles(std::string_view listing) {
    static const pattern& row = constant(R"((0x\w+)\s(BE\d+\.\d+) )");
    require_readable(listing);
    const matches rows = findall(row, listing);
    for (std::size_t at = 0; at < rows.size(); ++at) handles_.try_emplace(rows[at][1], rows[at][0]);
  }

  std::optional<std::string> find(std::string_view sub_bdl) const {
    const auto found = handles_.find(sub_bdl);
    return found == handles_.end() ? std::nullopt : std::optional<std::string>(found->second);
  }

 private:
  std::unordered_map<std::string_view, std::string_view> handles_;
};

}  // namespace

std::optional<std::string> im_handle_of(const std::shared_ptr<const std::string>& listing,
                                        std::string_view sub_bdl) {
  return st().indexes.get<im_handles>(listing)->find(sub_bdl);
}

}  // namespace tessel
