// The console output of the suite, followed by a summary: for each scenario and size the library's
// own cost (null chip) per operation and per SDK call, the cost on the modelling chip, the
// library's share if each SDK call took a microsecond, the growth of the cost with the size, and
// the targets as met or missed.
#ifndef HALBD_BENCH_SUPPORT_SUMMARY_REPORTER_H
#define HALBD_BENCH_SUPPORT_SUMMARY_REPORTER_H

#include <benchmark/benchmark.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace bench {

class SummaryReporter : public benchmark::ConsoleReporter {
 public:
  using ConsoleReporter::ConsoleReporter;

  void ReportRuns(const std::vector<Run>& runs) override;
  void Finalize() override;

 private:
  struct Figures {
    double seconds = 0;  // per operation: the median over repetitions when there were several
    double calls = 0;    // SDK calls per operation
  };
  // chip name -> figures
  using BySize = std::map<int64_t, std::map<std::string, Figures>>;

  void Record(const Run& run);
  void PrintTable() const;
  void PrintGrowth() const;
  void PrintTargets() const;
  const Figures* Find(const std::string& scenario, int64_t size, const std::string& chip) const;

  std::map<std::string, BySize> results_;
  std::vector<std::string> failures_;
  // Benchmarks whose SDK calls per operation differed between repetitions: a scenario that
  // inherited state from another one, or left some behind.
  std::vector<std::string> unsteady_;
  bool repeated_ = false;
};

}  // namespace bench

#endif  // HALBD_BENCH_SUPPORT_SUMMARY_REPORTER_H
