#include <gtest/gtest.h>
#include <sys/stat.h>
#include <syslog.h>

#include <cstdio>
#include <string>
#include <vector>

#include "daemon/Log.h"
#include "daemon/NetSnmpLog.h"
#include "tests/unit/daemon/DaemonTestUtil.h"

namespace PimSnmpd {
namespace {

using Log::Level;

TEST(Log, PrioritiesMatchSyslogBothWays) {
  EXPECT_EQ(Log::syslogPriority(Level::error), LOG_ERR);
  EXPECT_EQ(Log::syslogPriority(Level::warning), LOG_WARNING);
  EXPECT_EQ(Log::syslogPriority(Level::info), LOG_INFO);
  EXPECT_EQ(Log::syslogPriority(Level::debug), LOG_DEBUG);
  for (Level l : {Level::error, Level::warning, Level::info, Level::debug}) {
    EXPECT_EQ(Log::levelOf(Log::syslogPriority(l)), l);
  }
  // net-snmp logs at every syslog priority; the ones above error are errors, notice is info.
  EXPECT_EQ(Log::levelOf(LOG_EMERG), Level::error);
  EXPECT_EQ(Log::levelOf(LOG_CRIT), Level::error);
  EXPECT_EQ(Log::levelOf(LOG_NOTICE), Level::info);
}

TEST(Log, PlainLinesAreTimestampedAndJournalLinesCarryThePriority) {
  std::timespec t{};
  t.tv_sec = 1700000000;
  t.tv_nsec = 42'000'000;
  const std::string plain =
      Log::formatLine(Log::Style::plain, Level::warning, "pimsnmpd", 77, "state file refused", t);
  EXPECT_TRUE(plain.ends_with(".042 pimsnmpd[77] warning: state file refused\n")) << plain;
  EXPECT_EQ(plain.find('<'), std::string::npos) << plain;
  EXPECT_EQ(Log::formatLine(Log::Style::journal, Level::error, "pimsnmpd", 77, "bad", t),
            "<3>error: bad\n");
  EXPECT_EQ(Log::formatLine(Log::Style::journal, Level::debug, "pimsnmpd", 77, "x/1 y", t),
            "<7>debug: x/1 y\n");
}

TEST(Log, JournalStreamMustNameTheDescriptorsFile) {
  DaemonTest::TempDir dir;
  const std::string path = dir.file("stderr");
  DaemonTest::writeFile(path, "");
  FILE* f = std::fopen(path.c_str(), "r");
  ASSERT_NE(f, nullptr);
  struct stat st;
  ASSERT_EQ(fstat(fileno(f), &st), 0);
  const std::string same = std::to_string(st.st_dev) + ":" + std::to_string(st.st_ino);
  const std::string other = std::to_string(st.st_dev) + ":" + std::to_string(st.st_ino + 1);
  EXPECT_TRUE(Log::journalStream(same.c_str(), fileno(f)));
  // Inherited by a child whose stderr went elsewhere: not the journal.
  EXPECT_FALSE(Log::journalStream(other.c_str(), fileno(f)));
  for (const char* bad : {"", ":", "12", "12:", ":34", "a:b", "1:2:3"}) {
    EXPECT_FALSE(Log::journalStream(bad, fileno(f))) << bad;
  }
  EXPECT_FALSE(Log::journalStream(nullptr, fileno(f)));
  std::fclose(f);
}

struct Captured {
  Level level;
  std::string line;
  bool operator==(const Captured&) const = default;
};

class NetSnmpLogTest : public ::testing::Test {
 protected:
  NetSnmpLog log(bool accessAddedLater = false) {
    return NetSnmpLog(
        [this](Level l, std::string_view s) {
          lines.push_back({l, std::string(s)});
        },
        accessAddedLater);
  }
  std::vector<Captured> lines;
};

TEST_F(NetSnmpLogTest, PiecesBecomeOneLineAtTheFirstPiecesPriority) {
  NetSnmpLog l = log();
  l.message(LOG_WARNING, "conf: line 2: ", 0);
  l.message(LOG_WARNING, "Warning: Unknown token: x.", 0);
  EXPECT_TRUE(lines.empty());
  l.message(LOG_INFO, "\nAgentX master disconnected us\nreconnecting in 5 ", 0);
  EXPECT_EQ(lines,
            (std::vector<Captured>{{Level::warning, "conf: line 2: Warning: Unknown token: x."},
                                   {Level::info, "AgentX master disconnected us"}}));
  l.flush(0);
  EXPECT_EQ(lines.back(), (Captured{Level::info, "reconnecting in 5"}));
  l.flush(0);
  EXPECT_EQ(lines.size(), 3u);
}

TEST_F(NetSnmpLogTest, AdviceForAStockSnmpdIsDropped) {
  NetSnmpLog l = log();
  l.message(LOG_INFO, "Created directory: /var/lib/pimsnmpd/cert_indexes\n", 0);
  l.message(LOG_WARNING, "AgentX session to master agent attempted to be re-opened.\n", 0);
  l.message(LOG_WARNING,
            "Warning: no access control information configured.\n"
            "  (Config search path: /etc/snmp:/usr/share/snmp)\n"
            "  It's unlikely this agent can serve any useful purpose in this state.\n"
            "  Run \"snmpconf -g basic_setup\" to help you configure the pimsnmpd.conf file.\n",
            0);
  EXPECT_EQ(lines, (std::vector<Captured>{
                       {Level::warning, "Warning: no access control information configured."}}));
  // With communities added as contexts come up, the warning is not true for long.
  lines.clear();
  NetSnmpLog later = log(true);
  later.message(LOG_WARNING, "Warning: no access control information configured.\n", 0);
  later.message(LOG_ERR, "cannot bind udp:127.0.0.1:161\n", 0);
  EXPECT_EQ(lines, (std::vector<Captured>{{Level::error, "cannot bind udp:127.0.0.1:161"}}));
}

TEST_F(NetSnmpLogTest, ARepeatWithinAMomentIsWrittenOnce) {
  NetSnmpLog l = log();
  l.message(LOG_ERR, "/x.conf: No such file or directory\n", 10.0);
  l.message(LOG_ERR, "/x.conf: No such file or directory\n", 10.001);
  EXPECT_EQ(lines.size(), 1u);
  // Later, it is news again (a reload, a reconnect attempt).
  l.message(LOG_ERR, "/x.conf: No such file or directory\n", 10.0 + 1.0);
  EXPECT_EQ(lines.size(), 2u);
  // Only the same line counts as a repeat.
  l.message(LOG_ERR, "other\n", 11.0);
  l.message(LOG_ERR, "/x.conf: No such file or directory\n", 11.0);
  EXPECT_EQ(lines.size(), 4u);
  // Blank lines and indentation carry nothing.
  l.message(LOG_ERR, "\n   \n", 12.0);
  EXPECT_EQ(lines.size(), 4u);
}

}  // namespace
}  // namespace PimSnmpd
