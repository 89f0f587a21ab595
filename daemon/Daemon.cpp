#include "daemon/Daemon.h"

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <charconv>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <optional>
#include <system_error>
#include <vector>

#include "daemon/AgentTree.h"
#include "daemon/Com2SecList.h"
#include "daemon/Communities.h"
#include "daemon/ConfigFile.h"
#include "daemon/ContextLookup.h"
#include "daemon/Excerpt.h"
#include "daemon/FeedLine.h"
#include "daemon/FeedServer.h"
#include "daemon/FileWatcher.h"
#include "daemon/Log.h"
#include "daemon/NetSnmpLog.h"
#include "daemon/Poller.h"
#include "daemon/SdNotify.h"
#include "daemon/Signals.h"
#include "daemon/Simulator.h"
#include "daemon/StateKeeper.h"
#include "daemon/Status.h"
#include "daemon/SystemGroup.h"
#include "daemon/Version.h"
#include "daemon/VrfTrapSinks.h"
#include "platform/Clock/Clock.h"
#include "platform/Snmp/MibContext.h"
#include "platform/Snmp/TrapManager.h"
#include "platform/SnmpUtil/AgentHost.h"
#include "platform/SnmpUtil/SnmpUtil.h"
#include "platform/Trace/Trace.h"

// The AgentX subagent's session with its master: set while connected. net-snmp keeps it in
// the agent library without declaring it in an installed header.
extern "C" {
extern netsnmp_session* main_session;
}

namespace PimSnmpd {

namespace {

constexpr std::string_view kNotificationGroup = "pim";
constexpr std::string_view kNeighborLoss = "pimNeighborLoss";
// Editors and `cp` produce several events per save; one re-read after they settle.
constexpr double kReloadSettleSeconds = 0.05;

struct timeval toTimeval(double seconds) {
  struct timeval tv;
  tv.tv_sec = static_cast<time_t>(seconds);
  tv.tv_usec = static_cast<suseconds_t>((seconds - static_cast<double>(tv.tv_sec)) * 1e6);
  return tv;
}

Json okReply() {
  return {{"ok", true}};
}

Json errorReply(const std::string& reason) {
  return {{"ok", false}, {"errors", Json::array({{{"path", ""}, {"reason", reason}}})}};
}

}  // namespace

struct Daemon::Impl {
  explicit Impl(Options o) : options(std::move(o)) {}

  Options options;
  std::atomic<bool> stop{false};
  int exitCode = 0;
  double startTime = 0;

  Poller poller;
  std::unique_ptr<Signals> signals;
  std::unique_ptr<PlatformState> platform;
  std::unique_ptr<StateKeeper> keeper;
  std::unique_ptr<AgentTree> tree;
  std::unique_ptr<Snmp::AgentHost> host;
  std::unique_ptr<FeedServer> feed;
  std::unique_ptr<FileWatcher> watcher;
  std::unique_ptr<CommunityMapper> communities;
  std::unique_ptr<Com2SecTakeover> com2secTakeover;
  std::unique_ptr<ContextLookup> contextLookup;
  std::unique_ptr<SystemGroup> systemGroup;
  std::unique_ptr<NetSnmpLog> netsnmpLog;
  SdNotify notifier{getenv("NOTIFY_SOCKET")};
  std::unique_ptr<Simulator> simulator;
  std::string tempPersistentDir;
  bool pollerRegistered = false;
  unsigned reloadAlarm = 0;
  unsigned simulateAlarm = 0;
  bool pidFileWritten = false;

  // -- bring-up and tear-down

  bool setUpLogging() {
    Log::targetIs(
        options.log == Options::LogTarget::toSyslog ? Log::Target::toSyslog : Log::Target::toStderr,
        "pimsnmpd");
    Log::routeTraceHere();
    if (!options.trace.empty() && !Trace::enable(options.trace)) {
      Log::error("malformed trace setting '{}'", options.trace);
      return false;
    }
    return true;
  }

