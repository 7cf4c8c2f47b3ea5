#include <fmt/format.h>

#include <cstdlib>

#include "lab/base/beside.h"
#include "lab/base/error.h"
#include "lab/capture/capture.h"
#include "lab/commands/commands.h"
#include "lab/faults/render_faulty.h"
#include "lab/model/generate.h"

namespace lab {
namespace {

chip_mix family_named(const std::string& name) {
  if (name == "old") return chip_mix::older;
  if (name == "j2") return chip_mix::jericho2;
  if (name == "mixed") return chip_mix::mixed;
  throw usage_error(fmt::format("generate: --family {}: not one of old, j2, mixed", name));
}

router wanted_router(const option_values& o) {
  try {
    generate_request wanted = default_request(o.has("--type") ? o.value_of("--type") : "birch");
    wanted.cards = number_of(o, "--cards", wanted.cards);
    wanted.npus = number_of(o, "--npus", wanted.npus);
    wanted.bundles = number_of(o, "--bundles", wanted.bundles);
    wanted.members = number_of(o, "--members", wanted.members);
    wanted.l2_subs = number_of(o, "--l2-subs", wanted.l2_subs);
    wanted.l3_subs = number_of(o, "--l3-subs", wanted.l3_subs);
    wanted.seed = number_of(o, "--seed", wanted.seed);
    wanted.hqos = o.has("--hqos");
    if (o.has("--family")) wanted.family = family_named(o.value_of("--family"));
    return generate(wanted);
  } catch (const lab_error& impossible) {
    throw usage_error(fmt::format("generate: {}", impossible.what()));
  }
}

}  // namespace

int generate_command(const std::vector<std::string>& arguments) {
  const option_values o = parse_options(
      arguments, {.with_value = {"--type", "--cards", "--npus", "--bundles", "--members",
                                 "--l2-subs", "--l3-subs", "--family", "--seed"},
                  .flags = {"--hqos"}});
  expect_operands(o, 1, "OUT");
  const std::filesystem::path out = target_named(o.operands[0]);
  write_folder(render(wanted_router(o)), out);
  return EXIT_SUCCESS;
}

}  // namespace lab
