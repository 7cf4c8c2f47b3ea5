// The functions that both passes over the bundles use, the one over the layers and the one over the
// chips: finding a bundle's record, waiting for the workers that fill it, and noting an object that
// is marked for delayed delete.
#pragma once

#include <string_view>

#include "base/here.h"
#include "base/records.h"
#include "checks/object_name.h"

namespace tessel {

// The record of a configured bundle. Throws `failure` if the bundle is not configured.
record& bundle_record(std::string_view bundle, here where = here::current());

// Waits until the consistency pass's workers of the bundle level of `bundle` have ended; call it
// before reading what they set in the bundle's record. Any thread but theirs, after
// check_bundle_consistency or on a worker of the bundle's member level.
void wait_for_bundle_level(std::string_view bundle);

// Call after a disagreement: logs and counts if `element` is marked for delayed delete, so that a
// reader can tell a finding about an object on its way out from a fault. Throws `failure`. Any
// thread.
void check_delete_pending(const record& element, const object_name& error_string);

}  // namespace tessel
