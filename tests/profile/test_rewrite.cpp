// The rewrite of a profile: the same file afterwards, the rights of a plain
// write, a full disk, the lock between writers and readers, and profiles
// that are no regular files.
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <set>

#include "profile_test.hpp"

using kivtest::Sandbox;
using kivtest::dir_names;
using kivtest::stat_of;

namespace {

// The two rewrites, run in a child as uid:gid on `path`.
kivtest::ChildResult rewrite_as(uid_t uid, gid_t gid, const char *path,
                                bool token) {
  return kivtest::run_in_child([=] {
    if (uid != 0) kivtest::become(uid, gid);
    __profile = const_cast<char *>(path);
    if (token)
      conf_set_token("List", 1, "new");
    else
      conf_set("Key", "new");
  });
}

constexpr const char kOld[] = "# radio\nKey=old\nList=a;b;c\n";

}  // namespace

TEST_F(ProfileTest, RewriteKeepsTheFileAndNeedsOnlyTheRightToWriteIt) {
  for (const kivtest::RightsCase &c : kivtest::kRightsCases) {
    for (bool token : {false, true}) {
      SCOPED_TRACE(std::string(c.what) + (token ? ", token" : ", scalar"));
      std::string path = kivtest::make_rights_case(c, "p.dat", kOld);
      std::set<std::string> names = dir_names(c.dir);

      auto r = rewrite_as(c.caller, c.caller, path.c_str(), token);
      if (c.updated) {
        EXPECT_EQ(r.exit_code, 0) << r.err;
        EXPECT_EQ(Sandbox::read_file(path),
                  token ? "# radio\nKey=old\nList=a;new;c\n"
                        : "# radio\nKey=new\nList=a;b;c\n");
      } else {
        EXPECT_EQ(r.exit_code, 255);
        std::string func = token ? "conf_set_token" : "conf_set";
        EXPECT_TRUE(r.err.starts_with("assert failure: fp, Permission denied, " +
                                      func + " L"))
            << r.err;
        EXPECT_EQ(Sandbox::read_file(path), kOld);
      }
      struct stat st = stat_of(path.c_str());
      EXPECT_EQ(st.st_uid, c.owner);
      EXPECT_EQ(st.st_gid, c.owner + 1);
      EXPECT_EQ(st.st_mode & 07777, c.mode);
      EXPECT_EQ(dir_names(c.dir), names) << "no file left behind";
      unlink(path.c_str());
    }
  }

  // conf_set never creates a profile.
  auto r = rewrite_as(0, 0, "/tmp/none.dat", false);
  EXPECT_EQ(r.exit_code, 255);
  EXPECT_TRUE(r.err.starts_with(
      "assert failure: fp, No such file or directory, conf_set L"))
      << r.err;
  EXPECT_FALSE(Sandbox::exists("/tmp/none.dat"));
}

TEST_F(ProfileTest, RewriteKeepsLinksToTheProfile) {
  // Through a symbolic link: a profile of one link is replaced by a new
  // file (a rename, atomic on power loss), one with a hard link beside it
  // is rewritten in place.  Either way the link still leads to it.
  for (bool hard : {false, true}) {
    SCOPED_TRACE(hard ? "with a hard link" : "of one link");
    const std::string dir = hard ? "/tmp/hard" : "/tmp/one";
    const std::string real = dir + "/p.dat";
    std::string soft = dir + ".dat";
    Sandbox::write_file(real, kOld, 0640);
    if (hard) {
      ASSERT_EQ(link(real.c_str(), (dir + "/h.dat").c_str()), 0);
    }
    ASSERT_EQ(symlink(real.c_str(), soft.c_str()), 0);
    const ino_t ino = stat_of(real).st_ino;
    __profile = soft.data();
    EXPECT_EQ(set("Key", "n"), "1\n");
    ASSERT_EQ(conf_set_token("List", 2, "z"), 0);
    EXPECT_EQ(dir_names(dir).size(), hard ? 2u : 1u) << "no file left";
    for (const std::string &name : dir_names(dir)) {
      const std::string path = dir + "/" + name;
      EXPECT_EQ(Sandbox::read_file(path), "# radio\nKey=n\nList=a;b;z\n");
      EXPECT_EQ(stat_of(path).st_ino == ino, hard) << name;
      EXPECT_EQ(stat_of(path).st_mode & 07777, 0640u) << name;
    }
    struct stat st;
    ASSERT_EQ(lstat(soft.c_str(), &st), 0);
    EXPECT_TRUE(S_ISLNK(st.st_mode)) << "the link stays a link";
  }

  // A profile mounted over a file can not be renamed over.
  Sandbox::write_file("/tmp/source.dat", kOld);
  Sandbox::write_file("/tmp/mounted.dat", "");
  ASSERT_EQ(mount("/tmp/source.dat", "/tmp/mounted.dat", nullptr, MS_BIND,
                  nullptr), 0);
  char mounted[] = "/tmp/mounted.dat";
  __profile = mounted;
  EXPECT_EQ(set("Key", "bound"), "1\n");
  EXPECT_EQ(Sandbox::read_file("/tmp/source.dat"),
            "# radio\nKey=bound\nList=a;b;c\n");
  umount(mounted);
}

