// Parts of a run in JSON, as report.schema.json has them, which several formats write.
//
// This header compiles slowly: only the sources of views in JSON include it.
#pragma once

#include "desk/judge/judged_run.h"
#include "desk/show/json_lines.h"

namespace desk {

// Any thread, as all of these.
[[nodiscard]] json json_of(layer of);
[[nodiscard]] json json_of(const object_ref& of);
[[nodiscard]] json json_of(const cause& of);
[[nodiscard]] json json_of(const finding& of);
[[nodiscard]] json json_of(const coverage& of);
[[nodiscard]] json json_of_counts(const run& of);
[[nodiscard]] json json_of_program();

}  // namespace desk
