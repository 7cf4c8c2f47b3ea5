#include <filesystem>

#include "lab/base/beside.h"
#include "lab/commands/commands.h"
#include "lab/record/record.h"
#include "lab/tool/ended_call.h"

namespace lab {

int record_command(const std::vector<std::string>& arguments) {
  const option_values o = parse_options(
      arguments,
      {.with_value = {"--host", "--library", "--logs", record_shown_option}, .rest = true});
  expect_operands(o, 1, "OUT");
  record_request request;
  request.out = target_named(o.operands[0]);
  request.shown =
      o.has(record_shown_option) ? o.value_of(record_shown_option) : request.out.string();
  request.lab = own_program();
  request.host = host_of(o);
  request.library = library_of(o);
  if (o.has("--logs")) request.logs = std::filesystem::absolute(target_named(o.value_of("--logs")));
  request.host_arguments = o.rest;
  return run_recorded(request);
}

}  // namespace lab
