#include "summary_reporter.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ostream>

#include "bench_platform.h"

namespace bench {

namespace {

// The limit on the library's own cost per SDK call.
constexpr double kMaxSecondsPerCall = 100e-9;
// The cost of one SDK call on the switch assumed for the library's share.
constexpr double kSecondsPerSdkCall = 1e-6;
// From the smallest to the largest size, a per-unit cost that grows by more than this factor is
// not explained by the logarithm of an ordered map or by caches: a walk the operation should not
// make (a linear walk would show the full ratio of the sizes, 16 to 4094 gives 256).
constexpr double kMaxGrowthFactor = 4.0;

double SecondsPerUnit(benchmark::TimeUnit unit) {
  switch (unit) {
    case benchmark::kNanosecond:
      return 1e-9;
    case benchmark::kMicrosecond:
      return 1e-6;
    case benchmark::kMillisecond:
      return 1e-3;
    case benchmark::kSecond:
      return 1;
  }
  return 1;
}

std::string Format(const char* format, double value) {
  char text[32];
  std::snprintf(text, sizeof text, format, value);
  return text;
}

std::string Time(double seconds) {
  if (seconds < 1e-6)
    return Format("%.0f ns", seconds * 1e9);
  if (seconds < 1e-3)
    return Format("%.2f us", seconds * 1e6);
  if (seconds < 1)
    return Format("%.2f ms", seconds * 1e3);
  return Format("%.3f s", seconds);
}

std::string Pad(const std::string& text, size_t width) {
  return text.size() >= width ? text : text + std::string(width - text.size(), ' ');
}

std::string PadLeft(const std::string& text, size_t width) {
  return text.size() >= width ? text : std::string(width - text.size(), ' ') + text;
}

// "addMember/port-tagged/null" -> ("addMember/port-tagged", "null").
std::pair<std::string, std::string> SplitChip(const std::string& name) {
  const size_t slash = name.rfind('/');
  if (slash == std::string::npos)
    return {name, ""};
  return {name.substr(0, slash), name.substr(slash + 1)};
}

// "vlans:4094/manual_time" or "vlans:4094" -> 4094.
int64_t SizeOf(const std::string& args) {
  const size_t colon = args.find(':');
  return colon == std::string::npos ? 0 : std::strtoll(args.c_str() + colon + 1, nullptr, 10);
}

}  // namespace

void SummaryReporter::ReportRuns(const std::vector<Run>& runs) {
  ConsoleReporter::ReportRuns(runs);
  for (const Run& run : runs)
    Record(run);
}

void SummaryReporter::Record(const Run& run) {
  if (run.error_occurred) {
    failures_.push_back(run.benchmark_name() + ": " + run.error_message);
    return;
  }
  const auto calls = run.counters.find("calls/op");
  if (run.run_type == Run::RT_Aggregate && run.aggregate_name == "stddev") {
    repeated_ = true;
    if (calls != run.counters.end() && calls->second.value != 0)
      unsteady_.push_back(run.run_name.function_name + "/" + run.run_name.args);
    return;
  }
  // The median when there were repetitions, else the single run.
  const bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
  const bool single = run.run_type == Run::RT_Iteration && run.repetitions <= 1;
  if (!median && !single)
    return;
  const auto [scenario, chip] = SplitChip(run.run_name.function_name);
  Figures figures;
  figures.seconds = run.GetAdjustedRealTime() * SecondsPerUnit(run.time_unit);
  if (calls != run.counters.end())
    figures.calls = calls->second.value;
  results_[scenario][SizeOf(run.run_name.args)][chip] = figures;
}

const SummaryReporter::Figures* SummaryReporter::Find(const std::string& scenario, int64_t size,
                                                      const std::string& chip) const {
  const auto byScenario = results_.find(scenario);
  if (byScenario == results_.end())
    return nullptr;
  const auto bySize = byScenario->second.find(size);
  if (bySize == byScenario->second.end())
    return nullptr;
  const auto byChip = bySize->second.find(chip);
  return byChip == bySize->second.end() ? nullptr : &byChip->second;
}

void SummaryReporter::Finalize() {
  ConsoleReporter::Finalize();
  std::ostream& out = GetOutputStream();
  out << "\n== Summary: library cost per operation (null chip) next to the modelling chip\n";
  PrintTable();
  out << "\n== Growth of the cost per unit of size, smallest to largest size\n";
  PrintGrowth();
  out << "\n== Targets\n";
  PrintTargets();
  if (repeated_) {
    out << "scenarios isolated (the same SDK calls per operation in every repetition): "
        << (unsteady_.empty() ? "yes" : "NO") << "\n";
    for (const std::string& name : unsteady_)
      out << "  calls differ: " << name << "\n";
  }
  for (const std::string& failure : failures_)
    out << "FAILED " << failure << "\n";
}

void SummaryReporter::PrintTable() const {
  std::ostream& out = GetOutputStream();
  out << Pad("scenario", 34) << Pad("size", 14) << PadLeft("library/op", 12)
      << PadLeft("calls/op", 10) << PadLeft("lib/call", 10) << PadLeft("model/op", 12)
      << PadLeft("calls/op", 10) << PadLeft("lib share@1us", 15) << "\n";
  for (const auto& [scenario, bySize] : results_) {
    const Family* family = FindFamily(scenario);
    const std::string sizeName = family != nullptr ? family->sizeName : "size";
    for (const auto& [size, byChip] : bySize) {
      const Figures* null = Find(scenario, size, "null");
      const Figures* model = Find(scenario, size, "model");
      std::string line = Pad(scenario, 34) + Pad(sizeName + ":" + std::to_string(size), 14);
      line += PadLeft(null ? Time(null->seconds) : "-", 12);
      line += PadLeft(null ? Format("%.1f", null->calls) : "-", 10);
      line += PadLeft(null && null->calls > 0 ? Time(null->seconds / null->calls) : "-", 10);
      line += PadLeft(model ? Time(model->seconds) : "-", 12);
      line += PadLeft(model ? Format("%.1f", model->calls) : "-", 10);
      // The calls the operation makes on a chip with real tables, each at a microsecond.
      const double calls = model ? model->calls : (null ? null->calls : 0);
      if (null && calls > 0) {
        const double share = null->seconds / (null->seconds + calls * kSecondsPerSdkCall);
        line += PadLeft(Format("%.1f %%", share * 100), 15);
      } else {
        line += PadLeft("-", 15);
      }
      out << line << "\n";
    }
  }
}

void SummaryReporter::PrintGrowth() const {
  std::ostream& out = GetOutputStream();
  for (const auto& [scenario, bySize] : results_) {
    const Family* family = FindFamily(scenario);
    if (family == nullptr || bySize.size() < 2)
      continue;
    const std::string chip = Find(scenario, bySize.begin()->first, "null") ? "null" : "model";
    const Figures* first = Find(scenario, bySize.begin()->first, chip);
    const Figures* last = Find(scenario, bySize.rbegin()->first, chip);
    if (first == nullptr || last == nullptr)
      continue;
    const bool linear = family->growth == Growth::Linear;
    const auto perUnit = [linear](const Figures& f, int64_t size) {
      return linear ? f.seconds / static_cast<double>(size) : f.seconds;
    };
    const double factor =
        perUnit(*last, bySize.rbegin()->first) / perUnit(*first, bySize.begin()->first);
    out << Pad(scenario, 34)
        << Pad(family->sizeName + " " + std::to_string(bySize.begin()->first) + " -> " +
                   std::to_string(bySize.rbegin()->first),
               22)
        << Pad((linear ? "per " + family->sizeName.substr(0, family->sizeName.size() - 1)
                       : std::string("per op")) +
                   " x" + Format("%.2f", factor),
               20)
        << "(" << chip << " chip; expected " << (linear ? "linear" : "constant") << ") "
        << (factor <= kMaxGrowthFactor ? "ok" : "SUPER-LINEAR") << "\n";
  }
}

void SummaryReporter::PrintTargets() const {
  std::ostream& out = GetOutputStream();
  double worst = 0;
  std::string worstName;
  std::vector<std::string> over;
  std::vector<std::string> exempt;
  for (const auto& [scenario, bySize] : results_) {
    const Family* family = FindFamily(scenario);
    if (family != nullptr && !family->perCallLimit) {
      exempt.push_back(scenario);
      continue;
    }
    for (const auto& [size, byChip] : bySize) {
      const Figures* null = Find(scenario, size, "null");
      if (null == nullptr || null->calls <= 0)
        continue;
      const double perCall = null->seconds / null->calls;
      const std::string name = scenario + " " + std::to_string(size);
      if (perCall > worst) {
        worst = perCall;
        worstName = name;
      }
      if (perCall > kMaxSecondsPerCall)
        over.push_back(name + " (" + Time(perCall) + ")");
    }
  }
  out << "library time per SDK call <= 100 ns: " << (over.empty() ? "met" : "MISSED") << " (worst "
      << Time(worst) << ", " << worstName << ")\n";
  for (const std::string& name : over)
    out << "  over: " << name << "\n";
  for (const std::string& scenario : exempt)
    out << "  not applicable: " << scenario << " (one call answers a list; see its growth)\n";
  for (const auto& [scenario, bySize] : results_) {
    const Family* family = FindFamily(scenario);
    if (family == nullptr || family->target.seconds <= 0)
      continue;
    const Figures* null = Find(scenario, family->target.size, "null");
    out << scenario << " " << family->sizeName << ":" << family->target.size << " under "
        << Time(family->target.seconds) << " of library time: ";
    if (null == nullptr) {
      out << "not measured\n";
      continue;
    }
    out << (null->seconds <= family->target.seconds ? "met" : "MISSED") << " ("
        << Time(null->seconds) << ")\n";
  }
}

}  // namespace bench
