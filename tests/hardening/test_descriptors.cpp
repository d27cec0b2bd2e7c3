// Every public call that opens files, pipes, sockets, FIFOs or uci contexts
// gives back as many descriptors as it took, on its good and its failing
// paths.  One test per subsystem; each call group runs three times.
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <thread>

#include "hardening.hpp"
#include "kiv/kiv.h"
#include "uci.h"

namespace kivtest {
namespace {

class Descriptors : public SandboxTest {};

constexpr char kNetwork[] =
    "config interface 'lan'\n"
    "\toption proto 'static'\n"
    "\tlist dns '1.1.1.1'\n"
    "\n"
    "config workmode 'workmode'\n"
    "\toption mode 'router'\n"
    "\n"
    "config rule\n"
    "\toption name 'a'\n";

constexpr char kWireless[] =
    "config wifi-iface 'ath0'\n"
    "\toption ssid 'Home'\n"
    "\toption sae '0'\n";

// The uci command the calls run: ours, or where the build links the
// system's libuci (and ours is not built) a recording stand-in.
void install_uci() {
#ifdef KIV_UCI_CLI_PATH
  Sandbox::install_command("uci", KIV_UCI_CLI_PATH);
#else
  Sandbox::fake_command("uci");
#endif
}

TEST_F(Descriptors, RuntimeCommandsFilesAndLogs) {
  Sandbox::fake_command("flood", kFloodBody);
  Sandbox::fake_command("hangup", kHangUpBody);
  Sandbox::fake_command("fails", kFailBody);
  Sandbox::fake_command("killed", kKilledBody);
  char buf[64];
  expect_no_fd_leak("exe_cmd", [&] {
    for (const char *cmd : {"echo hello", "no_such_command_here", "fails",
                            "killed", "hangup", "flood"}) {
      memset(buf, 0, sizeof buf);
      exe_cmd(cmd, buf, sizeof buf);
    }
    exe_cmd("echo unread", nullptr, 0);
  });
  expect_no_fd_leak("_do_cmd and kiv_run_system_cmd", [] {
    char *const ok[] = {const_cast<char *>("true"), nullptr};
    char *const missing[] = {const_cast<char *>("no_such_program"), nullptr};
    char *const failing[] = {const_cast<char *>("fails"), nullptr};
    _do_cmd(ok, nullptr);
    _do_cmd(ok, "/tmp/out.txt");
    _do_cmd(failing, "/tmp/out.txt");
    _do_cmd(missing, "/tmp/out.txt");
    _do_cmd(ok, "/tmp/no/such/dir/out.txt");
    kiv_run_system_cmd("/tmp/out.txt", "fails", "a", "b", "");
    kiv_run_system_cmd("/tmp/out.txt", "no_such_program", "");
  });
  expect_no_fd_leak("igd_system, kiv_create_file and file tests", [] {
    igd_system("fails %d", 1);
    igd_system("no_such_command_here");
    kiv_create_file("/tmp/made");
    kiv_create_file("/tmp/no/such/dir/file");
    is_file_exist("/tmp/made");
    isFileExist("/tmp/none");
  });
  expect_no_fd_leak("log and console", [] {
    _kiv_debug("kiv_utils", __func__, __LINE__, 3, "to syslog %d", 1);
    console_printf("to the console %s\n", "once");
  });
  // Without a console the print fails; it must still close what it opened.
  unlink("/dev/console");
  expect_no_fd_leak("console_printf without /dev/console",
                    [] { console_printf("nobody reads this\n"); });
}

TEST_F(Descriptors, ProfileStore) {
  Sandbox::write_file("/tmp/p.dat", "A=1\nKEY=1;2;3\nSSID1=Home\n", 0600);
  Sandbox::write_file("/etc/wireless/kiv/dbdc.b0.dat", "SSID1=Net\n", 0600);
  char path[] = "/tmp/p.dat";
  __profile = path;
  __quiet = 1;
  char out[8];
  expect_no_fd_leak("conf_get, conf_get_token and __locate_key", [&] {
    Capture cap(1);
    conf_get("A", out, sizeof out);
    conf_get("MISSING", out, sizeof out);
    conf_get("SSID1", out, 2);  // too long for the buffer
    conf_get_token("KEY", 1);
    conf_get_token("KEY", 9);
    conf_get_token("MISSING", 0);
    FILE *f = fopen(path, "rb");
    __locate_key(f, "KEY");
    fclose(f);
  });
  expect_no_fd_leak("conf_set and conf_set_token", [] {
    Capture cap(1);
    conf_set("A", "2");
    conf_set("NEW", "x");
    conf_set_token("KEY", 0, "9");
    conf_set_token("MISSING", 0, "9");
  });
  __profile = nullptr;
  expect_no_fd_leak("use_profile, __get_profile and KivNvram", [&] {
    use_profile("/tmp/p.dat", "alias");
    __get_profile(nullptr);
    __get_profile("/tmp/p.dat");  // not a link
    KivNvram("get", "2860", "SSID1", out, sizeof out);
    KivNvram("get", "nozone", "SSID1", out, sizeof out);
  });
  __profile = nullptr;
  __quiet = 0;
}

TEST_F(Descriptors, UciLayerAndLibuci) {
  Sandbox::write_file("/etc/config/network", kNetwork, 0644);
  char value[64];
  char items[4][64];
  unsigned int count = 0;
  uci_section_options opts{};
  opts.pairs[0] = {"name", "b"};
  opts.count = 1;
  auto all = [&] {
    Capture cap(1);
    get_uci_option(nullptr, "network", "lan", "proto", value, sizeof value);
    get_uci_option(nullptr, "nopkg", "lan", "proto", value, sizeof value);
    get_uci_option("/tmp/nodir", "network", "lan", "proto", value,
                   sizeof value);
    get_uci_option_value("network", "@rule[0]", "name", value, sizeof value);
    get_uci_option_value("network", "none", "name", value, sizeof value);
    get_uci_list(nullptr, "network", "lan", "dns", &items[0][0],
                 sizeof items[0], 4, &count);
    set_uci_option("network", "lan", "proto", "dhcp");
    set_uci_option_value("network", "lan", "mtu", "1500");
    set_uci_option("nopkg", "lan", "proto", "dhcp");
    add_uci_list(nullptr, "network", "lan", "dns", "8.8.8.8");
    del_uci_list(nullptr, "network", "lan", "dns", "8.8.8.8");
    delUciOption(nullptr, "network", "lan", "mtu");
    delUciOption(nullptr, "network", "nosec", "mtu");
    add_uci_sections(nullptr, "network", "interface", "guest");
    del_uci_options(nullptr, "network", "guest", "x");
    del_uci_sections(nullptr, "network", "guest");
    add_new_uci_section_and_option("network", "rule", opts);
    del_uci_anonymous_section_by_option("network", "rule", "name", "b");
    del_uci_anonymous_section_by_option2("network", "rule", "name", "x", "b",
                                         "c");
    del_uci_anonymous_section_by_option3("network", "rule", "name", "zz");
    delete_section_options("network", "nosec");
  };
  expect_no_fd_leak("the UCI layer", all);

  // A package that does not parse.
  Sandbox::write_file("/etc/config/network", "config x\n\toption 'open\n",
                      0644);
  expect_no_fd_leak("the UCI layer on a broken package", all);

  // Commits that fail: the configuration directory is read-only.
  Sandbox::write_file("/etc/config/network", kNetwork, 0644);
  ASSERT_EQ(0, mount("/etc/config", "/etc/config", nullptr, MS_BIND, nullptr));
  ASSERT_EQ(0, mount(nullptr, "/etc/config", nullptr,
                     MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr));
  expect_no_fd_leak("the UCI layer with failing commits", all);

  expect_no_fd_leak("libuci contexts", [] {
    uci_context *ctx = uci_alloc_context();
    uci_package *p = nullptr;
    uci_load(ctx, "network", &p);
    uci_load(ctx, "nopkg", nullptr);
    uci_ptr ptr{};
    char tuple[] = "network.lan.proto=pppoe";
    if (uci_lookup_ptr(ctx, &ptr, tuple, true) == UCI_OK) {
      uci_set(ctx, &ptr);
      uci_save(ctx, ptr.p);
      uci_commit(ctx, &ptr.p, false);  // read-only: fails
    }
    uci_free_context(ctx);
  });
}

TEST_F(Descriptors, WifiSurveyDriverAndProvisioning) {
  Sandbox::write_file("/etc/config/wireless", kWireless, 0644);
  install_uci();
  Sandbox::write_file("/etc/wireless/kiv/dbdc.b0.dat", "SSID1=Net\n", 0600);
  Sandbox::fake_command("iwpriv");
  Sandbox::fake_command("nvram_set");
  static WifiSiteEntry sites[4];
  expect_no_fd_leak("wifi_list_scan_start without its daemon",
                    [] { EXPECT_EQ(-11, wifi_list_scan_start(0, 0)); });
  Sandbox::mkdirs("/var/run");
  ASSERT_EQ(0, mkfifo("/var/run/.wifi_cfgd.fifo", 0600));
  // The request comes back as the reply on a FIFO nobody else reads.
  expect_no_fd_leak("wifi_list_scan_start on its FIFO",
                    [] { wifi_list_scan_start(1, 0); });
  expect_no_fd_leak("wifi_list_scan_read without iw",
                    [] { wifi_list_scan_read(0, 0, sites, 4); });
  for (const char *body : {kFailBody, kKilledBody, kHangUpBody, kFloodBody}) {
    Sandbox::fake_command("iw", body);
    expect_no_fd_leak(body, [] { wifi_list_scan_read(0, 0, sites, 4); });
  }
  char out[32];
  char status[40];
  expect_no_fd_leak("driver parameters", [&] {
    kiv_nvram_get(0, "SSID1", out, sizeof out);
    kiv_nvram_get(2, "SSID1", out, sizeof out);
    kiv_nvram_set(0, "WPAPSK1", "secret");
    kiv_nvram_set(1, "SSID1", "x");
    kiv_iwpriv_set(0, "Channel", "6");
    kiv_iwpriv_set(0, "WPAPSK", "secret");
    kiv_ioctl_get_apclix_connstatus("nosuchif0", status);
  });
  expect_no_fd_leak("provisioning", [] {
    Capture cap(1);
    SetWifiParaByEncrypt("ath0", 2);
    SetWifiParaByEncrypt("ath0", 5);
    SetWifiBasicPara("ath03", "Net", "key");
    SetWifiBasicPara("bogus", "Net", "key");
  });
}

TEST_F(Descriptors, DeviceStatusAddressesAndJournal) {
  Sandbox::fake_command("switch");
  Sandbox::fake_command("mii_mgr");
  Sandbox::fake_command("fact");
  Sandbox::fake_command("jffs2reset");
  install_uci();
  Sandbox::write_file("/etc/config/network", kNetwork, 0644);
  char dns[2][64];
  char d1[32] = {0}, d2[32] = {0};
  char version[256];
  unsigned char link = 0;
  auto readers = [&] {
    Capture cap(2);
    GetKeyValue(0, 7);
    wmode_link_status();
    kiv_get_port_link_status(1);
    kiv_port_link_status(1);
    GetWanLinkStatus(&link);
    getWanDnsAdress(dns);
    getRunTimeDns(d1, sizeof d1, d2, sizeof d2);
    kiv_get_software_version(version);
    get_work_mode();
  };
  expect_no_fd_leak("status readers on missing files", readers);
  Sandbox::write_file("/sys/class/gpio/gpio7/value", "1\n");
  Sandbox::write_file("/tmp/.work_moded_link_status", "link:1\n");
  Sandbox::write_file("/tmp/portStatus", "port 1 linkup\n");
  Sandbox::write_file("/sys/class/net/eth1/carrier", "1\n");
  Sandbox::write_file("/var/resolv.conf.d/resolv.conf.auto",
                      "nameserver 1.1.1.1\nnameserver 8.8.8.8\n");
  Sandbox::write_file("/etc/version", "VERSION=\"1.2.3\"\n");
  expect_no_fd_leak("status readers", readers);
  for (const char *p :
       {"/sys/class/gpio/gpio7/value", "/tmp/.work_moded_link_status",
        "/tmp/portStatus", "/sys/class/net/eth1/carrier",
        "/var/resolv.conf.d/resolv.conf.auto", "/etc/version"})
    make_unreadable_dir(p);
  expect_no_fd_leak("status readers on unreadable files", readers);

  expect_no_fd_leak("commands", [] {
    GPIOInit(7, 1);
    SetKeyValue(0, 7, 1);
    PortLedIOModeRegInit(1);
    WanPortLedEn(1);
    LanPortLedEn(2);
    down_up_eth_interface(1);
    kiv_restore_default();
  });

  char ip[16];
  uint32_t a = 0, m = 0;
  unsigned char mac[6];
  expect_no_fd_leak("address sockets", [&] {
    get_ip_or_mask_by_ifname("lo", 0x8915 /* SIOCGIFADDR */, ip, sizeof ip);
    get_ip_or_mask_by_ifname("nosuchif0", 0x8915, ip, sizeof ip);
    get_ip_and_mask_by_ifname("lo", &a, &m);
    get_ip_and_mask_by_ifname("nosuchif0", &a, &m);
    get_interface_addr("lo", &a, &m, mac);
    get_interface_addr("nosuchif0", &a, &m, mac);
  });

  expect_no_fd_leak("wmode_send_msg without its daemon",
                    [] { EXPECT_EQ(-1, wmode_send_msg("x", 1)); });
  ASSERT_EQ(0, mkfifo("/var/run/.work_moded.fifo", 0600));
  expect_no_fd_leak("wmode_send_msg", [] {
    // The daemon: opens the FIFO for reading and takes one message.
    std::thread daemon([] {
      int fd = open("/var/run/.work_moded.fifo", O_RDONLY);
      char b[16];
      while (read(fd, b, sizeof b) > 0) {
      }
      close(fd);
    });
    EXPECT_EQ(5, wmode_send_msg("hello", 5));
    daemon.join();
  });

  iptbl_rule rules[2] = {
      {"FORWARD", "tcp", "br-lan", "eth1", "ACCEPT", 1, 80, "1.2.3.4", "0.0.0.0"},
      {nullptr, nullptr, nullptr, nullptr, nullptr, 0, 0, nullptr, nullptr}};
  expect_no_fd_leak("journal", [&] {
    recoder_iptables(rules, 2);
    iptabes_exe_from_file([](iptbl_rule *) { return 0; }, "/tmp/.iptbl_save");
    recoder_iptables(rules, 2);
    iptabes_exe_from_file([](iptbl_rule *) { return -1; }, "/tmp/.iptbl_save");
    iptabes_exe_from_file([](iptbl_rule *) { return 0; }, "/tmp/none");
    make_unreadable_dir("/tmp/jdir");
    iptabes_exe_from_file([](iptbl_rule *) { return 0; }, "/tmp/jdir");
    rmdir("/tmp/jdir");
  });
}

}  // namespace
}  // namespace kivtest
