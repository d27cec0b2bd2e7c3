// The rewrite of a package by commit: the same file afterwards, the rights
// of a plain write, no stray file, and concurrent committers that lose
// nothing.
#include "helpers.hpp"

#include <sandbox.hpp>

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <set>

using kivtest::Sandbox;
using kivtest::dir_names;
using kivtest::stat_of;
using namespace ucitest;

namespace {

// What these prove is our own libuci's: its lock, its routes of rewrite.
class Commit : public kivtest::SandboxTest {
 protected:
  void SetUp() override {
    if (!kOwnLibuci || !*kUciCommand)
      GTEST_SKIP() << "a property of our own libuci and uci command: "
                   << kNotOurs;
    kivtest::SandboxTest::SetUp();
  }
};

constexpr const char kOld[] = "config s 'a'\n\toption o 'old'\n";
constexpr const char kNew[] = "\nconfig s 'a'\n\toption o 'new'\n\n";

// Sets p.a.o=new and commits, in a child as uid (0: root), with the
// configuration in confdir; the child's exit code is commit's result.
int commit_as(uid_t uid, const std::string &confdir) {
  return kivtest::run_in_child([=] {
           if (uid != 0) kivtest::become(uid, uid);
           uci_context *ctx = uci_alloc_context();
           uci_set_confdir(ctx, confdir.c_str());
           std::string save = "/tmp/save" + std::to_string(uid);
           uci_set_savedir(ctx, save.c_str());
           uci_ptr ptr{};
           char tuple[] = "p.a.o=new";
           int rc = uci_lookup_ptr(ctx, &ptr, tuple, true);
           if (rc == 0) rc = uci_set(ctx, &ptr);
           if (rc == 0) rc = uci_save(ctx, ptr.p);
           if (rc == 0) rc = uci_commit(ctx, &ptr.p, false);
           uci_free_context(ctx);
           _exit(rc);
         })
      .exit_code;
}

}  // namespace

TEST_F(Commit, KeepsTheFileAndNeedsOnlyTheRightToWriteIt) {
  for (const kivtest::RightsCase &c : kivtest::kRightsCases) {
    SCOPED_TRACE(c.what);
    std::string path = kivtest::make_rights_case(c, "p", kOld);
    EXPECT_EQ(commit_as(c.caller, c.dir), c.updated ? UCI_OK : UCI_ERR_IO);
    EXPECT_EQ(Sandbox::read_file(path), c.updated ? kNew : kOld);
    struct stat st = stat_of(path);
    EXPECT_EQ(st.st_uid, c.owner);
    EXPECT_EQ(st.st_gid, c.owner + 1);
    EXPECT_EQ(st.st_mode & 07777, c.mode);
    EXPECT_EQ(dir_names(c.dir), std::set<std::string>{"p"});
    unlink(path.c_str());
  }

  // Hard and symbolic links lead to the same file afterwards.
  Sandbox::write_file("/tmp/real/p", std::string(kOld) + "# gone\n", 0640);
  ASSERT_EQ(link("/tmp/real/p", "/tmp/real/hard"), 0);
  Sandbox::mkdirs("/tmp/conf");
  ASSERT_EQ(symlink("/tmp/real/p", "/tmp/conf/p"), 0);
  EXPECT_EQ(commit_as(0, "/tmp/conf"), UCI_OK);
  EXPECT_EQ(Sandbox::read_file("/tmp/real/hard"), kNew);
  EXPECT_EQ(stat_of("/tmp/real/hard").st_ino, stat_of("/tmp/conf/p").st_ino);
  EXPECT_EQ(stat_of("/tmp/real/p").st_mode & 07777, 0640u);
  EXPECT_EQ(dir_names("/tmp/conf"), std::set<std::string>{"p"});
}

