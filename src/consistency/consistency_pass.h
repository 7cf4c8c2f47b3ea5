// The main question of the audit: do the layers agree about every bundle?
//
// Per bundle: the bundle manager (PI) on the main thread; then on every node that takes part, on
// workers, its agent (PD), the forwarding abstraction (DPA) and the chip (BCM), first for the
// bundle, then for its members, then for its sub-bundles. At one of these the nodes take turns in
// their order, since the first to report a value sets what is expected of the others.
#pragma once

#include <string>
#include <string_view>

namespace tessel {

// Walks `tesselDb`. Returns SUCCESS however many inconsistencies were found; ERROR, after logging
// and counting, only for a failure of the walk itself. The bundle level's workers stand in
// `pid_list` and may still run on return; the others are joined bundle by bundle. Main thread.
int check_bundle_consistency();

// One bundle on one node; one member of it; one sub-bundle of it. A layer that disagrees keeps the
// layers below it from being compared. Return SUCCESS or ERROR; failures are logged and counted.
// Each on a worker of its own.
int check_bundles(const std::string& bundle, const std::string& nodename);
int check_members(const std::string& member, const std::string& bundle,
                  const std::string& nodename);
int check_sub_bundles(const std::string& sub_bdl, const std::string& bundle,
                      const std::string& nodename);

}  // namespace tessel