  void setUpNotifications() {
    auto config = SnmpUtil::getSnmpConfig();
    auto group = config->notificationConfigIs(kNotificationGroup);
    group->notificationIs(kNeighborLoss, options.neighborLossEnabled, options.neighborLossReason);
    group->delayIs(kNeighborLoss, options.neighborLossDelay);
  }

  bool setUpPersistentDir() {
    if (!options.persistentDir.empty()) return true;
    const char* tmp = getenv("TMPDIR");
    std::string templ = std::string(tmp && *tmp ? tmp : "/tmp") + "/pimsnmpd.XXXXXX";
    std::vector<char> buf(templ.begin(), templ.end());
    buf.push_back('\0');
    if (!mkdtemp(buf.data())) {
      Log::error("cannot create a private persistent directory in {}", templ);
      return false;
    }
    tempPersistentDir = buf.data();
    return true;
  }

  bool loadStateFile() {
    if (options.stateFile.empty()) return true;
    std::error_code ec;
    if (!std::filesystem::exists(options.stateFile, ec)) {
      Log::error("state file {} does not exist", options.stateFile);
      return false;
    }
    const ApplyResult r = keeper->loadFile(options.stateFile);
    if (r.ok) {
      Log::info("loaded state file {}", options.stateFile);
    } else {
      // Keep going: the file is followed, and a corrected version is picked up.
      Log::warning("state file {} refused; serving the empty state until it is corrected",
                   options.stateFile);
    }
    return true;
  }

  bool startAgent() {
    Snmp::AgentHostOptions h;
    h.role = options.role == Options::Role::master ? Snmp::AgentHostOptions::Role::master
                                                   : Snmp::AgentHostOptions::Role::subagent;
    h.appName = "pimsnmpd";
    h.listen = options.listen;
    h.agentxSocket = options.agentxSocket;
    h.agentxPingInterval = options.agentxPing;
    h.configFile = options.configFile;
    h.persistentDir = tempPersistentDir.empty() ? options.persistentDir : tempPersistentDir;
    h.persistState = tempPersistentDir.empty();
    netsnmpLog = std::make_unique<NetSnmpLog>(
        [](Log::Level level, std::string_view line) { Log::write(level, line); },
        !options.communityPrefix.empty());
    h.log = Snmp::AgentHostOptions::Log::callback;
    h.logCallback = [this](int priority, const char* text) {
      netsnmpLog->message(priority, text, Plat::now());
    };
    h.debugTokens = options.snmpDebug;
    host = std::make_unique<Snmp::AgentHost>(std::move(h));
    const bool master = options.role == Options::Role::master;
    // A master serves v1/v2c communities, the configuration's and the prefix's, one entry
    // at a time in net-snmp's com2sec list; a subagent's are its master's.
    if (master) {
      const auto source = parseCom2SecSource(options.communitySource);
      if (!source) {
        Log::error(
            "--community-source {}: not an IPv4 address, address/length, address/mask or "
            "default",
            options.communitySource);
        return false;
      }
      communities = std::make_unique<CommunityMapper>(Snmp::mibContexts(), options.communityPrefix,
                                                      *source, netsnmpCommunityBackend());
      com2secTakeover = std::make_unique<Com2SecTakeover>(*communities);
    }
    // The system group, the snmpEngine objects and the per-VRF sinks' directive must be
    // registered before the configuration is read. A subagent's master serves the group.
    const auto beforeConfig = [master] {
      if (!master) return;
      SystemGroup::registerDefaults();
      VrfTrapSinks::registerDirective();
    };
    if (!host->init(beforeConfig)) {
      Log::error("SNMP agent: {}", host->error());
      return false;
    }
    // Contexts registered while the agent came up (the VRF trackers react to `initialized`).
    if (communities) communities->syncAll();
    // Before the context lookup: a withdrawn VRF's copies are gone by the time it looks for
    // contexts that serve nothing (reactors run in the order they attached).
    if (master) {
      systemGroup = std::make_unique<SystemGroup>(Snmp::mibContexts());
      systemGroup->syncAll();
    }
    contextLookup = std::make_unique<ContextLookup>(Snmp::mibContexts(), communities.get(), master);
    if (register_readfd(poller.fd(), &Impl::pollerReadable, this) == 0) {
      pollerRegistered = true;
    } else {
      Log::error("cannot add the daemon's descriptors to the agent's loop");
      return false;
    }
    return true;
  }

