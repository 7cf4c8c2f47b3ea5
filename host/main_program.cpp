// The audit as a main program instead of a library that a host loads. It passes its first argument
// to the driver as text, but the driver takes only numbers, so it always fails; a router runs the
// audit through the library.
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
