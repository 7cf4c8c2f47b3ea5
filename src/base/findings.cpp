#include "base/findings.h"

namespace tessel {

int log_and_count(std::string_view message, here where) {
  logger(message, "exception", true, where);
  ++st().exception;
  return ERROR;
}

int count_and_log(std::string_view message, here where) {
  ++st().exception;
  logger(message, "exception", true, where);
  return ERROR;
}

}  // namespace tessel