constexpr char kLonger[] =
    "a value long enough to carry the profile over the end of its page, "
    "where the file system has no room left: one, two, three, four, five, "
    "six, seven, eight, nine, ten, eleven, twelve, thirteen, fourteen, "
    "fifteen, sixteen, seventeen, eighteen, nineteen, twenty";

TEST_F(ProfileTest, FullDiskLeavesTheOldFileByteForByte) {
  // A tiny file system of four pages: the profile takes one, a filler the
  // rest, so the new content can not be written past that page.  With a
  // hard link the rewrite goes in place, and must not start, or where room
  // can not be reserved, must put the old bytes back and cut the tail that
  // the failed write left in the page.
  Sandbox::mkdirs("/tmp/full");
  ASSERT_EQ(mount("tmpfs", "/tmp/full", "tmpfs", 0, "size=16k,nr_inodes=16"), 0)
      << strerror(errno);
  std::string old;
  for (int i = 0; old.size() < 3900; ++i)
    old += "Key" + std::to_string(i) + "=value " + std::to_string(i) + "\n";
  Sandbox::write_file("/tmp/full/p.dat", old, 0600);
  int fd = open("/tmp/full/filler", O_WRONLY | O_CREAT, 0600);
  ASSERT_GE(fd, 0);
  char block[512];
  memset(block, 'x', sizeof block);
  while (write(fd, block, sizeof block) > 0) {
  }
  close(fd);

  char path[] = "/tmp/full/p.dat";
  __profile = path;
  for (int route : {0, 1, 2}) {
    SCOPED_TRACE(route);
    if (route == 1) {
      ASSERT_EQ(link(path, "/tmp/full/hard.dat"), 0);
    }
    kivtest::g_no_reserve = route == 2;
    auto names = dir_names("/tmp/full");
    auto r = kivtest::run_in_child([] { conf_set("Key3", kLonger); });
    EXPECT_EQ(r.exit_code, 255);
    EXPECT_TRUE(r.err.starts_with(
        "assert failure: ret == nbytes, No space left on device, conf_set L"))
        << r.err;
    EXPECT_EQ(Sandbox::read_file(path), old);
    EXPECT_EQ(stat_of(path).st_size, static_cast<off_t>(old.size()));
    EXPECT_EQ(dir_names("/tmp/full"), names) << "no file is left behind";

    r = kivtest::run_in_child(
        [] { conf_set_token("Key5", 0, kLonger); });
    EXPECT_EQ(r.exit_code, 255);
    EXPECT_TRUE(r.err.starts_with("assert failure: ret == nbytes, ")) << r.err;
    EXPECT_EQ(Sandbox::read_file(path), old);
    EXPECT_EQ(dir_names("/tmp/full"), names);
  }

  // With room again the same update goes through.
  kivtest::g_no_reserve = false;
  unlink("/tmp/full/filler");
  EXPECT_EQ(set("Key3", kLonger), "1\n");
  EXPECT_EQ(get("Key3"), kLonger);
  umount("/tmp/full");
}

