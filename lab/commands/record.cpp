#include <filesystem>

#include "lab/base/beside.h"
#include "lab/commands/commands.h"
#include "lab/model/router.h"
#include "lab/record/record.h"

namespace lab {

int record_command(const record_options& o) {
  record_request request;
  request.out = target_named(o.out);
  request.shown = o.shown.value_or(request.out.string());
  request.tool = tool_program();
  request.host = host_of(o.programs);
  request.library = library_of(o.programs);
  if (o.logs) request.logs = std::filesystem::absolute(target_named(*o.logs));
  request.host_arguments = o.host_arguments;
  request.type_in = type_in_banner;
  return run_recorded(request);
}

}  // namespace lab
