// Audits generated routers and prints what each audit cost. Needs permission to make a mount
// namespace.
#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "lab/base/namespaces.h"
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

// Of several audits of a router the one with the least processor time, but the shortest floors and
// wall times: on a busy machine these have little to do with each other.
void keep_better(measures& best, measures run) {
  using namespace value_name;
  const auto own = [](const measures& each) {
    return each.value(own_user) + each.value(own_system);
  };
  std::map<const char*, double> shortest;
  for (const char* name : {wall, first_line, matching, reading, starting, writing})
    shortest[name] = std::min(best.value(name), run.value(name));
  if (own(run) < own(best)) best = std::move(run);
  for (const auto& [name, time] : shortest) best.values[name] = time;
}

// With late tools, the run that waited least beside them: each run has its own longest chain.
void keep_closer_to_chain(result& best, measures run, double chain) {
  using value_name::wall;
  if (run.value(wall) / chain >= best.run.value(wall) / best.chain) return;
  best.run = std::move(run);
  best.chain = chain;
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
  const bool late = !wanted.latency.empty();
  result best{size, family, hqos, 0, {}};
  for (unsigned count = 0; count < wanted.repeat; ++count) {
    request.with_floors = !late && wanted.callgrind.empty();
    request.with_callgrind = !wanted.callgrind.empty();
    for (const fs::directory_entry& left : fs::directory_iterator(request.logs))
      fs::remove_all(left);
    measures run = audit(request);
    const double chain = late ? longest_chain(run, router) : 0;
    if (count == 0) {
      best.run = std::move(run);
      best.chain = chain;
    } else if (late) {
      keep_closer_to_chain(best, std::move(run), chain);
    } else {
      keep_better(best.run, std::move(run));
    }
  }
  if (request.with_callgrind)
    fs::copy_file(request.logs / callgrind_file, wanted.callgrind,
                  fs::copy_options::overwrite_existing);
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
  lab::insist_on_namespace();
  if (!wanted.latency.empty()) {
    lab::parse_latencies(wanted.latency);
    setenv(lab::latency_variable, wanted.latency.c_str(), 1);
  }
  const std::vector<result> results = measure_all(wanted);
  if (wanted.latency.empty()) {
    show("\n" + count_head());
    for (const result& each : results) show(count_row(each));
    show(phase_tables(results));
  }
  show("\n" + limit_table(results));
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
  } catch (const lab::no_privileges& missing) {
    fmt::print(stderr, "tessel-bench: {}\n", missing.what);
    return lab::missing_privileges;
  } catch (const std::exception& failure) {
    fmt::print(stderr, "tessel-bench: {}\n", failure.what());
    return EXIT_FAILURE;
  }
}
