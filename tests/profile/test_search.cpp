// The readers and the update find the same line as __locate_key, which
// reads the stream line by line, on profiles made to trip them: long lines,
// blanks, comments, names inside names, NULs, small and large files.
#include <stdio.h>
#include <string.h>

#include <random>
#include <string>
#include <vector>

#include "profile_test.hpp"

using kivtest::Sandbox;

namespace {

const char *kKeys[] = {"SSID1", "Key", "K", "KeyKey", "WPAPSK", "A=B", "#C"};

std::string random_profile(std::mt19937 &rng, size_t target) {
  const char *pieces[] = {"SSID1", "Key", "K", "KeyKey", "=", " ", "\t",
                          "#",     "\r",  "x", ";",      "SSID1=", "Key="};
  std::string text;
  while (text.size() < target) {
    unsigned kind = rng() % 10;
    if (kind == 0) {  // a stretch that ends near a cut at 1023 or 2046
      size_t len = (1 + rng() % 2) * 1023 + rng() % 12 - 6;
      text.append(len, rng() % 2 ? 'a' : ' ');
    } else if (kind == 1) {
      text.push_back('\0');
    } else {
      int n = 1 + static_cast<int>(rng() % 5);
      for (int i = 0; i < n; ++i) text += pieces[rng() % std::size(pieces)];
    }
    if (rng() % 3) text.push_back('\n');
  }
  return text;
}

// What conf_get must deliver, worked out with __locate_key and fgets.
std::string expected_value(const char *key) {
  FILE *fp = fopen("/tmp/p.dat", "rb");
  int off = __locate_key(fp, key);
  char buf[1024] = {};
  fseek(fp, off, SEEK_SET);
  std::string want = "<absent>";
  if (fgets(buf, 1023, fp) != nullptr) {
    if (char *eq = strchr(buf, '=')) {
      std::string v(eq + 1);
      bool keep = strncmp(key, "SSID", 4) == 0 || strncmp(key, "WPAPSK", 6) == 0;
      auto trim = [keep](char c) {
        return c == '\n' || c == '\r' || (!keep && (c == ' ' || c == '\t'));
      };
      while (!v.empty() && trim(v.front())) v.erase(0, 1);
      while (!v.empty() && trim(v.back())) v.pop_back();
      want = v;
    }
  }
  fclose(fp);
  return want;
}

}  // namespace

TEST_F(ProfileTest, FastSearchAgreesWithLineByLineSearch) {
  std::mt19937 rng(2024);
  for (int round = 0; round < 150; ++round) {
    // Small files are searched whole; large ones through a window.
    size_t target = round % 3 == 0 ? 20000 + rng() % 30000 : rng() % 4000;
    std::string text = random_profile(rng, target);
    profile(text);
    for (const char *key : kKeys) {
      std::string want = expected_value(key);
      std::string got = get(key, 2000);
      if (want == "<absent>") want = std::string(2000, '?');
      ASSERT_EQ(got, want) << "round " << round << " key " << key;
    }
    // The update replaces that same line.
    FILE *fp = fopen(kPath, "rb");
    int off = __locate_key(fp, "Key");
    fclose(fp);
    set("Key", "new");
    std::string now = content();
    ASSERT_EQ(now.compare(0, static_cast<size_t>(off), text, 0,
                          static_cast<size_t>(off)),
              0)
        << "round " << round;
    ASSERT_EQ(get("Key", 2000), "new") << "round " << round;
  }
}

TEST_F(ProfileTest, KeysAroundTheCutOfLongLines) {
  // A key right at, before and behind the place where a long line is cut,
  // behind blanks or data, in a small file and in one larger than a window.
  std::string pad;
  while (pad.size() < 40000) pad += "Pad" + std::to_string(pad.size()) + "=1\n";
  for (const std::string &tail : {std::string(), pad}) {
    for (char fill : {' ', 'a', '\t'}) {
      for (size_t cut : {1023u, 2046u}) {
        for (int d = -6; d <= 3; ++d) {
          std::string text = "X=1\n" + std::string(cut + d, fill) +
                             "Key=v\nKey=second\n" + tail;
          profile(text);
          std::string want = expected_value("Key");
          if (want == "<absent>") want = std::string(2000, '?');
          ASSERT_EQ(get("Key", 2000), want)
              << "fill '" << fill << "' cut " << cut << " d " << d;
          if (tail.empty()) continue;
          FILE *fp = fopen(kPath, "rb");
          int off = __locate_key(fp, "Key");
          fclose(fp);
          set("Key", "new");
          ASSERT_EQ(content().compare(0, static_cast<size_t>(off), text, 0,
                                      static_cast<size_t>(off)),
                    0);
        }
      }
    }
  }
}
