#include <fmt/format.h>

#include <cstdlib>
#include <filesystem>

#include "lab/base/beside.h"
#include "lab/base/error.h"
#include "lab/capture/archive.h"
#include "lab/commands/commands.h"

namespace lab {

int pack_command(const std::vector<std::string>& arguments) {
  const option_values o = parse_options(arguments, {});
  expect_operands(o, 2, "CAPTURE FILE");
  const std::filesystem::path out = target_named(o.operands[1]);
  check_target(out);
  if (out != o.operands[1])
    throw lab_error(fmt::format("{}: a packed capture is a file, not a folder", o.operands[1]));
  pack_folder(o.operands[0], out);
  return EXIT_SUCCESS;
}

int unpack_command(const std::vector<std::string>& arguments) {
  const option_values o = parse_options(arguments, {});
  expect_operands(o, 2, "FILE OUT");
  const std::filesystem::path out = target_named(o.operands[1]);
  check_target(out);
  unpack_folder(o.operands[0], out);
  return EXIT_SUCCESS;
}

}  // namespace lab
