#include <fmt/format.h>

#include <cstdlib>
#include <filesystem>

#include "lab/base/beside.h"
#include "lab/base/error.h"
#include "lab/capture/archive.h"
#include "lab/commands/commands.h"

namespace lab {

int pack_command(const capture_options& o) {
  const std::filesystem::path out = target_named(o.out);
  check_target(out);
  if (out != o.out)
    throw lab_error(fmt::format("{}: a packed capture is a file, not a folder", o.out));
  pack_folder(o.from, out);
  return EXIT_SUCCESS;
}

int unpack_command(const capture_options& o) {
  const std::filesystem::path out = target_named(o.out);
  check_target(out);
  unpack_folder(o.from, out);
  return EXIT_SUCCESS;
}

}  // namespace lab
