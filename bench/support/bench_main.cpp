// The timing program: Google Benchmark's command line, its console output and the summary.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstring>

#include "bench_platform.h"
#include "summary_reporter.h"

namespace {

// Takes --instructions off the command line: the counting mode of bench_platform.h.
bool TakeCountingFlag(int& argc, char** argv) {
  bool found = false;
  int kept = 1;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--instructions") == 0)
      found = true;
    else
      argv[kept++] = argv[i];
  }
  argc = kept;
  return found;
}

}  // namespace

int main(int argc, char** argv) {
  if (TakeCountingFlag(argc, argv))
    bench::EnterCountingMode();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv))
    return 1;
  // Colours only on a terminal, so that saved output stays plain text; counters in columns.
  const auto options = isatty(STDOUT_FILENO) ? benchmark::ConsoleReporter::OO_ColorTabular
                                             : benchmark::ConsoleReporter::OO_Tabular;
  // Times taken under callgrind mean nothing: counting runs print the plain table only.
  if (bench::countingMode) {
    benchmark::ConsoleReporter reporter(options);
    benchmark::RunSpecifiedBenchmarks(&reporter);
  } else {
    bench::SummaryReporter reporter(options);
    benchmark::RunSpecifiedBenchmarks(&reporter);
  }
  benchmark::Shutdown();
  return 0;
}
