#include <filesystem>

#include "commands.h"
#include "record.h"

namespace lab {

int record_command(const std::vector<std::string>& arguments) {
  const option_values o = parse_options(
      arguments,
      {.with_value = {"--host", "--library", "--logs", "--work", "--told"}, .rest = true});
  expect_operands(o, 1, "OUT");
  record_request request;
  request.out = o.operands[0];
  // The last two are for a run that records: it makes the folder where no namespace ends with it,
  // and the user knows the place by another name.
  request.work = o.value_of("--work");
  request.told = o.value_of("--told");
  request.lab = own_program();
  request.host = host_of(o);
  request.library = library_of(o);
  if (o.has("--logs")) request.logs = logs_folder(o.value_of("--logs"));
  request.host_arguments = o.rest;
  return run_recorded(request);
}

}  // namespace lab
