#include <fmt/format.h>

#include <cstdlib>
#include <filesystem>

#include "lab/base/beside.h"
#include "lab/base/messages.h"
#include "lab/base/private_files.h"
#include "lab/capture/archive.h"
#include "lab/capture/capture_check.h"
#include "lab/capture/redact.h"
#include "lab/commands/commands.h"

namespace lab {

int redact_command(const capture_options& o) {
  namespace fs = std::filesystem;
  const fs::path out = target_named(o.out);
  capture c = read_capture(o.from);
  c.router = out.filename().string();
  const redaction_counts n = redact(c);
  c.calls = calls_with_sizes(c);
  const private_files of_the_capture;
  // With the list of calls, which holds nothing confidential.
  write_folder(c, out, [&](const fs::path&) {
    fmt::print(
        "Replaced: {} IP and {} MAC addresses, {} texts, {} names, {} secrets, {} serial "
        "numbers.\n",
        n.addresses, n.macs, n.texts, n.names, n.secrets, n.serials);
    flush_output();
  });
  return EXIT_SUCCESS;
}

}  // namespace lab
