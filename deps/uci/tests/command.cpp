// The uci command, on private directories (-c/-t) and on the default
// paths inside the sandbox.
#include "helpers.hpp"

#include <sandbox.hpp>

#include <stdlib.h>

using namespace ucitest;
using namespace std::string_literals;

namespace {

const char kNet[] =
    "config interface 'lan'\n"
    "\toption ifname eth0\n"
    "\toption proto static\n"
    "\toption ipaddr 192.168.1.1\n"
    "\tlist dns 1.1.1.1\n"
    "\tlist dns 8.8.8.8\n"
    "\n"
    "config interface 'wan'\n"
    "\toption proto dhcp\n"
    "\n"
    "config route\n"
    "\toption target 10.0.0.0\n"
    "\toption gw 192.168.1.254\n"
    "\n"
    "config route\n"
    "\toption target 10.1.0.0\n"
    "\n"
    "config workmode 'workmode'\n"
    "\toption mode router\n";

class Command : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!*kUciCommand) GTEST_SKIP() << "our uci command is not built: " << kNotOurs;
    mkdir((tmp_ / "conf").c_str(), 0755);
    write_file(conf("n"), kNet);
  }
  std::string conf(const std::string &p) { return tmp_ / ("conf/" + p); }
  std::string save(const std::string &p) { return tmp_ / ("save/" + p); }
  // Runs uci -c CONF -t SAVE ARGS...
  Result uci(std::vector<std::string> args, const std::string &in = "") {
    std::vector<std::string> argv = {kUciCommand, "-C", "", "-c", tmp_ / "conf", "-t", tmp_ / "save"};
    argv.insert(argv.end(), args.begin(), args.end());
    return run(argv, in);
  }
  std::string out(std::vector<std::string> args) {
    Result r = uci(args);
    EXPECT_EQ(r.rc, 0) << args.back() << ": " << r.err;
    return r.out;
  }
  void expect_error(std::vector<std::string> args, int rc, const std::string &err) {
    Result r = uci(args);
    EXPECT_EQ(r.rc, rc) << args.back();
    EXPECT_EQ(r.err, err) << args.back();
    EXPECT_EQ(r.out, "") << args.back();
  }
  TempDir tmp_;
};

}  // namespace

TEST_F(Command, ShowAndGet) {
  EXPECT_EQ(out({"show", "n"}),
            "n.lan=interface\nn.lan.ifname='eth0'\nn.lan.proto='static'\n"
            "n.lan.ipaddr='192.168.1.1'\nn.lan.dns='1.1.1.1' '8.8.8.8'\n"
            "n.wan=interface\nn.wan.proto='dhcp'\n"
            "n.@route[0]=route\nn.@route[0].target='10.0.0.0'\nn.@route[0].gw='192.168.1.254'\n"
            "n.@route[1]=route\nn.@route[1].target='10.1.0.0'\n"
            "n.workmode=workmode\nn.workmode.mode='router'\n");
  EXPECT_NE(out({"-X", "show", "n"}).find("n.cfg04c8b4.target='10.1.0.0'\n"), std::string::npos);
  EXPECT_EQ(out({"show", "n.@route[1]"}), "n.cfg04c8b4=route\nn.cfg04c8b4.target='10.1.0.0'\n");
  EXPECT_EQ(out({"show", "n.@interface[1].proto=ignored"}), "n.wan.proto='dhcp'\n");
  EXPECT_EQ(out({"get", "n.lan.dns"}), "1.1.1.1 8.8.8.8\n");
  EXPECT_EQ(out({"-d", ",", "get", "n.lan.dns"}), "1.1.1.1,8.8.8.8\n");
  EXPECT_EQ(out({"GET", "n.lan"}), "interface\n");
  EXPECT_EQ(out({"get", "n"}), "");
  EXPECT_EQ(out({"get", "n.@route[-1].target"}), "10.1.0.0\n");
  EXPECT_EQ(out({"get", "n.@route[-2].gw"}), "192.168.1.254\n");
  EXPECT_EQ(out({"get", "n.workmode.mode"}), "router\n");
  for (const char *t : {"n.lan.nope", "n.nope.x", "none.a.b", "n.@route[2].target"})
    expect_error({"get", t}, 1, "uci: Entry not found\n");
  expect_error({"-q", "get", "n.lan.nope"}, 1, "");
  for (const char *t : {"n.lan.ifname.x", "n.lan.if-name"})
    expect_error({"get", t}, 1, "uci: Parse error\n");
  for (const char *t : {"n.@route", "n.@route[x]", "n..ifname"})
    expect_error({"get", t}, 1, "uci: Invalid argument\n");
  expect_error({"get", "n.lan.ifname=eth0"}, 1, "");
  expect_error({"show", "n.nope"}, 1, "uci: Entry not found\n");
}

