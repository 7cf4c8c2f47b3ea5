#include <cstdlib>

#include "lab/base/beside.h"
#include "lab/base/error.h"
#include "lab/capture/capture.h"
#include "lab/commands/commands.h"
#include "lab/faults/render_faulty.h"

namespace lab {
namespace {

router wanted_router(const generate_options& o) {
  try {
    generate_request wanted = default_request(o.type);
    wanted.cards = o.cards.value_or(wanted.cards);
    wanted.npus = o.npus.value_or(wanted.npus);
    wanted.bundles = o.bundles.value_or(wanted.bundles);
    wanted.members = o.members.value_or(wanted.members);
    wanted.l2_subs = o.l2_subs.value_or(wanted.l2_subs);
    wanted.l3_subs = o.l3_subs.value_or(wanted.l3_subs);
    wanted.seed = o.seed.value_or(wanted.seed);
    wanted.family = o.family.value_or(wanted.family);
    wanted.hqos = o.hqos;
    return generate(wanted);
  } catch (const lab_error& impossible) {
    throw wrong_values("generate", impossible.what());
  }
}

}  // namespace

int generate_command(const generate_options& o) {
  const std::filesystem::path out = target_named(o.out);
  capture c = render(wanted_router(o));
  c.made.origin = "generated";
  write_folder(c, out);
  return EXIT_SUCCESS;
}

}  // namespace lab
