#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <string>

#include "desk/commands/commands.h"
#include "desk/commands/load.h"
#include "desk/model/catalogue.h"
#include "desk/read/channel_log.h"
#include "desk/read/snapshot.h"
#include "desk/show/terminal.h"

namespace desk {

int explain_command(const report_options& options, std::ostream& out) {
  std::string code = options.word;
  std::transform(code.begin(), code.end(), code.begin(),
                 [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  const catalogue_entry* entry = entry_of(code);
  if (entry == nullptr) {
    std::string_view line = options.word;
    line.remove_prefix(length_of_stamp(line));
    if (const auto found = recognise(without_quotes(line))) entry = found->entry;
  }
  if (entry == nullptr)
    throw no_run(
        fmt::format("no message of the audit reads \"{}\"; give a code such as TC-104, or "
                    "a whole line of a log in quotes",
                    printable(options.word)));
  const terminal on = standard_output();
  out << fmt::format("{}  {}\n\n", entry->code, entry->section);
  if (!entry->wording.empty()) out << wrapped(entry->wording, on.width, 0) << "\n\n";
  out << reflowed(entry->text, on.width);
  return status_nothing_found;
}

}  // namespace desk