TEST_F(Command, SetStagesWithoutTouchingTheFile) {
  EXPECT_EQ(out({"set", "n.lan.ipaddr=10.0.0.1"}), "");
  EXPECT_EQ(read_file(conf("n")), kNet);
  EXPECT_EQ(read_file(save("n")), "n.lan.ipaddr='10.0.0.1'\n");
  EXPECT_EQ(out({"get", "n.lan.ipaddr"}), "10.0.0.1\n");
  out({"set", "n.lan.proto=static"});
  out({"set", "n.wan=interface"});
  out({"set", "n.guest=interface"});
  out({"set", "n.guest.proto=static"});
  EXPECT_EQ(out({"show", "n.guest"}), "n.guest=interface\nn.guest.proto='static'\n");
  expect_error({"set", "n.nope.proto=static"}, 1, "uci: Invalid argument\n");
  expect_error({"set", "none.a.b=1"}, 1, "uci: Entry not found\n");
  expect_error({"set", "n=foo"}, 1, "uci: Invalid argument\n");
  expect_error({"set", "n.x=bad type"}, 1, "uci: Invalid argument\n");
  expect_error({"set", "n.lan"}, 1, "uci: Invalid argument\n");
  expect_error({"set", "n.lan.bad-name=1"}, 1, "uci: Parse error\n");
  expect_error({"set", "n.lan.x=a\x01"}, 1, "uci: Parse error\n");
  out({"set", "n.lan.q=it's"});
  out({"set", "n.lan.bs=back\\slash"});
  EXPECT_EQ(out({"get", "n.lan.q"}), "it's\n");
  EXPECT_EQ(out({"show", "n.lan.q"}), "n.lan.q='it'\\''s'\n");
  out({"set", "n.lan.ipaddr="});
  out({"set", "n.wan="});
  out({"set", "n.lan.nope="});
  out({"set", "n.@route[0]=hostroute"});
  EXPECT_EQ(read_file(save("n")),
            "n.lan.ipaddr='10.0.0.1'\nn.guest='interface'\nn.guest.proto='static'\n"
            "n.lan.q='it'\\''s'\nn.lan.bs='back\\slash'\n"
            "-n.lan.ipaddr\n-n.wan\nn.cfg03c8b4='hostroute'\n");
  std::string show = out({"show", "n"});
  EXPECT_NE(show.find("n.cfg03c8b4=hostroute\n"), std::string::npos);
  EXPECT_NE(show.find("n.@route[0]=route\nn.@route[0].target='10.1.0.0'\n"), std::string::npos);
  EXPECT_EQ(out({"changes", "n"}),
            "n.lan.ipaddr='10.0.0.1'\nn.guest='interface'\nn.guest.proto='static'\n"
            "n.lan.q='it'\\''s'\nn.lan.bs='back\\slash'\n"
            "-n.lan.ipaddr\n-n.wan\nn.cfg03c8b4='hostroute'\n");
  out({"commit", "n"});
  std::string file = read_file(conf("n"));
  EXPECT_NE(file.find("\toption bs 'back\\slash'\n"), std::string::npos);
  EXPECT_NE(file.find("\nconfig hostroute 'cfg03c8b4'\n"), std::string::npos);
  EXPECT_EQ(read_file(save("n")), "");
  EXPECT_EQ(out({"changes", "n"}), "");
}

