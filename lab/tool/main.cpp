// Stands in for the tools of a router, under their names: answers from a capture, or passes the
// call on and keeps the answer. It starts once or twice per tool call, so it is small and loads no
// library.
#include <fmt/format.h>

#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "lab/base/complain.h"
#include "lab/tool/record_call.h"
#include "lab/tool/serve.h"

int main(int argc, char** argv) {
  lab::hold_standard_streams();
  constexpr int usage_status = 64;
  const std::vector<std::string> words(argv, argv + argc);
  const std::string_view name = words.empty() ? std::string_view{} : words.front();
  if (name.empty() || name.substr(name.rfind('/') + 1) == "tessel-lab-tool") {
    lab::complain(
        "tessel-lab-tool: do not call it directly; tessel-lab starts it under the names of a "
        "router's tools");
    return usage_status;
  }
  return lab::is_recording() ? lab::record_call(words) : lab::serve(words);
}
