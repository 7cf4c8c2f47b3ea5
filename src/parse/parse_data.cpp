#include "parse/parse_data.h"

#include "base/constants.h"
#include "base/logs.h"
#include "base/print.h"
#include "parse/running_config.h"
#include "run/state.h"

namespace tessel {

int parse_data() {
  run_state& run = st();
  print_title("Parsing Data");
  if (!parse_running_config()) return ERROR;
  if (run.tesselDb.as_map().size() == 1) {
    ++run.exception;
    logger("INFO: No Bundle is configured/No member is added to Bundle", "exception");
    return ERROR;
  }
  return SUCCESS;
}

}  // namespace tessel
