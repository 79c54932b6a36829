// Times a piece of the project against its floor: the least that any code would have to do for the
// same result. Both take turns within one run, so that whatever else the machine does meets both.
#pragma once

#include <benchmark/benchmark.h>

#include <functional>
#include <optional>
#include <string>

namespace tulo::bench {

struct Comparison {
  std::function<void()> floor;
  std::function<void()> measured;
  // What must not be timed: runs after each of the two.
  std::function<void()> cleanUp = [] {};
};

// Registers a benchmark. `prepare` is called once, when it runs, and what it returns is timed
// `rounds` times. Its time is the median of the measured side; the floor's median, the ratio and
// the target (the ratio not to be exceeded; none: just reported) are in the table.
void compare(const std::string& name, int rounds, std::optional<double> target,
             std::function<Comparison()> prepare);

// Runs what was registered and prints one line for each, then the arguments that Google Benchmark
// did not know end it with 2.
int runComparisons(int argc, char** argv);

}  // namespace tulo::bench
