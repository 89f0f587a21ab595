#include <gtest/gtest.h>

#include "daemon/Options.h"
#include "platform/Trace/Trace.h"

namespace PimSnmpd {
namespace {

ParsedArgs parse(std::initializer_list<std::string> args) {
  return parseArgs(std::vector<std::string>(args));
}

TEST(Options, DefaultsAreAMasterOnLoopback1161) {
  const ParsedArgs p = parse({"--state", "s.json"});
  ASSERT_TRUE(p.options) << p.error;
  EXPECT_EQ(p.options->role, Options::Role::master);
  EXPECT_EQ(p.options->listen, "udp:127.0.0.1:1161,tcp:127.0.0.1:1161");
  EXPECT_EQ(p.options->stateFile, "s.json");
  EXPECT_TRUE(p.options->neighborLossEnabled);
  EXPECT_EQ(p.options->neighborLossDelay, 0);
  EXPECT_EQ(p.options->log, Options::LogTarget::toStderr);
  EXPECT_FALSE(p.options->simulate);
}

TEST(Options, ReadsEveryValueInBothSpellings) {
  const ParsedArgs p = parse({"--feed=unix:/tmp/f.sock",
                              "--agentx",
                              "/tmp/ax",
                              "--agentx-ping=2",
                              "--config",
                              "c.conf",
                              "--persistent-dir",
                              "/tmp/p",
                              "--neighbor-loss",
                              "off",
                              "--neighbor-loss-reason",
                              "maintenance",
                              "--neighbor-loss-delay",
                              "2.5",
                              "--log=syslog",
                              "--max-line",
                              "4096",
                              "--feed-mode",
                              "0600",
                              "--pid-file",
                              "x.pid"});
  ASSERT_TRUE(p.options) << p.error;
  const Options& o = *p.options;
  EXPECT_EQ(o.feedSocket, "/tmp/f.sock");
  EXPECT_EQ(o.role, Options::Role::subagent);
  EXPECT_EQ(o.agentxSocket, "/tmp/ax");
  EXPECT_EQ(o.agentxPing, 2);
  EXPECT_EQ(o.configFile, "c.conf");
  EXPECT_EQ(o.persistentDir, "/tmp/p");
  EXPECT_FALSE(o.neighborLossEnabled);
  EXPECT_EQ(o.neighborLossReason, "maintenance");
  EXPECT_DOUBLE_EQ(o.neighborLossDelay, 2.5);
  EXPECT_EQ(o.log, Options::LogTarget::toSyslog);
  EXPECT_EQ(o.maxLine, 4096u);
  EXPECT_EQ(o.feedMode, 0600u);
  EXPECT_EQ(o.pidFile, "x.pid");
}

TEST(Options, RefusesWhatCannotWork) {
  struct Case {
    std::vector<std::string> args;
    std::string needle;
  };
  const Case cases[] = {
      {{}, "nothing to serve"},
      {{"--feed", "/tmp/f.sock"}, "unix:PATH"},
      {{"--feed", "unix:"}, "unix:PATH"},
      {{"--state", "s", "--bogus"}, "unknown option '--bogus'"},
      {{"--state", "s", "extra"}, "unexpected argument 'extra'"},
      {{"--state"}, "--state needs a value"},
      {{"--state", "s", "--agentx", "/x", "--listen", "udp:127.0.0.1:5"}, "exclude each other"},
      {{"--state", "s", "--agentx", "/x", "--community-prefix", "public"}, "master agent role"},
      {{"--state", "s", "--neighbor-loss", "maybe"}, "on or off"},
      {{"--state", "s", "--neighbor-loss-delay", "-1"}, "0..86400"},
      {{"--state", "s", "--neighbor-loss-delay", "5s"}, "0..86400"},
      {{"--state", "s", "--agentx-ping", "0"}, "1..3600"},
      {{"--state", "s", "--log", "file"}, "stderr or syslog"},
      {{"--state", "s", "--max-line", "10"}, "at least 1024"},
      {{"--state", "s", "--feed-mode", "999"}, "octal"},
      {{"--state", "s", "--community-prefix", "a b"}, "without spaces"},
      {{"--simulate"}, "needs --state"},
      {{"--state", "s", "--trace", "Pim/x"}, "malformed"},
  };
  for (const Case& c : cases) {
    const ParsedArgs p = parseArgs(c.args);
    EXPECT_FALSE(p.options) << c.needle;
    EXPECT_NE(p.error.find(c.needle), std::string::npos) << "error: " << p.error;
  }
}

TEST(Options, CheckingATraceSettingLeavesTheCurrentOneAlone) {
  Trace::disableAll();
  ASSERT_TRUE(Trace::enable("SnmpAgent/2"));
  const std::string before = Trace::setting();
  const ParsedArgs p = parse({"--state", "s", "--trace", "PimSnmpAgent/8,Pim*MIB/0-2"});
  ASSERT_TRUE(p.options) << p.error;
  EXPECT_EQ(p.options->trace, "PimSnmpAgent/8,Pim*MIB/0-2");
  EXPECT_EQ(Trace::setting(), before);
  Trace::disableAll();
}

TEST(Options, HelpAndVersionStopParsing) {
  EXPECT_TRUE(parse({"--state", "s", "--help"}).help);
  EXPECT_TRUE(parse({"-h"}).help);
  EXPECT_TRUE(parse({"--version", "--bogus"}).version);
  const std::string text = usage("pimsnmpd");
  for (const char* option :
       {"--state", "--feed", "--listen", "--agentx", "--config", "--community-prefix",
        "--neighbor-loss-delay", "--trace", "--log", "--simulate"}) {
    EXPECT_NE(text.find(option), std::string::npos) << option;
  }
}

}  // namespace
}  // namespace PimSnmpd