TEST_F(Commit, FullDiskInPlaceLeavesTheOldFile) {
  // Hard-linked, so the commit rewrites in place: with no room to grow, it
  // must not start, or where room can not be reserved, put the old back
  // and cut what the failed write left in the rest of the page.
  Sandbox::mkdirs("/tmp/full");
  ASSERT_EQ(mount("tmpfs", "/tmp/full", "tmpfs", 0, "size=16k,nr_inodes=16"), 0);
  // Most of two pages, that the canonical form (quotes, TABs) carries past
  // them.
  std::string old = kOld;
  for (int i = 0; old.size() < 7000; ++i)
    old += "option x" + std::to_string(i) + " v\n";
  Sandbox::write_file("/tmp/full/p", old, 0600);
  ASSERT_EQ(link("/tmp/full/p", "/tmp/full/hard"), 0);
  int fd = open("/tmp/full/filler", O_WRONLY | O_CREAT, 0600);
  char block[512] = {};
  while (write(fd, block, sizeof block) > 0) {
  }
  close(fd);
  for (bool reserve : {true, false}) {
    kivtest::g_no_reserve = !reserve;
    EXPECT_EQ(commit_as(0, "/tmp/full"), UCI_ERR_IO);
    EXPECT_EQ(Sandbox::read_file("/tmp/full/hard"), old);
    EXPECT_EQ(dir_names("/tmp/full"),
              (std::set<std::string>{"filler", "hard", "p"}));
  }
  kivtest::g_no_reserve = false;
  umount("/tmp/full");
}

TEST_F(Commit, ConcurrentCommittersLoseNothing) {
  // Four processes, each 50 times: add a value, then commit.  Two pairs of
  // them, each pair sharing its delta directory.
  Sandbox::write_file("/tmp/conf/p", "config s 'a'\n");
  std::string script =
      "U=" + std::string(kUciCommand) +
      "; for j in 1 2 3 4; do"
      "  (i=1; while [ $i -le 50 ]; do"
      "     \"$U\" -c /tmp/conf -t /tmp/save$((j/3)) add_list p.a.l$j=$i &&"
      "     \"$U\" -c /tmp/conf -t /tmp/save$((j/3)) commit p || echo fail;"
      "     i=$((i+1)); done) &"
      "done; wait";
  Result r = run({"/bin/sh", "-c", script});
  EXPECT_EQ(r.out, "");
  std::string text = Sandbox::read_file("/tmp/conf/p");
  int kept = 0;
  for (int j = 1; j <= 4; ++j)
    for (int i = 1; i <= 50; ++i)
      kept += text.find("\tlist l" + std::to_string(j) + " '" +
                        std::to_string(i) + "'\n") != std::string::npos;
  EXPECT_EQ(kept, 200);
  EXPECT_EQ(dir_names("/tmp/conf"), std::set<std::string>{"p"});
}

TEST_F(Commit, WaitsForTheLocksOfTheFileAndOfItsDeltas) {
  Sandbox::write_file("/tmp/conf/p", kOld);
  for (const char *held : {"/tmp/conf/p", "/tmp/save/p"}) {
    SCOPED_TRACE(held);
    Sandbox::write_file("/tmp/save/p", "p.a.o='new'\n");
    int ready[2], go[2];
    ASSERT_EQ(pipe(ready), 0);
    ASSERT_EQ(pipe(go), 0);
    char byte = 0;
    pid_t pid = fork();
    if (pid == 0) {  // loads first, commits once the lock is taken
      uci_context *ctx = uci_alloc_context();
      uci_set_confdir(ctx, "/tmp/conf");
      uci_set_savedir(ctx, "/tmp/save");
      uci_package *p = nullptr;
      int rc = uci_load(ctx, "p", &p);
      if (write(ready[1], &byte, 1) != 1 || read(go[0], &byte, 1) != 1)
        _exit(98);
      _exit(rc ? rc : uci_commit(ctx, &p, false));
    }
    ASSERT_EQ(read(ready[0], &byte, 1), 1);
    int fd = open(held, O_RDWR);
    ASSERT_EQ(flock(fd, LOCK_EX), 0);
    ASSERT_EQ(write(go[1], &byte, 1), 1);
    usleep(200 * 1000);
    EXPECT_EQ(waitpid(pid, nullptr, WNOHANG), 0) << "it waits for the lock";
    close(fd);
    int status = -1;
    EXPECT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(Sandbox::read_file("/tmp/conf/p"), kNew);
    EXPECT_EQ(Sandbox::read_file("/tmp/save/p"), "");
    for (int f : {ready[0], ready[1], go[0], go[1]}) close(f);
  }
}
