#include "bench/Comparison.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <utility>
#include <vector>

namespace tulo::bench {
namespace {

using Clock = std::chrono::steady_clock;

double secondsOf(const std::function<void()>& work) {
  const auto start = Clock::now();
  work();
  return std::chrono::duration<double>(Clock::now() - start).count();
}

double medianOf(std::vector<double> values) {
  if (values.empty()) return 0;
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

void takeTurns(benchmark::State& state, std::optional<double> target,
               const Comparison& comparison) {
  std::vector<double> floors;
  std::vector<double> measured;
  std::vector<double> ratios;
  // Neither side pays for cold caches.
  comparison.floor();
  comparison.cleanUp();
  comparison.measured();
  comparison.cleanUp();
  bool isFloorFirst = true;
  for ([[maybe_unused]] const auto _ : state) {
    // The first of a pair finds what the pair before left behind; each side is first in turn.
    for (const bool isFloor : {isFloorFirst, !isFloorFirst}) {
      (isFloor ? floors : measured)
          .push_back(secondsOf(isFloor ? comparison.floor : comparison.measured));
      comparison.cleanUp();
    }
    isFloorFirst = !isFloorFirst;
    ratios.push_back(measured.back() / floors.back());
    state.SetIterationTime(measured.back());
  }
  state.counters["floor"] = medianOf(floors);
  state.counters["median"] = medianOf(measured);
  state.counters["ratio"] = medianOf(ratios);
  if (target) state.counters["target"] = *target;
}

std::string timeText(double seconds) {
  char text[32];
  if (seconds >= 1) {
    std::snprintf(text, sizeof text, "%.2f s", seconds);
  } else if (seconds >= 1e-3) {
    std::snprintf(text, sizeof text, "%.2f ms", seconds * 1e3);
  } else {
    std::snprintf(text, sizeof text, "%.2f us", seconds * 1e6);
  }
  return text;
}

class Table : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context&) override {
    std::printf("%-44s %12s %12s %7s %7s\n", "", "floor", "measured", "ratio", "target");
    return true;
  }

  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.run_type == Run::RT_Iteration && !run.error_occurred) report(run);
      if (run.error_occurred)
        std::printf("%-44s %s\n", run.run_name.function_name.c_str(), run.error_message.c_str());
    }
    std::fflush(stdout);
  }

 private:
  static void report(const Run& run) {
    const auto value = [&](const char* name) { return run.counters.at(name).value; };
    std::printf("%-44s %12s %12s %7.2f", run.run_name.function_name.c_str(),
                timeText(value("floor")).c_str(), timeText(value("median")).c_str(),
                value("ratio"));
    if (run.counters.contains("target")) {
      const bool isMet = value("ratio") <= value("target");
      std::printf(" %7.2f  %s", value("target"), isMet ? "met" : "missed");
    }
    std::printf("\n");
  }
};

}  // namespace

void compare(const std::string& name, int rounds, std::optional<double> target,
             std::function<Comparison()> prepare) {
  benchmark::RegisterBenchmark(name.c_str(),
                               [target, prepare = std::move(prepare)](benchmark::State& state) {
                                 takeTurns(state, target, prepare());
                               })
      ->UseManualTime()
      ->Iterations(rounds);
}

int runComparisons(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  Table table;
  benchmark::RunSpecifiedBenchmarks(&table);
  benchmark::Shutdown();
  return 0;
}

}  // namespace tulo::bench