TEST_F(ProfileTest, ReadersAndWritersWaitForTheLockOfTheFile) {
  profile("Key=old\n");
  // A writer in this process holds the lock while the children start.
  int fd = open(kPath, O_RDWR);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(flock(fd, LOCK_EX), 0);
  int pipes[2];
  ASSERT_EQ(pipe(pipes), 0);
  std::function<void()> steps[] = {
      [] {
        char buf[32] = {};
        conf_get("Key", buf, sizeof buf);
        dprintf(1, "%s\n", buf);
      },
      [] { conf_get_token("Key", 0); },
      [] { conf_set("Other", "1"); },
  };
  std::vector<pid_t> kids;
  for (auto &step : steps) {
    fflush(nullptr);
    pid_t pid = fork();
    if (pid == 0) {
      close(fd);  // the lock belongs to the open file, which fork shares
      dup2(pipes[1], 1);
      step();
      fflush(nullptr);
      _exit(0);
    }
    kids.push_back(pid);
  }
  close(pipes[1]);
  usleep(200 * 1000);
  for (pid_t pid : kids)
    EXPECT_EQ(waitpid(pid, nullptr, WNOHANG), 0) << "it waits for the lock";
  // What the lock holder writes is what the others see.
  ASSERT_EQ(ftruncate(fd, 0), 0);
  ASSERT_EQ(pwrite(fd, "Key=new\n", 8, 0), 8);
  close(fd);
  for (pid_t pid : kids) {
    int status = 0;
    EXPECT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_EQ(status, 0);
  }
  std::string out;
  char buf[64];
  for (ssize_t n; (n = read(pipes[0], buf, sizeof buf)) > 0;)
    out.append(buf, static_cast<size_t>(n));
  close(pipes[0]);
  std::multiset<std::string> lines;
  for (size_t at = 0, lf; (lf = out.find('\n', at)) != std::string::npos;
       at = lf + 1)
    lines.insert(out.substr(at, lf - at));
  EXPECT_EQ(lines, (std::multiset<std::string>{"", "1", "new", "new"}));
  EXPECT_EQ(content(), "Key=new\nOther=1\n");
}

TEST_F(ProfileTest, ConcurrentWritersLoseNoUpdate) {
  profile("Fixed=1\n");
  // Four writers of 150 updates each, every update a key of its own.
  std::string script =
      "W=" KIV_WIFICONF_PATH
      "; for j in 1 2 3 4; do"
      "  (i=1; while [ $i -le 150 ]; do"
      "     \"$W\" -f /tmp/p.dat set K${j}_$i $i >/dev/null || echo fail;"
      "     i=$((i+1)); done) &"
      "done; wait";
  kivtest::ChildResult r = kivtest::run_in_child(
      [&] { execl("/bin/sh", "sh", "-c", script.c_str(), nullptr); });
  EXPECT_EQ(r.exit_code, 0);
  EXPECT_EQ(r.out, "");
  std::string text = content();
  int kept = 0;
  for (int j = 1; j <= 4; ++j)
    for (int i = 1; i <= 150; ++i)
      kept += text.find("\nK" + std::to_string(j) + "_" + std::to_string(i) +
                        "=" + std::to_string(i) + "\n") != std::string::npos;
  EXPECT_EQ(kept, 600);
  EXPECT_EQ(dir_names("/tmp"), std::set<std::string>{"p.dat"});
}

TEST_F(ProfileTest, ProfileThatCanNotSeekIsTheCallersFatalReport) {
  ASSERT_EQ(mkfifo("/tmp/fifo", 0644), 0);
  char fifo[] = "/tmp/fifo";
  __profile = fifo;
  struct Case {
    void (*call)();
    const char *report;
  };
  const Case cases[] = {
      {[] {
         char buf[8];
         conf_get("Key", buf, sizeof buf);
       },
       "assert failure: offset >= 0, Illegal seek, conf_get L"},
      {[] { conf_get_token("Key", 0); },
       "assert failure: offset>=0, Illegal seek, conf_get_token L"},
      {[] { conf_set("Key", "v"); },
       "assert failure: nbytes >= 0, Illegal seek, conf_set L"},
      {[] { conf_set_token("Key", 0, "v"); },
       "assert failure: nbytes>=0, Illegal seek, conf_set_token L"},
  };
  // The position fails before the write: also for a caller who may only
  // read the FIFO.
  for (uid_t uid : {0u, 1000u}) {
    for (const Case &c : cases) {
      SCOPED_TRACE(c.report);
      auto r = kivtest::run_in_child([&] {
        if (uid != 0) kivtest::become(uid, uid);
        c.call();
      });
      EXPECT_EQ(r.exit_code, 255);
      EXPECT_TRUE(r.err.starts_with(c.report)) << r.err;
      struct stat st;
      ASSERT_EQ(lstat(fifo, &st), 0);
      EXPECT_TRUE(S_ISFIFO(st.st_mode)) << "the FIFO stays";
    }
  }
}
