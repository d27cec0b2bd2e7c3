// The profile store against its floors, measured in the same run:
//   conf_get  vs open + read + close of the same profile;
//   conf_set  vs read + write of a new file + rename;
//   base64_encode / base64_decode throughput vs memcpy of the same size.
// The profile is a 400-line driver profile on tmpfs (/dev/shm when there is
// one), so the numbers compare the store's own work, not the disk.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <map>
#include <string>
#include <vector>

#include "kiv/profile.h"

namespace {

std::string g_dir;
std::string g_path;
std::string g_tmp;

void make_profile() {
  char tmpl[] = "/dev/shm/kiv-bench-XXXXXX";
  char tmpl2[] = "/tmp/kiv-bench-XXXXXX";
  const char *dir = mkdtemp(tmpl);
  if (dir == nullptr) dir = mkdtemp(tmpl2);
  if (dir == nullptr) abort();
  g_dir = dir;
  g_path = g_dir + "/dbdc.b0.dat";
  g_tmp = g_dir + "/floor.tmp";
  std::string text = "#The word of \"Default\" must not be removed\nDefault\n";
  const char *names[] = {"HT_", "VHT_", "WPAPSK", "SSID", "ApCli", "Wsc",
                         "Mesh", "Tx", "Rx", "Bss"};
  for (int i = 0; i < 398; ++i) {
    if (i % 50 == 7) {
      text += "# section " + std::to_string(i / 50) + "\n";
      continue;
    }
    text += std::string(names[i % 10]) + "Param" + std::to_string(i) + "=" +
            (i % 3 == 0 ? "1;1;0;0" : std::to_string(i * 37 % 1000)) + "\n";
  }
  FILE *f = fopen(g_path.c_str(), "wb");
  fwrite(text.data(), 1, text.size(), f);
  fclose(f);
  __profile = g_path.data();
}

// The key of line ~200, and the last key of the file.
const char *kMiddle = "HT_Param200";
const char *kLast = "BssParam399";

void BM_ReadFloor(benchmark::State &state) {
  char buf[32768];
  for (auto _ : state) {
    int fd = open(g_path.c_str(), O_RDONLY | O_CLOEXEC);
    ssize_t n = read(fd, buf, sizeof buf);
    close(fd);
    benchmark::DoNotOptimize(n);
  }
}
BENCHMARK(BM_ReadFloor);

void BM_ConfGetMiddle(benchmark::State &state) {
  char out[128];
  for (auto _ : state) benchmark::DoNotOptimize(conf_get(kMiddle, out, sizeof out));
}
BENCHMARK(BM_ConfGetMiddle);

void BM_ConfGetLast(benchmark::State &state) {
  char out[128];
  for (auto _ : state) benchmark::DoNotOptimize(conf_get(kLast, out, sizeof out));
}
BENCHMARK(BM_ConfGetLast);

void BM_WriteFloor(benchmark::State &state) {
  char buf[32768];
  for (auto _ : state) {
    int fd = open(g_path.c_str(), O_RDONLY | O_CLOEXEC);
    ssize_t n = read(fd, buf, sizeof buf);
    close(fd);
    int out = open(g_tmp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (write(out, buf, static_cast<size_t>(n)) != n) abort();
    close(out);
    rename(g_tmp.c_str(), g_path.c_str());
  }
}
BENCHMARK(BM_WriteFloor);

void BM_ConfSet(benchmark::State &state) {
  const char *values[] = {"11", "6"};
  int i = 0;
  // conf_set prints its changed flag: keep it out of the report.
  fflush(stdout);
  int saved = dup(1);
  int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
  dup2(null, 1);
  for (auto _ : state) conf_set(kMiddle, values[i++ & 1]);
  fflush(stdout);
  dup2(saved, 1);
  close(saved);
  close(null);
}
BENCHMARK(BM_ConfSet);

std::vector<unsigned char> bytes(size_t n) {
  std::vector<unsigned char> v(n);
  for (size_t i = 0; i < n; ++i) v[i] = static_cast<unsigned char>(i * 131 + 7);
  return v;
}

void BM_Memcpy(benchmark::State &state) {
  auto src = bytes(static_cast<size_t>(state.range(0)));
  std::vector<unsigned char> dst(src.size());
  for (auto _ : state) {
    memcpy(dst.data(), src.data(), src.size());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_Memcpy)->Arg(64)->Arg(4096)->Arg(65536);

void BM_Base64Encode(benchmark::State &state) {
  auto src = bytes(static_cast<size_t>(state.range(0)));
  for (auto _ : state) {
    size_t n;
    unsigned char *t = base64_encode(src.data(), src.size(), &n);
    benchmark::DoNotOptimize(t);
    free(t);
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_Base64Encode)->Arg(64)->Arg(4096)->Arg(65536);

void BM_Base64Decode(benchmark::State &state) {
  auto raw = bytes(static_cast<size_t>(state.range(0)));
  size_t tlen;
  unsigned char *text = base64_encode(raw.data(), raw.size(), &tlen);
  for (auto _ : state) {
    size_t n;
    unsigned char *d = base64_decode(text, tlen, &n);
    benchmark::DoNotOptimize(d);
    free(d);
  }
  free(text);
  state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_Base64Decode)->Arg(64)->Arg(4096)->Arg(65536);

// Keeps each run's time per iteration (and bytes per second) for the
// ratios printed at the end.
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run> &runs) override {
    for (const Run &r : runs) {
      if (r.run_type != Run::RT_Iteration || r.iterations == 0) continue;
      time_[r.benchmark_name()] = r.GetAdjustedRealTime();
      cpu_[r.benchmark_name()] = r.GetAdjustedCPUTime();
      auto it = r.counters.find("bytes_per_second");
      if (it != r.counters.end()) rate_[r.benchmark_name()] = it->second.value;
    }
    ConsoleReporter::ReportRuns(runs);
  }
  void Ratios() {
    auto ratio = [&](const char *what, const char *floor) {
      if (time_.count(what) && time_.count(floor) && time_[floor] > 0)
        printf("%-18s %5.2fx its floor %-14s (real time), %5.2fx (CPU time)\n",
               what, time_[what] / time_[floor], floor,
               cpu_[what] / cpu_[floor]);
    };
    printf("\n");
    ratio("BM_ConfGetMiddle", "BM_ReadFloor");
    ratio("BM_ConfGetLast", "BM_ReadFloor");
    ratio("BM_ConfSet", "BM_WriteFloor");
    for (const char *size : {"64", "4096", "65536"}) {
      std::string m = std::string("BM_Memcpy/") + size;
      for (const char *codec : {"BM_Base64Encode/", "BM_Base64Decode/"}) {
        std::string c = codec + std::string(size);
        if (rate_.count(c) && rate_.count(m))
          printf("%-22s %8.1f MB/s, memcpy %8.1f MB/s (%.3f of memcpy)\n",
                 c.c_str(), rate_[c] / 1e6, rate_[m] / 1e6,
                 rate_[c] / rate_[m]);
      }
    }
  }

 private:
  std::map<std::string, double> time_;
  std::map<std::string, double> cpu_;
  std::map<std::string, double> rate_;
};

}  // namespace

int main(int argc, char **argv) {
  make_profile();
  benchmark::Initialize(&argc, argv);
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  reporter.Ratios();
  unlink(g_path.c_str());
  unlink(g_tmp.c_str());
  rmdir(g_dir.c_str());
  benchmark::Shutdown();
  return 0;
}
