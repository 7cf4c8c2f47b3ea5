#include "desk/show/html_marks.h"

#include <algorithm>

#include "desk/model/coverage.h"

namespace desk {

look look_of(mark of) {
  switch (of) {
    case mark::fault:
      return {"e", "✕", "differs"};
    case mark::warning:
      return {"w", "!", "stale, leaving or unhealthy"};
    case mark::doubt:
      return {"q", "?", "not read or not verified"};
    case mark::fine:
      return {"k", "✓", "agrees"};
    case mark::nothing:
      break;
  }
  return {"n", "·", "nothing is known here"};
}

mark mark_of(finding_kind kind) {
  switch (kind) {
    case finding_kind::inconsistency:
    case finding_kind::programming:
      return mark::fault;
    case finding_kind::delay_delete:
    case finding_kind::stale:
    case finding_kind::health:
      return mark::warning;
    case finding_kind::failure:
    case finding_kind::note:
      break;
  }
  return mark::doubt;
}

mark mark_of(verdict is) {
  return is == verdict::agrees ? mark::fine : is == verdict::differs ? mark::fault : mark::doubt;
}

mark mark_of(const coverage& answer) {
  if (is_hole(answer)) return mark::doubt;
  return answer.state == coverage_state::read ? mark::fine : mark::nothing;
}

mark mark_of(const run& of, const cause& why) {
  mark worst = mark::doubt;
  for (const std::size_t each : why.findings)
    worst = std::max(worst, mark_of(of.findings[each].kind));
  const bool is_fault = !why.differences.empty() && worst != mark::warning;
  return is_fault ? mark::fault : worst;
}

mark mark_of(const judged_run& of) {
  mark worst = of.is_wholly_judged && of.of.end == run_end::complete ? mark::fine : mark::doubt;
  for (const auto& bundle : of.bundles) worst = std::max(worst, mark_of(bundle.is));
  for (const auto& why : of.causes) worst = std::max(worst, mark_of(of.of, why));
  return worst;
}

}  // namespace desk
