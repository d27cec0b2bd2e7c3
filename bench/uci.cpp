// libuci against its floors, measured in the same run:
//   load + tuple lookup of every option, and load + walk of every option,
//     vs reading the file and splitting its lines;
//   commit of one staged change vs writing the same bytes to a new file,
//     fsync and rename.
// Packages of 2000 and 8000 sections (5 options each, one of them a list)
// on tmpfs (/dev/shm when there is one); per-option figures at both sizes
// show whether the cost grows linearly with the file.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>
#include <uci.h>

#include <string>
#include <vector>

namespace {

struct Package {
  std::string name;
  std::vector<std::string> tuples;  // one per option
  size_t bytes = 0;
};

std::string g_dir, g_conf, g_save;

void make_dirs() {
  if (!g_dir.empty()) return;
  char tmpl[] = "/dev/shm/uci-bench-XXXXXX";
  char tmpl2[] = "/tmp/uci-bench-XXXXXX";
  const char *dir = mkdtemp(tmpl);
  if (dir == nullptr) dir = mkdtemp(tmpl2);
  if (dir == nullptr) abort();
  g_dir = dir;
  g_conf = g_dir + "/conf";
  g_save = g_dir + "/save";
  mkdir(g_conf.c_str(), 0755);
  mkdir(g_save.c_str(), 0755);
}

const Package &package(int sections) {
  static Package small, large;
  Package &p = sections <= 2000 ? small : large;
  if (!p.name.empty()) return p;
  make_dirs();
  p.name = "bench" + std::to_string(sections);
  std::string text;
  for (int i = 0; i < sections; ++i) {
    std::string s = "s" + std::to_string(i);
    text += "config interface '" + s + "'\n";
    text += "\toption ifname 'eth" + std::to_string(i % 8) + "'\n";
    text += "\toption proto static\n";
    text += "\toption ipaddr '10." + std::to_string(i / 256 % 256) + "." + std::to_string(i % 256) + ".1'\n";
    text += "\toption netmask 255.255.255.0\n";
    text += "\tlist dns 1.1.1.1\n\tlist dns 8.8.8.8\n\n";
    for (const char *o : {"ifname", "proto", "ipaddr", "netmask", "dns"})
      p.tuples.push_back(p.name + "." + s + "." + o);
  }
  FILE *f = fopen((g_conf + "/" + p.name).c_str(), "wb");
  fwrite(text.data(), 1, text.size(), f);
  fclose(f);
  p.bytes = text.size();
  return p;
}

uci_context *context() {
  uci_context *ctx = uci_alloc_context();
  uci_set_confdir(ctx, g_conf.c_str());
  uci_set_savedir(ctx, g_save.c_str());
  uci_set_conf2dir(ctx, nullptr);
  return ctx;
}

void per_option(benchmark::State &state, size_t options) {
  state.SetItemsProcessed(int64_t(state.iterations() * options));
  // Seconds of CPU per option (shown with an SI prefix: "540n" is 540 ns).
  state.counters["per_option"] = benchmark::Counter(
      double(options), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

// Floor: read the file and find every line.
void BM_ReadFloor(benchmark::State &state) {
  const Package &p = package(int(state.range(0)));
  std::string path = g_conf + "/" + p.name;
  std::vector<char> buf(p.bytes + 1);
  for (auto _ : state) {
    int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    ssize_t n = read(fd, buf.data(), buf.size());
    close(fd);
    size_t lines = 0;
    for (const char *q = buf.data(), *end = q + n; (q = static_cast<const char *>(memchr(q, '\n', size_t(end - q)))); ++q)
      ++lines;
    benchmark::DoNotOptimize(lines);
  }
  per_option(state, p.tuples.size());
}

void BM_LoadLookupEveryOption(benchmark::State &state) {
  const Package &p = package(int(state.range(0)));
  char buf[128];
  for (auto _ : state) {
    uci_context *ctx = context();
    size_t found = 0;
    for (const std::string &t : p.tuples) {
      memcpy(buf, t.c_str(), t.size() + 1);
      uci_ptr ptr;
      if (uci_lookup_ptr(ctx, &ptr, buf, true) == 0 && (ptr.flags & uci_ptr::UCI_LOOKUP_COMPLETE)) ++found;
    }
    if (found != p.tuples.size()) state.SkipWithError("lookup failed");
    uci_free_context(ctx);
  }
  per_option(state, p.tuples.size());
}

void BM_LoadWalkEveryOption(benchmark::State &state) {
  const Package &p = package(int(state.range(0)));
  for (auto _ : state) {
    uci_context *ctx = context();
    uci_package *pkg = nullptr;
    if (uci_load(ctx, p.name.c_str(), &pkg)) state.SkipWithError("load failed");
    size_t n = 0;
    uci_element *se, *oe;
    uci_foreach_element(&pkg->sections, se) {
      uci_foreach_element(&uci_to_section(se)->options, oe) ++n;
    }
    benchmark::DoNotOptimize(n);
    uci_free_context(ctx);
  }
  per_option(state, p.tuples.size());
}

// Floor: write the same number of bytes to a new file, fsync, rename.
void BM_WriteFloor(benchmark::State &state) {
  const Package &p = package(int(state.range(0)));
  std::string data(p.bytes, 'x');
  std::string tmp = g_dir + "/floor.tmp", dst = g_dir + "/floor";
  for (auto _ : state) {
    int fd = open(tmp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (write(fd, data.data(), data.size()) < 0) state.SkipWithError("write");
    fsync(fd);
    close(fd);
    rename(tmp.c_str(), dst.c_str());
  }
  per_option(state, p.tuples.size());
}

void BM_CommitOneChange(benchmark::State &state) {
  const Package &p = package(int(state.range(0)));
  int i = 0;
  for (auto _ : state) {
    uci_context *ctx = context();
    std::string t = p.tuples.back() + std::string("=") + std::to_string(i++);
    std::vector<char> buf(t.begin(), t.end());
    buf.push_back(0);
    uci_ptr ptr;
    if (uci_lookup_ptr(ctx, &ptr, buf.data(), true) || uci_set(ctx, &ptr) ||
        uci_commit(ctx, &ptr.p, false))
      state.SkipWithError("commit failed");
    uci_free_context(ctx);
  }
  per_option(state, p.tuples.size());
}

BENCHMARK(BM_ReadFloor)->Arg(2000)->Arg(8000)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_LoadWalkEveryOption)->Arg(2000)->Arg(8000)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_LoadLookupEveryOption)->Arg(2000)->Arg(8000)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_WriteFloor)->Arg(2000)->Arg(8000)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_CommitOneChange)->Arg(2000)->Arg(8000)->Unit(benchmark::kMicrosecond);

}  // namespace

int main(int argc, char **argv) {
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  if (!g_dir.empty()) {
    std::string cmd = "rm -rf '" + g_dir + "'";
    if (system(cmd.c_str())) {
    }
  }
  return 0;
}
