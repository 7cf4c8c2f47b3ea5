// The messages of the audit, with their codes: how each reads, which fields it captures, what it
// means. The wording, the meaning and the next step are those of docs/FINDINGS.md, which is built
// into the program, so that `explain` works on a router.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "desk/model/names.h"

namespace desk {

struct catalogue_entry {
  std::string code;          // "TC-103"
  std::string wording;       // "Inconsistency {}:{} Lag ID is not consistent in {}:{}, Expected:{}"
  std::string section;       // "A value differs"
  std::string text;          // what the page says about it, in plain text, wrapped as there
  std::string roles;         // a word for each {}: "number object layer known reported"
  field what = field::none;  // the field that it is about
  layer of = layer::none;    // the layer that it is about, where no blank names it
};

[[nodiscard]] const std::vector<catalogue_entry>& catalogue();
[[nodiscard]] const catalogue_entry* entry_of(std::string_view code);

// The entry whose wording a text has, and what stands in its blanks, in order. Of several, the one
// that fixes most of the text. Nothing if none fits.
struct recognised {
  const catalogue_entry* entry;
  std::vector<std::string_view> blanks;  // views of the text

  // What stands in the blank of this role; empty if there is none.
  [[nodiscard]] std::string_view at(std::string_view role) const;
};
[[nodiscard]] std::optional<recognised> recognise(std::string_view text);

// docs/FINDINGS.md, as it was when the program was built.
[[nodiscard]] std::string_view findings_page();

}  // namespace desk
