#include "run/state.h"

namespace tessel {

namespace {

std::atomic<run_state*> current = nullptr;

}  // namespace

run_state& new_state() {
  // Never freed: workers of a run may still use its state.
  auto* fresh = new run_state;
  current.store(fresh);
  return *fresh;
}

run_state& st() {
  return *current.load();
}

}  // namespace tessel
