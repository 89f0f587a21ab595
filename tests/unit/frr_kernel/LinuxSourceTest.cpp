// The Linux source against a real kernel: a private network namespace where the test itself
// plays the multicast routing daemon (an mroute socket with VIFs and MFC entries), so dumps,
// VIFs, mc_forwarding and notifications are the kernel's own. Needs root or user namespaces;
// skipped otherwise.

#include <arpa/inet.h>
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <linux/mroute.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "pimsnmp-frr/kernel/Kernel.h"

namespace PimSnmpFrr::Kernel {
namespace {

// Inside the death-test child: a failed check ends it with the reason on stderr.
#define REQUIRE(cond, ...)                                               \
  do {                                                                   \
    if (!(cond)) {                                                       \
      std::fprintf(stderr, "%s:%d: %s: %s\n", __FILE__, __LINE__, #cond, \
                   fmt::format(__VA_ARGS__).c_str());                    \
      std::_Exit(1);                                                     \
    }                                                                    \
  } while (0)

void writeFile(const char* path, const std::string& text) {
  std::FILE* f = std::fopen(path, "w");
  REQUIRE(f && std::fputs(text.c_str(), f) >= 0 && std::fclose(f) == 0, "{}: {}", path,
          std::strerror(errno));
}

// Without root, a user namespace first: its root may then own a network namespace.
bool enterUserNamespace() {
  if (::geteuid() == 0) return true;
  const uid_t uid = ::geteuid();
  const gid_t gid = ::getegid();
  if (::unshare(CLONE_NEWUSER) != 0) return false;
  writeFile("/proc/self/setgroups", "deny");
  writeFile("/proc/self/uid_map", fmt::format("0 {} 1", uid));
  writeFile("/proc/self/gid_map", fmt::format("0 {} 1", gid));
  return true;
}

// Whether this process may make a private network namespace (root, or user namespaces).
bool canMakeNetns() {
  const pid_t pid = ::fork();
  if (pid == 0) {
    std::_Exit(enterUserNamespace() && ::unshare(CLONE_NEWNET | CLONE_NEWNS) == 0 ? 0 : 1);
  }
  int status = 1;
  ::waitpid(pid, &status, 0);
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

void privateNetns() {
  REQUIRE(enterUserNamespace(), "user namespace: {}", std::strerror(errno));
  REQUIRE(::unshare(CLONE_NEWNET | CLONE_NEWNS) == 0, "unshare: {}", std::strerror(errno));
  // /sys shows the mounter's namespace: mount a fresh one, privately.
  REQUIRE(::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0, "{}",
          std::strerror(errno));
  ::umount2("/sys", MNT_DETACH);
  REQUIRE(::mount("sysfs", "/sys", "sysfs", 0, nullptr) == 0, "mount sysfs: {}",
          std::strerror(errno));
}

void loopbackUp() {
  const int fd = ::socket(AF_INET, SOCK_DGRAM, 0);
  ifreq req{};
  std::strcpy(req.ifr_name, "lo");
  REQUIRE(::ioctl(fd, SIOCGIFFLAGS, &req) == 0, "{}", std::strerror(errno));
  req.ifr_flags |= IFF_UP;
  REQUIRE(::ioctl(fd, SIOCSIFFLAGS, &req) == 0, "{}", std::strerror(errno));
  ::close(fd);
}

bool readableWithin(int fd, int ms) {
  pollfd p{fd, POLLIN, 0};
  return ::poll(&p, 1, ms) == 1;
}

// The multicast routing daemon's side: VIF 0 on lo, VIF 1 the register VIF (pimreg).
struct MrouteDaemon {
  int fd = -1;
  MrouteDaemon() {
    fd = ::socket(AF_INET, SOCK_RAW, IPPROTO_IGMP);
    REQUIRE(fd >= 0, "raw IGMP socket: {}", std::strerror(errno));
    const int one = 1;
    REQUIRE(::setsockopt(fd, IPPROTO_IP, MRT_INIT, &one, sizeof(one)) == 0, "MRT_INIT: {}",
            std::strerror(errno));
    vifctl vif{};
    vif.vifc_vifi = 0;
    vif.vifc_flags = VIFF_USE_IFINDEX;
    vif.vifc_threshold = 1;
    vif.vifc_lcl_ifindex = static_cast<int>(::if_nametoindex("lo"));
    REQUIRE(::setsockopt(fd, IPPROTO_IP, MRT_ADD_VIF, &vif, sizeof(vif)) == 0, "VIF lo: {}",
            std::strerror(errno));
    vif = {};
    vif.vifc_vifi = 1;
    vif.vifc_flags = VIFF_REGISTER;
    vif.vifc_threshold = 1;
    REQUIRE(::setsockopt(fd, IPPROTO_IP, MRT_ADD_VIF, &vif, sizeof(vif)) == 0, "VIF pimreg: {}",
            std::strerror(errno));
  }
  ~MrouteDaemon() { ::close(fd); }
  void route(int op, uint32_t source, uint32_t group) {
    mfcctl mfc{};
    mfc.mfcc_origin.s_addr = htonl(source);
    mfc.mfcc_mcastgrp.s_addr = htonl(group);
    mfc.mfcc_parent = 0;
    mfc.mfcc_ttls[1] = 1;
    REQUIRE(::setsockopt(fd, IPPROTO_IP, op, &mfc, sizeof(mfc)) == 0, "MFC op {}: {}", op,
            std::strerror(errno));
  }
};

constexpr uint32_t kGroup = 0xEF090909;  // 239.9.9.9

void liveChecks() {
  privateNetns();
  std::string logged;
  LinuxSourceOptions options;
  options.log = [&](std::string_view line) { logged.append(line).append("\n"); };
  auto source = makeLinuxSource(options);
  REQUIRE(source->eventFd() >= 0, "no notification socket: {}", logged);
  REQUIRE(!source->drainEvents(), "a fresh namespace has had no events");
  auto empty = source->dumpMfc();
  REQUIRE(empty && empty->empty(), "dump before any route: {}", logged);
  REQUIRE(!source->mcForwarding(), "mc_forwarding before MRT_INIT");

  loopbackUp();
  REQUIRE(readableWithin(source->eventFd(), 2000), "no event for lo going up");
  REQUIRE(source->drainEvents(), "lo up is a change");
  REQUIRE(!source->drainEvents(), "drained");

  MrouteDaemon daemon;
  REQUIRE(source->mcForwarding(), "mc_forwarding while an mroute socket is open");
  const int lo = static_cast<int>(::if_nametoindex("lo"));
  const auto pimreg = source->ifIndex("pimreg");
  REQUIRE(pimreg && *pimreg > 0, "pimreg ifindex from /sys");
  REQUIRE(source->operState("lo") == "unknown", "lo operstate {}", source->operState("lo"));
  const auto vifs = source->vifs();
  REQUIRE((vifs == std::vector<Vif>{{0, "lo", lo}, {1, "pimreg", *pimreg}}), "{} VIFs",
          vifs.size());
  source->drainEvents();

  daemon.route(MRT_ADD_MFC, 0x0A010203, kGroup);
  daemon.route(MRT_ADD_MFC, 0, kGroup);
  REQUIRE(readableWithin(source->eventFd(), 2000), "no event for new MFC entries");
  REQUIRE(source->drainEvents(), "MFC entries are a change");
  auto dump = source->dumpMfc();
  REQUIRE(dump && dump->size() == 2, "dump of two routes: {}", logged);
  std::sort(dump->begin(), dump->end(),
            [](const MfcEntry& a, const MfcEntry& b) { return a.source < b.source; });
  const MfcEntry star{253, 0, kGroup, lo, {*pimreg}, 0, 0, 0};
  const MfcEntry sg{253, 0x0A010203, kGroup, lo, {*pimreg}, 0, 0, 0};
  REQUIRE((*dump)[0] == star, "(*,G) entry iif {}", (*dump)[0].iifIndex);
  REQUIRE((*dump)[1] == sg, "(S,G) entry iif {}", (*dump)[1].iifIndex);

  daemon.route(MRT_DEL_MFC, 0x0A010203, kGroup);
  REQUIRE(readableWithin(source->eventFd(), 2000), "no event for a deleted entry");
  REQUIRE(source->drainEvents(), "a deletion is a change");
  dump = source->dumpMfc();
  REQUIRE(dump && dump->size() == 1 && (*dump)[0] == star, "after the deletion");

  // Enough entries for a dump in several datagrams.
  for (uint32_t i = 0; i < 600; ++i) daemon.route(MRT_ADD_MFC, 0x0A020000 + i, kGroup + 1);
  dump = source->dumpMfc();
  REQUIRE(dump && dump->size() == 601, "large dump: {} entries, {}", dump ? dump->size() : 0,
          logged);
  REQUIRE(source->drainEvents(), "600 new entries are a change");
  std::_Exit(0);
}

TEST(LinuxSource, RealKernelInPrivateNamespace) {
  if (!canMakeNetns()) GTEST_SKIP() << "needs root or user namespaces for a private netns";
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_EXIT(liveChecks(), testing::ExitedWithCode(0), "");
}

// A burst far beyond the receive buffer (the socket overflows and loses notifications) reads
// as a change, leaves the socket usable, and a re-dump has every entry.
void overflowChecks() {
  privateNetns();
  loopbackUp();
  LinuxSourceOptions options;
  options.receiveBufferBytes = 1;  // the kernel's minimum
  auto source = makeLinuxSource(options);
  MrouteDaemon daemon;
  for (uint32_t i = 0; i < 2000; ++i) daemon.route(MRT_ADD_MFC, 0x0A030000 + i, kGroup);
  REQUIRE(source->drainEvents(), "an overflowed socket is a change");
  REQUIRE(!source->drainEvents(), "drained after the overflow");
  auto dump = source->dumpMfc();
  REQUIRE(dump && dump->size() == 2000, "re-dump after the overflow");
  std::_Exit(0);
}

TEST(LinuxSource, OverflowReadsAsChangeAndRecovers) {
  if (!canMakeNetns()) GTEST_SKIP() << "needs root or user namespaces for a private netns";
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_EXIT(overflowChecks(), testing::ExitedWithCode(0), "");
}

TEST(LinuxSource, NoEventsWhenNotAsked) {
  LinuxSourceOptions options;
  options.events = false;
  auto source = makeLinuxSource(options);
  EXPECT_EQ(source->eventFd(), -1);
  EXPECT_FALSE(source->drainEvents());
}

}  // namespace
}  // namespace PimSnmpFrr::Kernel