TEST_F(Command, ListsDeleteAndRename) {
  out({"set", "n.lan.dns=9.9.9.9"});
  out({"add_list", "n.lan.ifname=eth1"});
  EXPECT_EQ(out({"changes"}), "n.lan.dns='9.9.9.9'\nn.lan.ifname+='eth1'\n");
  out({"commit"});
  const std::string lan =
      "\nconfig interface 'lan'\n\tlist ifname 'eth0'\n\tlist ifname 'eth1'\n"
      "\toption proto 'static'\n\toption ipaddr '192.168.1.1'\n\toption dns '9.9.9.9'\n\n";
  EXPECT_EQ(read_file(conf("n")).substr(0, lan.size()), lan);
  EXPECT_EQ(out({"get", "n.lan.ifname"}), "eth0 eth1\n");

  write_file(conf("n"), kNet);
  out({"delete", "n.lan.dns=1"});
  EXPECT_EQ(out({"get", "n.lan.dns"}), "1.1.1.1\n");
  out({"delete", "n.lan.dns=5"});
  expect_error({"delete", "n.lan.dns=x"}, 1, "");
  expect_error({"delete", "n.lan.ifname=eth0"}, 1, "");
  out({"delete", "n.lan.ipaddr=192.168.1.1"});
  out({"del", "n.@route[0]"});
  EXPECT_EQ(out({"get", "n.@route[0].target"}), "10.1.0.0\n");
  expect_error({"delete", "n"}, 1, "uci: Invalid argument\n");
  expect_error({"delete", "n.nope"}, 1, "uci: Entry not found\n");
  expect_error({"delete", "n.lan.owe=1"}, 1, "uci: Entry not found\n");
  EXPECT_EQ(out({"changes", "n"}), "-n.lan.dns\n-n.lan.ipaddr\n-n.cfg03c8b4\n");

  out({"add_list", "n.lan.dns=1.1.1.1"});
  out({"add_list", "n.lan.dns=1.1.1.1"});
  EXPECT_EQ(out({"get", "n.lan.dns"}), "1.1.1.1 1.1.1.1 1.1.1.1\n");
  out({"del_list", "n.lan.dns=1.1.1.1"});
  EXPECT_EQ(out({"show", "n.lan.dns"}), "n.lan.dns=\n");
  out({"del_list", "n.lan.dns=7.7.7.7"});
  out({"del_list", "n.lan.proto=static"});
  out({"del_list", "n.lan.nope=x"});
  expect_error({"add_list", "n.nope.dns=1"}, 1, "uci: Invalid argument\n");
  EXPECT_NE(read_file(save("n")).find("~n.lan.dns='7.7.7.7'\n"), std::string::npos);
  EXPECT_EQ(read_file(save("n")).find("n.lan.proto='static'"), std::string::npos);

  out({"rename", "n.lan=home"});
  out({"rename", "n.home.ifname=device"});
  out({"ren", "n.wan=home"});
  EXPECT_EQ(out({"get", "n.home.device"}), "eth0\n");
  expect_error({"rename", "n.workmode"}, 1, "uci: Invalid argument\n");
  expect_error({"rename", "n.nope=x"}, 1, "uci: Entry not found\n");
  out({"commit", "n"});
  // Two sections of one type and name merge on the next load.
  EXPECT_EQ(out({"show", "n.home"}), "n.home=interface\nn.home.device='eth0'\nn.home.proto='dhcp'\n");
}

