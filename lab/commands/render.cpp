#include <cstdlib>

#include "lab/base/beside.h"
#include "lab/capture/capture.h"
#include "lab/commands/commands.h"
#include "lab/describe/description.h"
#include "lab/faults/faults.h"
#include "lab/faults/render_faulty.h"
#include "lab/render/render.h"

namespace lab {

router faulty_router(const std::string& name, const std::vector<std::string>& faults) {
  router r = load_router(name);
  for (const std::string& fault : faults) r.faults.push_back(parse_fault(fault));
  return r;
}

int render_command(const render_options& o) {
  const std::filesystem::path out = target_named(o.out);
  write_folder(render(faulty_router(o.router, o.faults)), out);
  return EXIT_SUCCESS;
}

}  // namespace lab