  bool startInputs() {
    std::string error;
    if (!options.feedSocket.empty()) {
      feed = std::make_unique<FeedServer>(
          poller,
          [this](uint64_t client, std::string_view line) { return handleLine(client, line); },
          options.maxLine);
      feed->oversizeReplyIs([](uint64_t client, size_t limit) {
        Log::warning("feed client {}: line longer than {} bytes discarded", client, limit);
        return replyLine(errorReply(fmt::format("line longer than {} bytes", limit)));
      });
      if (!feed->listen(options.feedSocket, options.feedMode, error)) {
        Log::error("feed socket: {}", error);
        return false;
      }
      Log::info("feed socket {}", options.feedSocket);
    }
    if (!options.stateFile.empty()) {
      watcher = std::make_unique<FileWatcher>(poller, [this](FileWatcher::Event e) {
        if (e == FileWatcher::Event::changed) {
          scheduleReload();
        } else {
          Log::warning("state file {} removed; keeping the current state", options.stateFile);
        }
      });
      if (!watcher->watch(options.stateFile, error)) {
        Log::error("following {}: {}", options.stateFile, error);
        return false;
      }
    }
    if (options.simulate) {
      simulator = std::make_unique<Simulator>();
      simulateAlarm = snmp_alarm_register_hr(toTimeval(options.simulatePeriod), SA_REPEAT,
                                             &Impl::simulateFired, this);
      Log::info("simulation on: one step every {} s", options.simulatePeriod);
    }
    return true;
  }

  void writePidFile() {
    if (options.pidFile.empty()) return;
    std::ofstream out(options.pidFile, std::ios::trunc);
    out << getpid() << "\n";
    pidFileWritten = static_cast<bool>(out);
    if (!pidFileWritten) Log::warning("cannot write pid file {}", options.pidFile);
  }

  void tearDown() {
    if (simulateAlarm) snmp_alarm_unregister(simulateAlarm);
    simulateAlarm = 0;
    if (reloadAlarm) snmp_alarm_unregister(reloadAlarm);
    reloadAlarm = 0;
    simulator.reset();
    // No more updates: the feed and the file follower go first.
    watcher.reset();
    feed.reset();
    if (pollerRegistered) unregister_readfd(poller.fd());
    pollerRegistered = false;
    // Every context is withdrawn while the agent still runs, so that an AgentX master is told.
    if (tree) tree->tearDown();
    contextLookup.reset();
    com2secTakeover.reset();
    communities.reset();
    systemGroup.reset();
    VrfTrapSinks::clear();
    if (host) host->shutdown();
    if (netsnmpLog) netsnmpLog->flush(Plat::now());
    host.reset();
    tree.reset();
    keeper.reset();
    platform.reset();
    signals.reset();
    if (!tempPersistentDir.empty()) {
      std::error_code ec;
      std::filesystem::remove_all(tempPersistentDir, ec);
      tempPersistentDir.clear();
    }
    if (pidFileWritten) unlink(options.pidFile.c_str());
    pidFileWritten = false;
  }