TEST_F(Command, AddRevertAndCommitLayout) {
  EXPECT_EQ(out({"add", "n", "route"}), "cfg06c8b4\n");
  EXPECT_EQ(out({"add", "n", "route"}), "cfg07c8b4\n");
  EXPECT_EQ(out({"add", "n", "alias"}), "cfg084d8f\n");
  EXPECT_EQ(read_file(save("n")), "+n.cfg06c8b4='route'\n+n.cfg07c8b4='route'\n+n.cfg084d8f='alias'\n");
  std::string show = out({"show", "n"});
  EXPECT_NE(show.find("n.workmode.mode='router'\nn.@route[2]=route\nn.@route[3]=route\nn.@alias[0]=alias\n"),
            std::string::npos);
  EXPECT_EQ(out({"add", "n", "bad type"}), "cfg0969ce\n");
  EXPECT_EQ(out({"show", "n"}), show);
  EXPECT_NE(out({"changes", "n"}).find("n.cfg0969ce='bad type'\n"), std::string::npos);
  Result r = uci({"add", "none", "x"});
  EXPECT_EQ(r.rc, 3);

  write_file(conf("e"), "");
  EXPECT_EQ(out({"add", "e", "thing"}), "cfg01ef3f\n");
  out({"set", "e.@thing[0].k=v"});
  out({"commit", "e"});
  EXPECT_EQ(read_file(conf("e")), "\nconfig thing\n\toption k 'v'\n\n");
  out({"delete", "e.@thing[0]"});
  out({"commit", "e"});
  EXPECT_EQ(read_file(conf("e")), "\n");
  EXPECT_EQ(out({"export", "e"}), "package e\n\n");
  EXPECT_NE(out({"-n", "export", "n"}).find("\nconfig route 'cfg03c8b4'\n"), std::string::npos);
  EXPECT_EQ(out({"export", "n"}).find("cfg03c8b4"), std::string::npos);

  write_file(conf("n"), kNet);
  write_file(save("n"), "");
  out({"set", "n.lan.ipaddr=1"});
  out({"set", "n.lan.mtu=2"});
  out({"set", "n.wan.proto=x"});
  out({"add_list", "n.lan.dns=3"});
  out({"delete", "n.@route[0]"});
  out({"revert", "n.lan.ipaddr"});
  EXPECT_EQ(read_file(save("n")), "n.lan.mtu='2'\nn.wan.proto='x'\n|n.lan.dns='3'\n-n.cfg03c8b4\n");
  out({"revert", "n.lan"});
  out({"revert", "n.@route[0]"});
  EXPECT_EQ(read_file(save("n")), "n.wan.proto='x'\n-n.cfg03c8b4\n");
  expect_error({"revert", "n.wan=x"}, 1, "");
  out({"revert", "n"});
  EXPECT_EQ(read_file(save("n")), "");
  EXPECT_TRUE(exists(save("n")));

  // A commit with nothing staged keeps the file byte for byte.
  const std::string commented = "# comment\nconfig t a\n\toption x \"1\"\n";
  write_file(conf("k"), commented);
  out({"commit", "k"});
  EXPECT_EQ(read_file(conf("k")), commented);
  // A commit canonicalises quoting and drops comments.
  write_file(conf("q"),
             "# c\nconfig t 'a'\n\toption s \"say \\\"hi\\\" \\\\ back\"\n\toption q 'it'\\''s'\n"
             "\toption c abc\\\ndef\n");
  out({"set", "q.a.n=1"});
  out({"commit", "q"});
  EXPECT_EQ(read_file(conf("q")),
            "\nconfig t 'a'\n\toption s 'say \"hi\" \\ back'\n\toption q 'it'\\''s'\n"
            "\toption c 'abcdef'\n\toption n '1'\n\n");
}

TEST_F(Command, ParseErrorsAndLenientMode) {
  // (a NUL byte ends its line: the quote behind it does not open)
  write_file(conf("bad"), "config t a\n\toption o 1\0'\n\tbogus line\n"s);
  expect_error({"show", "bad"}, 1, "uci: Parse error (invalid command) at line 3, byte 1\n");
  expect_error({"get", "bad.a.o"}, 1, "uci: Parse error (invalid command) at line 3, byte 1\n");
  Result r = uci({"-S", "-q", "show", "bad"});
  EXPECT_EQ(r.rc, 0);
  EXPECT_EQ(r.out, "bad.a=t\nbad.a.o='1'\n");
  EXPECT_EQ(r.err, "Parse error (invalid command) at line 3, byte 1\n");
  // Showing everything: names in order, skipping x.bak and directories;
  // a broken package reports and the others still print.
  write_file(conf("x.bak"), "config t a\n");
  mkdir(conf("sub").c_str(), 0755);
  write_file(conf("a"), "config t a\n");
  r = uci({"show"});
  EXPECT_EQ(r.rc, 0);
  EXPECT_EQ(r.out.substr(0, 8), "a.a=t\nn.");
  EXPECT_EQ(r.err, "uci: Parse error (invalid command) at line 3, byte 1\n");

  TempDir empty;
  r = run({kUciCommand, "-c", empty.path(), "show"});
  EXPECT_EQ(r.rc, 1);
  EXPECT_EQ(r.err, "uci: Entry not found\n");
}

