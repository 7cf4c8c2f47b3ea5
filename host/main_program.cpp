// The audit started as a main program instead of being loaded by a host. It hands its first
// argument to the driver as the text that it is, and the driver takes numbers only, so this always
// ends in a failure; a router runs the audit through the library.
#include "base/failure.h"
#include "base/value.h"
#include "run/run_tessel.h"
#include "run/state.h"

#include <cstdio>
#include <exception>

namespace {

tessel::value first_argument(int argc, char** argv) {
  if (argc < 2) throw tessel::failure("list index out of range: no first argument, the node id");
  return tessel::value(argv[1]);
}

}  // namespace

int main(int argc, char** argv) {
  tessel::new_state();
  try {
    return tessel::run_tessel_with(first_argument(argc, argv));
  } catch (const std::exception& error) {
    std::fputs(tessel::traceback_of(error).c_str(), stderr);
    return 1;
  }
}
