// The profile store against its floors and the Base64 codec against
// OpenSSL, measured in the same run:
//   conf_get      vs read_floor:  open, shared lock, read to the end and
//                 close of the same profile (readers lock, so that they
//                 never see a rewrite half done);
//   conf_set      vs write_floor: open for writing, exclusive lock, the
//                 same read, then the changed bytes written to a new file,
//                 synced and renamed over the old one, the way conf_set
//                 replaces the profile;
//   base64_encode/<impl>/<size>, base64_decode/<impl>/<size>: ours (a new
//                 allocation, 72-character lines) and OpenSSL's
//                 EVP_EncodeBlock / EVP_DecodeBlock (a caller's buffer, no
//                 line breaks), over the same bytes.
// The profile is a 400-line driver profile on tmpfs (/dev/shm when there is
// one), so the numbers compare the store's own work, not the disk.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <openssl/evp.h>

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

// The profile with kMiddle set to each of the two values conf_set writes.
std::string g_image[2];

void make_images() {
  FILE *f = fopen(g_path.c_str(), "rb");
  char buf[32768];
  size_t n = fread(buf, 1, sizeof buf, f);
  fclose(f);
  std::string text(buf, n);
  const std::string line = std::string(kMiddle) + "=";
  size_t at = text.find("\n" + line) + 1 + line.size();
  size_t eol = text.find('\n', at);
  const char *values[] = {"11", "6"};
  for (int i = 0; i < 2; ++i)
    g_image[i] = text.substr(0, at) + values[i] + text.substr(eol);
}

// Reads the whole file as any reader that doesn't know its size must: until
// read() says the end has come.
ssize_t read_all(int fd, char *buf, size_t size) {
  ssize_t total = 0, n;
  while ((n = read(fd, buf + total, size - static_cast<size_t>(total))) > 0)
    total += n;
  return total;
}

void read_floor(benchmark::State &state) {
  char buf[32768];
  for (auto _ : state) {
    int fd = open(g_path.c_str(), O_RDONLY | O_CLOEXEC);
    flock(fd, LOCK_SH);
    ssize_t n = read_all(fd, buf, sizeof buf);
    close(fd);
    benchmark::DoNotOptimize(n);
  }
}

void conf_get_middle(benchmark::State &state) {
  char out[128];
  for (auto _ : state) benchmark::DoNotOptimize(conf_get(kMiddle, out, sizeof out));
}

void conf_get_last(benchmark::State &state) {
  char out[128];
  for (auto _ : state) benchmark::DoNotOptimize(conf_get(kLast, out, sizeof out));
}

void write_floor(benchmark::State &state) {
  char buf[32768];
  int i = 0;
  for (auto _ : state) {
    // The update knows the size of what it reads, and so reads once.
    int fd = open(g_path.c_str(), O_RDWR | O_CLOEXEC);
    flock(fd, LOCK_EX);
    struct stat st;
    fstat(fd, &st);
    ssize_t n = read(fd, buf, static_cast<size_t>(st.st_size));
    benchmark::DoNotOptimize(n);
    const std::string &image = g_image[i++ & 1];
    int out = open(g_tmp.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (write(out, image.data(), image.size()) !=
        static_cast<ssize_t>(image.size()))
      abort();
    fsync(out);
    close(out);
    rename(g_tmp.c_str(), g_path.c_str());
    close(fd);
  }
}

void conf_set_middle(benchmark::State &state) {
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

std::vector<unsigned char> bytes(size_t n) {
  std::vector<unsigned char> v(n);
  for (size_t i = 0; i < n; ++i) v[i] = static_cast<unsigned char>(i * 131 + 7);
  return v;
}

void ours_encode(benchmark::State &state) {
  auto src = bytes(static_cast<size_t>(state.range(0)));
  for (auto _ : state) {
    size_t n;
    unsigned char *t = base64_encode(src.data(), src.size(), &n);
    benchmark::DoNotOptimize(t);
    free(t);
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
}

void openssl_encode(benchmark::State &state) {
  auto src = bytes(static_cast<size_t>(state.range(0)));
  std::vector<unsigned char> text(src.size() / 3 * 4 + 5);
  for (auto _ : state) {
    int n = EVP_EncodeBlock(text.data(), src.data(), static_cast<int>(src.size()));
    benchmark::DoNotOptimize(n);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
}

void ours_decode(benchmark::State &state) {
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

void openssl_decode(benchmark::State &state) {
  auto raw = bytes(static_cast<size_t>(state.range(0)));
  std::vector<unsigned char> text(raw.size() / 3 * 4 + 5);
  int tlen = EVP_EncodeBlock(text.data(), raw.data(), static_cast<int>(raw.size()));
  std::vector<unsigned char> out(raw.size() + 3);
  for (auto _ : state) {
    int n = EVP_DecodeBlock(out.data(), text.data(), tlen);
    benchmark::DoNotOptimize(n);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
}

void register_all() {
  benchmark::RegisterBenchmark("read_floor", read_floor);
  benchmark::RegisterBenchmark("conf_get", conf_get_middle);
  benchmark::RegisterBenchmark("conf_get_last", conf_get_last);
  benchmark::RegisterBenchmark("write_floor", write_floor)->UseRealTime();
  benchmark::RegisterBenchmark("conf_set", conf_set_middle)->UseRealTime();
  for (int64_t size : {64, 4096, 65536}) {
    benchmark::RegisterBenchmark("base64_encode/ours", ours_encode)->Arg(size);
    benchmark::RegisterBenchmark("base64_encode/openssl", openssl_encode)
        ->Arg(size);
    benchmark::RegisterBenchmark("base64_decode/ours", ours_decode)->Arg(size);
    benchmark::RegisterBenchmark("base64_decode/openssl", openssl_decode)
        ->Arg(size);
  }
}

}  // namespace

int main(int argc, char **argv) {
  make_profile();
  make_images();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  register_all();
  benchmark::RunSpecifiedBenchmarks();
  unlink(g_path.c_str());
  unlink(g_tmp.c_str());
  rmdir(g_dir.c_str());
  benchmark::Shutdown();
  return 0;
}