TEST_F(Command, DeltaDirectoryOptions) {
  std::string P = tmp_ / "P";
  Result r = run({kUciCommand, "-c", tmp_ / "conf", "-P", P, "set", "n.lan.proto=x"});
  EXPECT_EQ(r.rc, 0);
  r = run({kUciCommand, "-c", tmp_ / "conf", "-P", P, "commit", "n"});
  EXPECT_EQ(r.rc, 0);
  EXPECT_EQ(read_file(conf("n")), kNet);
  EXPECT_EQ(read_file(P + "/n"), "n.lan.proto='x'\n");

  std::string O = tmp_ / "O";
  mkdir(O.c_str(), 0755);
  write_file(O + "/n", "n.lan.proto='dhcp'\n");
  EXPECT_EQ(out({"-p", O, "show", "n.lan.proto"}), "n.lan.proto='dhcp'\n");
  EXPECT_EQ(out({"show", "n.lan.proto"}), "n.lan.proto='static'\n");
  out({"set", "n.lan.mtu=1"});
  EXPECT_EQ(out({"-p", O, "changes", "n"}), "n.lan.proto='dhcp'\nn.lan.mtu='1'\n");
  out({"-p", O, "commit", "n"});
  EXPECT_NE(read_file(conf("n")).find("\toption proto 'dhcp'\n"), std::string::npos);
  EXPECT_EQ(read_file(save("n")), "");
  EXPECT_EQ(read_file(O + "/n"), "n.lan.proto='dhcp'\n");
}

TEST_F(Command, ImportExportAndModes) {
  Result r = uci({"import", "t2"}, "config t a\n\toption k v\n");
  EXPECT_EQ(r.rc, 0) << r.err;
  EXPECT_EQ(read_file(conf("t2")), "\nconfig t 'a'\n\toption k 'v'\n\n");
  EXPECT_EQ(file_mode(conf("t2")), 0600u);
  r = uci({"import"}, "config t a\n");
  EXPECT_EQ(r.rc, 1);
  EXPECT_EQ(r.err, "uci: Parse error (attempting to import a file without a package name) at line 1, byte 0\n");
  r = uci({"import"}, "package p1\nconfig t a\npackage p2\nconfig u b\n");
  EXPECT_EQ(r.rc, 0);
  EXPECT_EQ(read_file(conf("p2")), "\nconfig u 'b'\n\n");
  r = uci({"-m", "import", "n"}, "config extra 'x'\n\toption k 'v'\n");
  EXPECT_EQ(r.rc, 0) << r.err;
  EXPECT_EQ(read_file(save("n")), "n.x='extra'\nn.x.k='v'\n");
  EXPECT_EQ(out({"export", "t2"}), "package t2\n\nconfig t 'a'\n\toption k 'v'\n\n");

  // Modes: the save directory follows the configuration directory, the
  // delta file and the committed file follow the configuration file.
  chmod((tmp_ / "conf").c_str(), 0750);
  chmod(conf("n").c_str(), 0640);
  mode_t old = umask(022);
  out({"-t", tmp_ / "fresh", "set", "n.lan.proto=x"});
  umask(old);
  EXPECT_EQ(file_mode(tmp_ / "fresh"), 0750u);
  EXPECT_EQ(file_mode(tmp_ / "fresh/n"), 0640u);
  out({"-t", tmp_ / "fresh", "commit", "n"});
  EXPECT_EQ(file_mode(conf("n")), 0640u);
  EXPECT_EQ(out({"get", "n.lan.proto"}), "x\n");
}

TEST_F(Command, ListQuotingUsageAndExitCodes) {
  write_file(conf("t"), "config t a\n\tlist l plain\n\tlist l 'two words'\n\tlist l \"it's\"\n"
                        "\tlist l ''\n\tlist l 'tab\there'\n");
  EXPECT_EQ(out({"get", "t.a.l"}), "plain 'two words' it's  'tab\there'\n");
  EXPECT_EQ(out({"show", "t.a.l"}), "t.a.l='plain' 'two words' 'it'\\''s' '' 'tab\there'\n");
  EXPECT_EQ(out({"-d", "|", "get", "t.a.l"}), "plain|'two words'|it's||'tab\there'\n");

  write_file(conf("p"), "config t 'first'\nconfig t\nconfig u\n\toption n uval\nconfig t 'last'\n");
  EXPECT_EQ(out({"show", "p"}), "p.first=t\np.@t[1]=t\np.@u[0]=u\np.@u[0].n='uval'\np.last=t\n");
  EXPECT_EQ(out({"get", "p.@t[2]"}), "t\n");
  EXPECT_EQ(out({"get", "p.@[2].n"}), "uval\n");
  out({"delete", "p.@t[0]"});
  EXPECT_EQ(out({"show", "p"}), "p.@t[0]=t\np.@u[0]=u\np.@u[0].n='uval'\np.last=t\n");

  Result r = uci({"set", "n.lan.key=new", "secret"});
  EXPECT_EQ(r.rc, 255);
  EXPECT_NE(r.err.find("Usage: uci"), std::string::npos);
  EXPECT_EQ(uci({"frobnicate"}).rc, 255);
  EXPECT_EQ(uci({"add", "n"}).rc, 255);
  EXPECT_EQ(uci({}).rc, 0);
  r = uci({"-z"});
  EXPECT_EQ(r.rc, 0);
  EXPECT_NE(r.err.find("invalid option"), std::string::npos);
  r = uci({"batch"}, "set n.lan.proto=\"Hello,\n  World\"\nget n.lan.proto\n# it's\n\nexit\nget n.lan.ifname\n");
  EXPECT_EQ(r.rc, 0);
  EXPECT_EQ(r.out, "Hello,\n  World\n");
  // Each line runs as its own command: the second removal sees the
  // numbering of the committed file.
  EXPECT_EQ(uci({"batch"}, "del n.@route[0]\ncommit n\ndel n.@route[0]\ncommit n\n").rc, 0);
  EXPECT_EQ(read_file(conf("n")).find("config route"), std::string::npos);
}

