// The readers and the update find the same line as __locate_key, which
// reads the stream line by line, where long lines are cut.
#include <stdio.h>
#include <string.h>

#include <string>

#include "profile_test.hpp"

using kivtest::Sandbox;

namespace {

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
