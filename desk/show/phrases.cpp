#include "desk/show/phrases.h"

#include <fmt/format.h>

#include "desk/show/figures.h"

namespace desk {

std::string counted(std::size_t number, std::string_view one, std::string_view many) {
  return fmt::format("{} {}", number, number == 1 ? one : many);
}

std::string place_of(const coverage& answer) {
  return fmt::format("{} of {}{}{}", answer.of == layer::none ? "a part" : word_for(answer.of),
                     answer.node.empty() ? "the router" : answer.node,
                     answer.npu.empty() ? "" : ", NPU ", answer.npu);
}

std::string sentence_for(const coverage& answer) {
  return fmt::format("{}: {}{}{}", place_of(answer), word_for(answer.state),
                     answer.reason.empty() ? "" : ": ", answer.reason);
}

std::string sentence_for_bundles(const judged_run& of) {
  const std::size_t all = of.bundles.size();
  const std::size_t differ = total(of, verdict::differs);
  const std::size_t not_judged = total(of, verdict::not_judged);
  const std::string_view noun = all == 1 ? "bundle" : "bundles";
  if (all == 0) return "no bundle was found";
  if (differ == 0 && not_judged == 0)
    return fmt::format("{} {} {}", all, noun, all == 1 ? "agrees" : "agree");
  if (differ == 0) return fmt::format("{} of {} {} not judged", not_judged, all, noun);
  const std::string text =
      fmt::format("{} of {} {} {}", differ, all, noun, differ == 1 ? "differs" : "differ");
  return not_judged == 0 ? text : fmt::format("{}, {} not judged", text, not_judged);
}

std::string_view sentence_for(run_end end) {
  switch (end) {
    case run_end::complete:
      return "";
    case run_end::stopped:
      return "the audit stopped before its end";
    case run_end::cut_off:
      return "the logs end in the middle of the run";
    case run_end::unknown:
      break;
  }
  return "it is not known whether the audit came to its end";
}

}  // namespace desk
