#include <cstdlib>

#include "archive.h"
#include "beside.h"
#include "commands.h"

namespace lab {

int pack_command(const std::vector<std::string>& arguments) {
  const option_values o = parse_options(arguments, {});
  expect_operands(o, 2, "CAPTURE FILE");
  pack_folder(o.operands[0], o.operands[1]);
  return EXIT_SUCCESS;
}

int unpack_command(const std::vector<std::string>& arguments) {
  const option_values o = parse_options(arguments, {});
  expect_operands(o, 2, "FILE OUT");
  unpack_folder(o.operands[0], target_named(o.operands[1]));
  return EXIT_SUCCESS;
}

}  // namespace lab
