// The timing program: Google Benchmark's command line, its console output and the summary.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include "summary_reporter.h"

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv))
    return 1;
  // Colours only on a terminal, so that saved output stays plain text; counters in columns.
  bench::SummaryReporter reporter(isatty(STDOUT_FILENO)
                                      ? benchmark::ConsoleReporter::OO_ColorTabular
                                      : benchmark::ConsoleReporter::OO_Tabular);
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return 0;
}
