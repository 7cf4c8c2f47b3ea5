#include <fmt/format.h>

#include <cstdlib>
#include <filesystem>

#include "archive.h"
#include "commands.h"
#include "redact.h"

namespace lab {

int redact_command(const std::vector<std::string>& arguments) {
  namespace fs = std::filesystem;
  const option_values o = parse_options(arguments, {});
  expect_operands(o, 2, "CAPTURE OUT");
  const fs::path from = o.operands[0];
  const fs::path out = o.operands[1];
  capture c = read_capture(from);
  c.router = out.filename().string();
  const redaction_counts n = redact(c);
  build_beside(out, [&](const fs::path& building) {
    fs::create_directories(building);
    write_files(c, building);
    // Names, times and sizes of the calls tell nothing that the answers do not.
    if (fs::is_regular_file(from / "calls")) fs::copy_file(from / "calls", building / "calls");
  });
  fmt::print(
      "Replaced: {} IP and {} MAC addresses, {} texts, {} names, {} secrets, {} serial numbers.\n",
      n.addresses, n.macs, n.texts, n.names, n.secrets, n.serials);
  return EXIT_SUCCESS;
}

}  // namespace lab
