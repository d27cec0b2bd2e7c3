// Shared helpers of the libuci tests: a private configuration and save
// directory per test, file access, and running the uci command.
#pragma once

#include <uci.h>

#include <gtest/gtest.h>
#include <sandbox.hpp>
#include <sys/stat.h>

#include <string>
#include <vector>

namespace ucitest {

// The tests run against the project's own libuci, or a system's.
#ifdef KIV_SYSTEM_UCI
inline constexpr bool kOwnLibuci = false;
#else
inline constexpr bool kOwnLibuci = true;
#endif
inline constexpr char kNotOurs[] = "the build links the system's libuci";

// The uci command built on our own libuci ("" when not built).
#ifdef KIV_UCI_CLI_PATH
inline constexpr char kUciCommand[] = KIV_UCI_CLI_PATH;
#else
inline constexpr char kUciCommand[] = "";
#endif

// A temporary directory removed (recursively) at the end of the test.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir &) = delete;
  TempDir &operator=(const TempDir &) = delete;
  const std::string &path() const { return path_; }
  std::string operator/(const std::string &name) const {
    return path_ + "/" + name;
  }

 private:
  std::string path_;
};

void write_file(const std::string &path, const std::string &text,
                mode_t mode = 0644);
std::string read_file(const std::string &path);
bool exists(const std::string &path);
mode_t file_mode(const std::string &path);

// Fixture: conf/ (configuration) and save/ (changes) under a temp dir,
// and a context pointing at them.  The library must give back every
// descriptor it took (counted as the test ends).
class UciDirs : public kivtest::FdCheckedTest {
 protected:
  void SetUp() override;
  void TearDown() override;
  // A fresh context on the same directories (another "process").
  uci_context *new_context();
  std::string conf(const std::string &pkg) const { return tmp_ / ("conf/" + pkg); }
  std::string save(const std::string &pkg) const { return tmp_ / ("save/" + pkg); }
  std::string confdir() const { return tmp_ / "conf"; }
  std::string savedir() const { return tmp_ / "save"; }

  TempDir tmp_;
  uci_context *ctx = nullptr;
  std::vector<uci_context *> extra_;
};

// Result of running a program.
struct Result {
  int rc = -1;
  std::string out, err;
};

// Runs argv (argv[0] is the program path; it is shown as "uci") with the
// given standard input.
Result run(const std::vector<std::string> &argv, const std::string &in = "");

}  // namespace ucitest
