#include "consistency/im_handles.h"

#include <unordered_map>

#include "base/text.h"
#include "run/state.h"

namespace tessel {

namespace {

// The handle at the end of `text`: the last word, from its first "0x" on. Empty if that word has no
// "0x", or nothing after it.
std::string_view handle_at_end(std::string_view text) {
  std::size_t start = text.size();
  while (start > 0 && is_word(text[start - 1])) --start;
  const std::size_t prefix = text.find("0x", start);
  if (prefix == std::string_view::npos || prefix + 2 >= text.size()) return {};
  return text.substr(prefix);
}

class im_handles {
 public:
  explicit im_handles(std::string_view listing) {
    static const pattern& name = constant(R"((?<=\w)\s(BE\d++\.\d++)(?= ))");
    const matches names = findall(name, listing);
    for (std::size_t at = 0; at < names.size(); ++at) {
      const auto place = static_cast<std::size_t>(names.text(at).data() - listing.data());
      const std::string_view handle = handle_at_end(listing.substr(0, place - 1));
      if (!handle.empty()) handles_.try_emplace(names.text(at), handle);
    }
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