  int run() {
    startTime = Plat::now();
    if (!setUpLogging()) return 2;
    signals = std::make_unique<Signals>(poller, [this](int signo) { onSignal(signo); });
    if (!poller.ok() || !signals->ok()) {
      Log::error("cannot set up the event descriptors");
      return 1;
    }
    if (!options.configFile.empty()) {
      if (const auto why = configUnreadable(options.configFile)) {
        Log::error("configuration file {} {}", options.configFile, *why);
        return 1;
      }
    }
    if (options.role == Options::Role::master && options.configFile.empty() &&
        options.communityPrefix.empty()) {
      Log::warning("no --config and no --community-prefix: no SNMP access is configured");
    }
    setUpNotifications();
    if (!setUpPersistentDir()) return 1;
    platform = std::make_unique<PlatformState>(SnmpUtil::entityRoot());
    keeper = std::make_unique<StateKeeper>(*platform);
    tree =
        std::make_unique<AgentTree>(*platform, SnmpUtil::getSnmpStatus(), Plat::currentClockPtr());
    bool ok = loadStateFile();
    if (ok) {
      tree->bringUp();
      ok = startAgent() && startInputs();
    }
    if (!ok) {
      tearDown();
      return 1;
    }
    writePidFile();
    Log::info("pimsnmpd {} ready: {}", kVersion, readiness());
    notifier.ready(readiness());
    while (!stop.load()) host->runOnce(1.0);
    Log::info("stopping: withdrawing {} context(s)", Snmp::mibContexts()->contexts().size());
    notifier.stopping("withdrawing every context");
    tearDown();
    Log::info("stopped");
    return exitCode;
  }

  std::string readiness() const {
    return fmt::format(
        "{} ({}), serving {} context(s)",
        options.role == Options::Role::master ? "master agent" : "AgentX subagent",
        options.role == Options::Role::master ? options.listen : options.agentxSocket,
        Snmp::mibContexts()->contexts().size());
  }

  // -- events

  static void pollerReadable(int, void* self) { static_cast<Impl*>(self)->poller.dispatch(0); }

  void onSignal(int signo) {
    if (signo == SIGHUP) {
      Log::info("SIGHUP: re-reading {} and {}",
                options.configFile.empty() ? "(no configuration file)" : options.configFile,
                options.stateFile.empty() ? "(no state file)" : options.stateFile);
      notifier.reloading("re-reading the configuration and the state file");
      reloadConfig();
      reload();
      notifier.ready(readiness());
      return;
    }
    Log::info("{} received", signo == SIGTERM ? "SIGTERM" : "SIGINT");
    stop = true;
  }

  void scheduleReload() {
    if (reloadAlarm) return;
    reloadAlarm =
        snmp_alarm_register_hr(toTimeval(kReloadSettleSeconds), 0, &Impl::reloadFired, this);
  }

  // The configuration again (access, communities, users, sinks, system group values), as
  // snmpd does on SIGHUP; the served state and its registrations stay. A file that cannot be
  // read is refused and the current configuration stays in force.
  bool reloadConfig() {
    if (options.configFile.empty()) return true;
    if (const auto why = configUnreadable(options.configFile)) {
      Log::error("configuration file {} {}: keeping the current configuration", options.configFile,
                 *why);
      return false;
    }
    update_config();
    // Re-reading dropped the communities added at run time.
    if (communities) communities->remapAll();
    Log::info("re-read configuration file {}", options.configFile);
    return true;
  }

  static void reloadFired(unsigned int, void* self) {
    auto* impl = static_cast<Impl*>(self);
    impl->reloadAlarm = 0;
    impl->reload();
  }

  ApplyResult reload() {
    if (options.stateFile.empty()) return {false, {{"", "no state file (--state) to re-read"}}};
    const ApplyResult r = keeper->loadFile(options.stateFile);
    if (r.ok) Log::info("re-read state file {}", options.stateFile);
    return r;
  }

  static void simulateFired(unsigned int, void* self) {
    auto* impl = static_cast<Impl*>(self);
    const Json patch = impl->simulator->step(impl->keeper->document().json());
    if (!patch.empty()) impl->keeper->applyPatch(patch, "simulation");
  }

  // -- the feed protocol

