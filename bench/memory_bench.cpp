// The memory program: heap bytes of the library's books per VLAN membership and per stored rule,
// measured with the counting allocator, and the peak resident memory of the full switch.
#include <malloc.h>

#include <fstream>
#include <string>

#include "bench_platform.h"
#include "heap_counter.h"

namespace {

using bench::Chip;

constexpr double kKiB = 1024;

// The heap allocated between construction and Delta().
class HeapDelta {
 public:
  HeapDelta() : before_(bench::LiveHeap()) {}
  bench::HeapUse Delta() const {
    const bench::HeapUse now = bench::LiveHeap();
    return {now.bytes - before_.bytes, now.blocks - before_.blocks};
  }

 private:
  bench::HeapUse before_;
};

// A field of /proc/self/status in kB ("VmRSS", "VmHWM"); 0 when it cannot be read.
double StatusKb(const std::string& field) {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.compare(0, field.size() + 1, field + ":") == 0)
      return std::stod(line.substr(field.size() + 1));
  }
  return 0;
}

// Hands freed memory back to the system and restarts the peak at the current resident size, so
// that the peak belongs to what follows.
bool RestartPeak() {
  malloc_trim(0);
  std::ofstream clearRefs("/proc/self/clear_refs");
  clearRefs << "5";
  clearRefs.flush();
  return static_cast<bool>(clearRefs);
}

void ReportPerUnit(benchmark::State& state, const std::string& unit, bench::HeapUse books,
                   bench::HeapUse table, int64_t units) {
  const auto perUnit = [units](int64_t value) {
    return static_cast<double>(value) / static_cast<double>(units);
  };
  state.counters["books_B/" + unit] = perUnit(books.bytes);
  state.counters["blocks/" + unit] = perUnit(books.blocks);
  if (table.blocks > 0)
    state.counters["shared_table_B/" + unit] = perUnit(table.bytes);
}

// 48 ports (or lag1) in VLANs 1 to N on the null chip. The bridge-domain service also writes the
// shared VLAN member table of the common chip library; its share is measured on a copy.
void Memberships(benchmark::State& state, bool lag) {
  const auto vlans = static_cast<unsigned>(state.range(0));
  while (state.KeepRunning()) {
    bench::ResetPlatform(Chip::Null, vlans);
    const std::vector<limid_t> members =
        lag ? std::vector<limid_t>{bench::CreateLag(1, bench::Ports(1, 8))}
            : bench::Ports(1, bench::kSwitchPorts);
    const HeapDelta configured;
    if (!bench::AddToVlans(members, 1, vlans, true))
      state.SkipWithError("set-up failed");
    const bench::HeapUse total = configured.Delta();
    const HeapDelta copied;
    const VlanMemberTable copy = sim::common().VlanMembers();
    const bench::HeapUse table = copied.Delta();
    benchmark::DoNotOptimize(copy);
    const bench::HeapUse books{total.bytes - table.bytes, total.blocks - table.blocks};
    ReportPerUnit(state, "membership", books, table, static_cast<int64_t>(members.size()) * vlans);
    bench::DelFromVlans(members, 1, vlans);
    if (lag)
      bench::DeleteLag(members.front());
  }
  bench::CheckClean(state);
}

// 48 ports with N rules each at one stage, on the null chip.
void Rules(benchmark::State& state, vlanxlate::Stage stage) {
  const auto rules = static_cast<unsigned>(state.range(0));
  HalBcmBridgePort* service = bench::TheServices().port;
  const std::vector<limid_t> ports = bench::Ports(1, bench::kSwitchPorts);
  const auto each = [&](auto change) {
    bool ok = true;
    for (const limid_t& port : ports) {
      for (unsigned vlan = 1; vlan <= rules; ++vlan)
        ok = change(port, bench::ReplaceRule(static_cast<uint16_t>(vlan), 0, 100)) == 0 && ok;
    }
    return ok;
  };
  while (state.KeepRunning()) {
    bench::ResetPlatform(Chip::Null, 0);
    const HeapDelta stored;
    if (!each([&](const limid_t& port, const vlanxlate::VlanMapping& rule) {
          return service->AddVlanMappingRule(port, stage, rule);
        }))
      state.SkipWithError("set-up failed");
    ReportPerUnit(state, "rule", stored.Delta(), {}, static_cast<int64_t>(ports.size()) * rules);
    each([&](const limid_t& port, const vlanxlate::VlanMapping& rule) {
      return service->DeleteVlanMappingRule(port, stage, rule);
    });
  }
  bench::CheckClean(state);
}

// The full switch configured and removed; the peak resident size of the process meanwhile. On
// the modelling chip it includes the chip's tables.
void FullSwitchPeak(benchmark::State& state, Chip chip) {
  const auto vlans = static_cast<unsigned>(state.range(0));
  const std::vector<limid_t> ports = bench::Ports(1, bench::kSwitchPorts);
  while (state.KeepRunning()) {
    bench::ResetPlatform(chip, vlans);
    if (!RestartPeak())
      state.SkipWithError("the peak resident size cannot be restarted");
    const double start = StatusKb("VmRSS");
    if (!bench::AddToVlans(ports, 1, vlans, true))
      state.SkipWithError("set-up failed");
    const double configured = StatusKb("VmRSS");
    bench::DelFromVlans(ports, 1, vlans);
    const double peak = StatusKb("VmHWM");
    state.counters["rss_start_MiB"] = start / kKiB;
    state.counters["rss_configured_MiB"] = configured / kKiB;
    state.counters["rss_peak_MiB"] = peak / kKiB;
    state.counters["peak_growth_MiB"] = (peak - start) / kKiB;
  }
  bench::CheckClean(state);
}

const bool registered = [] {
  const auto once = [](benchmark::internal::Benchmark* b, const char* sizeName) {
    b->ArgName(sizeName)
        ->Arg(16)
        ->Arg(256)
        ->Arg(bench::kAllVlans)
        ->Iterations(1)
        ->Unit(benchmark::kMillisecond);
  };
  once(benchmark::RegisterBenchmark("books/membership/ports",
                                    [](benchmark::State& state) { Memberships(state, false); }),
       "vlans");
  once(benchmark::RegisterBenchmark("books/membership/lag8",
                                    [](benchmark::State& state) { Memberships(state, true); }),
       "vlans");
  once(benchmark::RegisterBenchmark(
           "books/rules/ingress",
           [](benchmark::State& state) { Rules(state, vlanxlate::Stage::Ingress); }),
       "rules");
  once(benchmark::RegisterBenchmark(
           "books/rules/egress",
           [](benchmark::State& state) { Rules(state, vlanxlate::Stage::Egress); }),
       "rules");
  benchmark::RegisterBenchmark("peakRss/fullSwitch/model",
                               [](benchmark::State& state) { FullSwitchPeak(state, Chip::Model); })
      ->ArgName("vlans")
      ->Arg(bench::kAllVlans)
      ->Iterations(1)
      ->Unit(benchmark::kMillisecond);
  benchmark::RegisterBenchmark("peakRss/fullSwitch/null",
                               [](benchmark::State& state) { FullSwitchPeak(state, Chip::Null); })
      ->ArgName("vlans")
      ->Arg(bench::kAllVlans)
      ->Iterations(1)
      ->Unit(benchmark::kMillisecond);
  return true;
}();

}  // namespace