// The default paths: /etc/config and /tmp/.uci, through the shell, as the
// library's callers run the command.
class CommandOnDefaultPaths : public kivtest::SandboxTest {
 protected:
  void SetUp() override {
    if (!*kUciCommand) GTEST_SKIP() << "our uci command is not built: " << kNotOurs;
    SandboxTest::SetUp();
  }
};

TEST_F(CommandOnDefaultPaths, CallersPipelinesWork) {
  using kivtest::Sandbox;
  Sandbox::install_command("uci", kUciCommand);
  Sandbox::write_file("/etc/config/network", kNet, 0644);
  Sandbox::write_file("/etc/config/wireless",
                      "config wifi-iface 'ath0'\n\toption ssid 'Home Net'\n\toption encryption psk2\n"
                      "\toption sae 1\n"
                      "config wifi-iface\n\toption ssid 'guest'\n\toption encryption none\n"
                      "config wifi-iface\n\toption ssid 'guest'\n\toption encryption psk2\n",
                      0644);
  auto sh = [](const std::string &cmd) {
    return run({"/bin/sh", "-c", "PATH=/usr/sbin:/usr/bin:/sbin:/bin; " + cmd});
  };
  EXPECT_EQ(sh("uci get network.workmode.mode").out, "router\n");
  EXPECT_EQ(sh("uci show wireless | grep wifi-iface | grep -c \"ssid='guest'\"").out, "2\n");
  EXPECT_EQ(sh("uci show wireless | grep wifi-iface | grep -c \"encryption='psk2'\"").out, "1\n");
  Result r = sh("uci show wireless | grep wifi-iface | grep -c \"owe='1'\"");
  EXPECT_EQ(r.out, "0\n");
  EXPECT_EQ(r.rc, 1);

  EXPECT_EQ(sh("uci set wireless.ath0.encryption=psk2+ccmp").rc, 0);
  EXPECT_EQ(sh("uci delete wireless.ath0.sae=1").rc, 0);
  r = sh("uci delete wireless.ath0.owe=1");
  EXPECT_EQ(r.rc, 1);
  EXPECT_EQ(r.err, "uci: Entry not found\n");
  EXPECT_EQ(sh("uci set wireless.ath1=wifi-iface").rc, 0);
  EXPECT_EQ(sh("uci set wireless.ath1.disabled='0'").rc, 0);
  EXPECT_EQ(Sandbox::read_file("/tmp/.uci/wireless"),
            "wireless.ath0.encryption='psk2+ccmp'\n-wireless.ath0.sae\n"
            "wireless.ath1='wifi-iface'\nwireless.ath1.disabled='0'\n");
  EXPECT_EQ(sh("uci get wireless.ath1.disabled").out, "0\n");
  // Nothing reaches the configuration file before a commit.
  EXPECT_EQ(Sandbox::read_file("/etc/config/wireless").find("ath1"), std::string::npos);
  EXPECT_EQ(sh("uci commit wireless").rc, 0);
  EXPECT_NE(Sandbox::read_file("/etc/config/wireless").find("config wifi-iface 'ath1'\n\toption disabled '0'\n"),
            std::string::npos);
  EXPECT_EQ(Sandbox::read_file("/tmp/.uci/wireless"), "");
}
