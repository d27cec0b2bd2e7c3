// The profile store on a fuzzed profile: conf_get, conf_set, conf_get_token
// and conf_set_token with fuzzed keys, values and indexes, Base64 on or off,
// on a profile file in the private tmpfs.
//
// Input: key, value (FuzzedDataProvider strings), index, flags, then the
// profile's bytes.  Checked: a key of plain name characters that conf_set
// gave a plain value reads back as that value, and the rewrite never loses
// the profile.
#include <fuzzer/FuzzedDataProvider.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

#include <string>

#include "fuzz_common.hpp"
#include "kiv/profile.h"

namespace {

char g_path[] = "/tmp/fuzz/profile.dat";

bool plain_name(const std::string &s) {
  if (s.empty()) return false;
  for (unsigned char c : s)
    if (!((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
          (c >= '0' && c <= '9') || c == '_'))
      return false;
  return true;
}

bool plain_value(const std::string &s) {
  if (s.empty()) return false;
  for (unsigned char c : s)
    if (c <= ' ' || c == 0x7f) return false;
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
  kivfuzz::private_tmpfs();
  kivfuzz::quiet_stdout();
  kivfuzz::mkdirs("/tmp/fuzz");
  __profile = g_path;
  __quiet = 1;
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  FuzzedDataProvider in(data, size);
  std::string key = in.ConsumeRandomLengthString(64);
  std::string value = in.ConsumeRandomLengthString(300);
  int idx = in.ConsumeIntegralInRange<int>(0, 33);
  uint8_t flags = in.ConsumeIntegral<uint8_t>();
  std::string profile = in.ConsumeRemainingBytesAsString();
  kivfuzz::write_file(g_path, profile.data(), profile.size());

  // Keys hold no NUL: cut at the first one as a C caller would.
  key.resize(strlen(key.c_str()));
  value.resize(strlen(value.c_str()));

  char out[256] = {0};
  conf_get(key.c_str(), out, sizeof out);
  conf_get_token(key.c_str(), idx);

  // Text the decoder refuses is fatal by contract: only give it good text.
  __base64 = 0;
  if (flags & 1) {
    unsigned char *d = base64_decode(
        reinterpret_cast<const unsigned char *>(value.data()), value.size(),
        nullptr);
    __base64 = d != nullptr;
    free(d);
  }
  switch ((flags >> 1) & 3) {
    case 0:
      conf_set(key.c_str(), value.c_str());
      break;
    case 1:
      if (idx <= 31) conf_set_token(key.c_str(), idx, value.c_str());
      break;
    case 2:
      conf_set(key.c_str(), value.c_str());
      conf_set_token(key.c_str(), idx & 31, value.c_str());
      break;
    default:
      break;
  }
  __base64 = 0;

  struct stat st;
  if (stat(g_path, &st) != 0) abort();  // the rewrite lost the profile

  // What conf_set stored plainly reads back the same.
  if (((flags >> 1) & 3) == 0 && !(flags & 1) && plain_name(key) &&
      plain_value(value) && key.size() + value.size() < 200) {
    memset(out, 0, sizeof out);
    conf_get(key.c_str(), out, sizeof out);
    if (value != out) abort();
  }
  return 0;
}