  std::string handleLine(uint64_t client, std::string_view line) {
    const FeedRequest request = parseFeedLine(line);
    if (request.update) {
      // Written in place rather than as a tree to dump: every update line costs this.
      std::array<char, 48> source;
      const auto named = fmt::format_to_n(source.data(), source.size(), "feed client {}", client);
      const ApplyResult r = keeper->applyPatchText(
          line, std::string_view(source.data(), std::min(named.size, source.size())));
      if (r.ok) return fmt::format(R"({{"ok":true,"update":{}}})", keeper->applied());
      return replyLine({{"ok", false}, {"errors", errorsToJson(r.errors)}});
    }
    // The one reply as large as the state: its text is written straight from the document,
    // whose routes are never all a tree at once.
    if (request.word == "dump" && request.args.empty()) {
      std::string reply = R"({"document":)";
      keeper->document().writeJson(reply);
      reply += R"(,"ok":true})";
      return reply;
    }
    return replyLine(command(request.word, request.args));
  }

  Json command(std::string_view word, std::string_view rest) {
    if (word == "ping") return {{"ok", true}, {"pong", true}};
    if (word == "status") return {{"ok", true}, {"status", status()}};
    if (word == "dump") return {{"ok", true}, {"document", keeper->document().json()}};
    if (word == "trace") return trace(rest);
    if (word == "notify") return notify(rest);
    if (word == "reload") {
      const ApplyResult r = reload();
      if (r.ok) return okReply();
      return {{"ok", false}, {"errors", errorsToJson(r.errors)}};
    }
    if (word == "communities") return communityLines(rest);
    if (word == "help") {
      return {{"ok", true},
              {"commands",
               {"ping", "status", "dump", "trace [SETTING|off]",
                "notify [pimNeighborLoss on|off [REASON] | pimNeighborLoss delay SECONDS]",
                "reload", "communities [PREFIX [SOURCE]]", "{...merge patch...}"}}};
    }
    return errorReply(
        fmt::format("unknown command '{}' (a merge patch starts with '{{'; "
                    "`help` lists the commands)",
                    excerpt(word)));
  }

  Json trace(std::string_view setting) {
    if (!setting.empty()) {
      if (setting == "off" || setting == "none") {
        Trace::disableAll();
      } else {
        // A replacement, not an addition: what the operator reads back is what is on.
        const std::string before = Trace::setting();
        Trace::disableAll();
        if (!Trace::enable(setting)) {
          if (!before.empty()) Trace::enable(before);
          return errorReply(fmt::format("malformed trace setting '{}'", excerpt(setting)));
        }
      }
      Log::info("trace setting now '{}'", Trace::setting());
    }
    return {{"ok", true}, {"trace", Trace::setting()}};
  }

  Json notify(std::string_view args) {
    auto config = SnmpUtil::getSnmpConfig();
    if (!args.empty()) {
      const auto [name, rest] = splitWord(args);
      auto group = config->notificationConfig(kNotificationGroup);
      if (name != kNeighborLoss || !group || !group->notification(name)) {
        return errorReply(
            fmt::format("unknown notification '{}' (known: {})", excerpt(name), kNeighborLoss));
      }
      const auto [what, value] = splitWord(rest);
      if (what == "on") {
        group->notificationIs(name, true, {});
      } else if (what == "off") {
        group->notificationIs(name, false, excerpt(value));
      } else if (what == "delay") {
        double d = -1;
        const auto [p, ec] = std::from_chars(value.data(), value.data() + value.size(), d);
        if (ec != std::errc() || p != value.data() + value.size() || !(d >= 0) || d > 86400) {
          return errorReply(fmt::format("delay takes 0..86400 seconds, not '{}'", excerpt(value)));
        }
        group->delayIs(name, d);
      } else {
        return errorReply("usage: notify pimNeighborLoss on | off [REASON] | delay SECONDS");
      }
      const Snmp::NotificationStatus s = config->notificationStatus(kNotificationGroup, name);
      Log::info("{}: {} ({}), delay {} s", name, s.send ? "on" : "off", s.reason,
                group->delay(name));
    }
    return {{"ok", true}, {"notifications", Status::notifications(*config)}};
  }

