// Cost of one line of the system log, by the ring and through LOGBASE.
#include <benchmark/benchmark.h>

#include "platform/logbase.h"
#include "qnx/slog_ring.h"
#include "setup.h"

namespace {

const std::uint32_t kLines = 16384;  // as a unit's ring

// The service's own form: nothing to format.
void BM_Slogf(benchmark::State& state) {
  for (auto _ : state)
    slogf(0x1B1DC, LOG_LEV_DEBUG, "%s", "_KRV_[ProcessDataPacket]-ProcessDataPacket!\n");
}

void BM_SlogfFormatted(benchmark::State& state) {
  int number = 0;
  for (auto _ : state)
    slogf(0x1B1DC, LOG_LEV_DEBUG, "_KRV_[CmdWork]-CmdWork [%d]!\n", ++number & 0xFF);
}

// The line that the service writes for each byte of a packet.
void BM_Logbase(benchmark::State& state) {
  unsigned byte = 0;
  for (auto _ : state) LOGBASE(LOG_LEV_DEBUG, "SendCtrCmd", "0x%x ", ++byte & 0xFF);
}

void BM_LogbaseText(benchmark::State& state) {
  for (auto _ : state) LOGBASE(LOG_LEV_DEBUG, "OnRecvData", "OnRecvData++++++!\n");
}

BENCHMARK(BM_Slogf);
BENCHMARK(BM_Slogf)->Threads(2);
BENCHMARK(BM_SlogfFormatted);
BENCHMARK(BM_Logbase);
BENCHMARK(BM_LogbaseText);

int Run(int argc, char** argv) {
  const setup::TempRoot root;
  setup::fs::create_directory(root.path() + "/dev");
  if (qnx::CreateSlogRing(root.path() + qnx::kSlogPath, kLines) != 0) setup::Fail("no log ring");
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  return setup::Main([&] { return Run(argc, argv); });
}
