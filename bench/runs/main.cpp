// Audits generated routers and prints what each audit cost. Needs permission to make a mount
// namespace.
#include <fmt/format.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "lab/capture/capture.h"
#include "lab/faults/render_faulty.h"
#include "lab/model/generate.h"
#include "lab/tool/latency.h"
#include "runs/audit.h"
#include "runs/chain.h"
#include "runs/options.h"
#include "runs/sizes.h"
#include "runs/tables.h"

namespace bench {

namespace {

namespace fs = std::filesystem;

double own(const measures& run) {
  return run.value(value_name::own_user) + run.value(value_name::own_system);
}

result measure(const options& wanted, const std::string& size, const std::string& family,
               bool hqos) {
  const lab::router router = lab::generate(sized_request(size, family, hqos));
  const temporary_folder folder;
  audit_request request;
  request.capture = folder.path() / "capture";
  request.logs = folder.path() / "logs";
  fs::create_directory(request.logs);
  lab::write_folder(lab::render(router), request.capture);
  result best{size, family, hqos, 0, {}};
  for (unsigned count = 0; count < wanted.repeat; ++count) {
    request.with_floors = wanted.latency.empty();
    for (const fs::directory_entry& left : fs::directory_iterator(request.logs))
      fs::remove_all(left);
    measures run = audit(request);
    if (count == 0 || own(run) < own(best.run)) best.run = std::move(run);
  }
  best.chain = longest_chain(best.run, router);
  return best;
}

void show(const std::string& text) {
  std::fwrite(text.data(), 1, text.size(), stdout);
  std::fflush(stdout);
}

// With one card there is one kind of chip.
bool is_double(const options& wanted, const std::string& size, const std::string& family) {
  return size == "S" && family == "mixed" && wanted.families.size() > 1;
}

std::vector<result> measure_all(const options& wanted) {
  const bool late = !wanted.latency.empty();
  std::vector<result> results;
  show(late ? chain_head() : cost_head());
  for (const std::string& family : wanted.families)
    for (const bool hqos : wanted.hqos)
      for (const std::string& size : wanted.sizes) {
        if (is_double(wanted, size, family)) continue;
        results.push_back(measure(wanted, size, family, hqos));
        show(late ? chain_row(results.back()) : cost_row(results.back()));
      }
  return results;
}

int run(const options& wanted) {
  if (wanted.help) {
    show(help_text);
    return EXIT_SUCCESS;
  }
  if (!wanted.latency.empty()) {
    lab::parse_latencies(wanted.latency);
    setenv(lab::latency_variable, wanted.latency.c_str(), 1);
  }
  const std::vector<result> results = measure_all(wanted);
  if (!wanted.latency.empty()) return EXIT_SUCCESS;
  show("\n" + count_head());
  for (const result& each : results) show(count_row(each));
  show(phase_tables(results));
  return EXIT_SUCCESS;
}

}  // namespace

}  // namespace bench

int main(int argc, char** argv) {
  try {
    return bench::run(bench::parse_options(argc, argv));
  } catch (const bench::bad_options& wrong) {
    fmt::print(stderr, "tessel-bench: {}; see --help\n", wrong.what());
    return 64;
  } catch (const std::exception& failure) {
    fmt::print(stderr, "tessel-bench: {}\n", failure.what());
    return EXIT_FAILURE;
  }
}