  Json communityLines(std::string_view args) {
    auto [prefixArg, rest] = splitWord(args);
    auto [sourceArg, extra] = splitWord(rest);
    if (!extra.empty()) return errorReply("usage: communities [PREFIX [SOURCE]]");
    const std::string prefix(!prefixArg.empty()                 ? prefixArg
                             : !options.communityPrefix.empty() ? options.communityPrefix
                                                                : "public");
    const std::string source(!sourceArg.empty() ? sourceArg : options.communitySource);
    Json lines = Json::array();
    for (const std::string& line : sharedCommunityLines()) lines.push_back(line);
    Json skipped = Json::array();
    for (const std::string& context : Snmp::mibContexts()->contexts()) {
      if (auto l = communityLine(prefix, source, context)) {
        lines.push_back(*l);
      } else {
        skipped.push_back(context);
      }
    }
    return {{"ok", true}, {"lines", lines}, {"unmappable", skipped}};
  }

  Json status() {
    Json agent = Json::object();
    if (options.role == Options::Role::master) {
      agent = {{"role", "master"}, {"listen", options.listen}};
    } else {
      agent = {{"role", "subagent"},
               {"agentx", options.agentxSocket},
               {"connected", host && host->initialized() && main_session != nullptr}};
    }
    agent["initialized"] = SnmpUtil::getSnmpStatus()->initialized();
    agent["config"] = options.configFile;
    if (systemGroup) {
      agent["systemGroupContexts"] = systemGroup->contexts();
      agent["vrfTrapSinks"] = VrfTrapSinks::count();
    }

    Json vrfs = Json::object();
    if (const Json* v = [&]() -> const Json* {
          const Json& doc = keeper->document().outline();
          auto it = doc.find("vrfs");
          return it == doc.end() ? nullptr : &*it;
        }()) {
      for (const auto& [name, vrf] : v->items()) {
        Json families = Json::array();
        for (const char* af : {"ipv4", "ipv6"}) {
          if (vrf.is_object() && vrf.contains(af)) families.push_back(af);
        }
        vrfs[name] = families;
      }
    }
    Json refusals = Json::array();
    for (const StateKeeper::Refusal& r : keeper->refusals()) {
      refusals.push_back(
          {{"time", r.time}, {"source", r.source}, {"errors", errorsToJson(r.errors)}});
    }
    Json feedStatus = {{"socket", options.feedSocket},
                       {"clients", feed ? feed->clientCount() : 0},
                       {"lines", feed ? feed->stats().lines : 0},
                       {"oversizeLines", feed ? feed->stats().oversize : 0},
                       {"unreadDisconnects", feed ? feed->stats().unreadDisconnects : 0}};
    Json out = {
        {"version", kVersion},
        {"pid", getpid()},
        {"uptime", Plat::now() - startTime},
        {"agent", agent},
        {"state",
         {{"file", options.stateFile},
          {"vrfs", vrfs},
          {"updatesApplied", keeper->applied()},
          {"updatesRefused", keeper->refused()},
          {"refusals", refusals}}},
        {"feed", feedStatus},
        {"modules", Status::modules(*Snmp::mibContexts())},
        {"contexts",
         Status::contexts(*Snmp::mibContexts(), tree ? tree->pimMibRoot().get() : nullptr)},
        {"traps", Status::traps(Snmp::TrapManager::instance())},
        {"notifications", Status::notifications(*SnmpUtil::getSnmpConfig())},
        {"trace", Trace::setting()},
    };
    if (communities) out["configuredCommunities"] = communities->configuredCount();
    if (communities && !options.communityPrefix.empty()) {
      Json mapped = Json::array();
      for (const std::string& c : communities->mapped()) {
        mapped.push_back({{"context", c}, {"community", communityFor(options.communityPrefix, c)}});
      }
      out["communities"] = mapped;
    }
    // Contexts net-snmp still knows; a withdrawn VRF's leaves with it.
    out["netsnmpContexts"] = ContextLookup::netsnmpContexts().size();
    if (simulator) out["simulation"] = {{"steps", simulator->steps()}};
    return out;
  }
};

Daemon::Daemon(Options options) : impl_(std::make_unique<Impl>(std::move(options))) {}

Daemon::~Daemon() {
  impl_->tearDown();
}

int Daemon::run() {
  return impl_->run();
}

}  // namespace PimSnmpd
