// What the two passes over the bundles share, the one over the layers and the one over the chips:
// a bundle's record, the end of the workers that fill it, and the note on an object that waits for
// its delayed delete.
#pragma once

#include <string_view>

#include "base/here.h"
#include "base/records.h"

namespace tessel {

// The record of a configured bundle. Throws `failure` if there is none.
record& bundle_record(std::string_view bundle, here where = here::current());

// Waits until the consistency pass's workers of the bundle level of `bundle` have ended, for who
// reads what they enter in its record. Any thread but theirs, after check_bundle_consistency or on
// a worker of its member level.
void wait_for_bundle_level(std::string_view bundle);

// Called after a disagreement: notes and counts that `element` is marked for delayed delete, so
// that a finding about an object on its way out can be told from a fault. Lets a failure out. Any
// thread.
void check_delete_pending(const record& element, std::string_view error_string);

}  // namespace tessel
