#include "daemon/ctl/Ctl.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <iostream>
#include <sstream>
#include <vector>

namespace PimSnmpd::Ctl {

namespace {

using Json = nlohmann::json;

constexpr const char* kPackagedSocket = "/run/pimsnmpd/feed.sock";

std::string usage(const char* program) {
  return fmt::format(
      R"(Usage: {0} [-s SOCKET] [--json] [--timeout SECONDS] COMMAND [ARGS]

Talks to a running pimsnmpd through its feed socket (pimsnmpd --feed unix:SOCKET).

Commands:
  status                     served VRFs and contexts per module, row counts per table,
                             refused updates, trap queue, notification and trace settings
  dump                       the current state document (JSON)
  patch JSON|FILE|-          apply one RFC 7396 merge patch (inline, from FILE, or stdin)
  feed FILE|-                apply every line of FILE as a merge patch (JSON lines)
  trace [SETTING|off]        show or replace the trace setting ("PimSnmpAgent/8,Pim*MIB/0-2")
  notify                     show the notification settings
  notify pimNeighborLoss on | off [REASON] | delay SECONDS
  reload                     re-read the state file now (as SIGHUP does)
  communities [PREFIX [SRC]] snmpd.conf lines giving every served context a v2c community
                             (for a stock snmpd master of a subagent)
  ping                       check that the daemon answers

Options:
  -s, --socket SOCKET        the daemon's socket (default: $PIMSNMP_SOCKET, else {1})
  --json                     print the daemon's JSON reply as is
  --timeout SECONDS          how long to wait for each reply (default 30)
  -h, --help                 this text

Exit status: 0 done, 1 refused by the daemon, 2 usage error, 3 daemon unreachable.
)",
      program, kPackagedSocket);
}

bool readAll(const std::string& source, std::string& out, std::string& error) {
  if (source == "-") {
    std::ostringstream s;
    s << std::cin.rdbuf();
    out = s.str();
    return true;
  }
  std::ifstream in(source, std::ios::binary);
  if (!in) {
    error = fmt::format("cannot read {}", source);
    return false;
  }
  std::ostringstream s;
  s << in.rdbuf();
  out = s.str();
  return true;
}

std::string contextName(const std::string& c) {
  return c.empty() ? "\"\"" : c;
}

void printErrors(const Json& reply) {
  const Json errors = reply.value("errors", Json::array());
  for (const Json& e : errors) {
    const std::string path = e.value("path", "");
    std::fprintf(stderr, "  %s: %s\n", path.empty() ? "(document)" : path.c_str(),
                 e.value("reason", "").c_str());
  }
}

std::string clockTime(double t) {
  const std::time_t secs = static_cast<std::time_t>(t);
  std::tm tm{};
  localtime_r(&secs, &tm);
  char buf[32];
  std::strftime(buf, sizeof buf, "%H:%M:%S", &tm);
  return buf;
}

void printStatus(const Json& s) {
  std::printf("pimsnmpd %s (pid %lld), up %.0f s\n", s.value("version", "?").c_str(),
              s.value("pid", 0LL), s.value("uptime", 0.0));
  const Json& agent = s["agent"];
  if (agent.value("role", "") == "master") {
    std::printf("agent: master on %s\n", agent.value("listen", "").c_str());
    std::printf("configuration: %s\n",
                agent.value("config", "").empty() ? "none" : agent.value("config", "").c_str());
    if (agent.contains("systemGroupContexts")) {
      std::string contexts = "\"\"";
      for (const Json& c : agent["systemGroupContexts"]) contexts += " " + c.get<std::string>();
      std::printf("system group in contexts: %s; vrftrap2sink lines: %zu\n", contexts.c_str(),
                  agent.value("vrfTrapSinks", size_t{0}));
    }
  } else {
    std::printf("agent: AgentX subagent of %s (%s)\n", agent.value("agentx", "").c_str(),
                agent.value("connected", false) ? "connected" : "not connected");
  }
  const Json& state = s["state"];
  const std::string file = state.value("file", "");
  std::printf("state: %s; %llu update(s) applied, %llu refused\n",
              file.empty() ? "no state file" : ("file " + file).c_str(),
              state.value("updatesApplied", 0ULL), state.value("updatesRefused", 0ULL));
  std::string vrfs;
  for (const auto& [name, fams] : state["vrfs"].items()) {
    std::string f;
    for (const Json& af : fams) f += (f.empty() ? "" : "+") + af.get<std::string>();
    vrfs += fmt::format("{}{} ({})", vrfs.empty() ? "" : ", ", name, f);
  }
  std::printf("VRFs in the document: %s\n", vrfs.empty() ? "none" : vrfs.c_str());
  std::printf("modules (contexts served):\n");
  for (const auto& [module, contexts] : s["modules"].items()) {
    std::string list;
    for (const Json& c : contexts) list += " " + contextName(c.get<std::string>());
    std::printf("  %-15s%s\n", module.c_str(), list.empty() ? " -" : list.c_str());
  }
  std::printf("contexts:\n");
  if (s["contexts"].empty()) std::printf("  none\n");
  for (const auto& [context, c] : s["contexts"].items()) {
    std::printf("  %s (VRF %s)\n", contextName(context).c_str(), c.value("vrf", "").c_str());
    for (const auto& [module, tables] : c["tables"].items()) {
      std::string counts;
      for (const auto& [table, n] : tables.items()) {
        counts += fmt::format("{}{} {}", counts.empty() ? "" : ", ", table, n.get<uint64_t>());
      }
      std::printf("    %s: %s\n", module.c_str(), counts.c_str());
    }
  }
  const Json& feed = s["feed"];
  const std::string socket = feed.value("socket", "");
  if (!socket.empty()) {
    std::printf("feed: %s, %llu client(s), %llu line(s)\n", socket.c_str(),
                feed.value("clients", 0ULL), feed.value("lines", 0ULL));
  }
  if (!state["refusals"].empty()) {
    std::printf("refused updates (latest last):\n");
    for (const Json& r : state["refusals"]) {
      for (const Json& e : r["errors"]) {
        const std::string path = e.value("path", "");
        std::printf("  %s %s: %s: %s\n", clockTime(r.value("time", 0.0)).c_str(),
                    r.value("source", "").c_str(), path.empty() ? "(document)" : path.c_str(),
                    e.value("reason", "").c_str());
      }
    }
  }
  const Json& traps = s["traps"];
  std::printf("traps: %llu queued, %llu sent\n", traps.value("queued", 0ULL),
              traps.value("sent", 0ULL));
  for (const Json& p : traps["pending"]) {
    std::printf("  due %s in context %s\n", clockTime(p.value("due", 0.0)).c_str(),
                contextName(p.value("context", "")).c_str());
  }
  for (const auto& [group, notifications] : s["notifications"]["groups"].items()) {
    for (const auto& [name, n] : notifications.items()) {
      std::printf("notification %s: %s (%s), delay %g s\n", name.c_str(),
                  n.value("enabled", false) ? "on" : "off", n.value("reason", "").c_str(),
                  n.value("delay", 0.0));
    }
  }
  if (s.contains("communities")) {
    for (const Json& c : s["communities"]) {
      std::printf("community %s -> context %s\n", c.value("community", "").c_str(),
                  contextName(c.value("context", "")).c_str());
    }
  }
  const std::string trace = s.value("trace", "");
  std::printf("trace: %s\n", trace.empty() ? "off" : trace.c_str());
  if (s.contains("simulation")) {
    std::printf("simulation: %llu step(s)\n", s["simulation"].value("steps", 0ULL));
  }
}

struct Invocation {
  std::string socket = defaultSocket();
  bool json = false;
  double timeout = 30;
  std::vector<std::string> words;
};

// The document in a dump's reply, as the daemon writes it ({"document":...,"ok":true}); empty
// for any other reply.
std::string_view dumpedDocument(std::string_view reply) {
  constexpr std::string_view kHead = R"({"document":)";
  constexpr std::string_view kTail = R"(,"ok":true})";
  if (reply.size() < kHead.size() + kTail.size() || !reply.starts_with(kHead) ||
      !reply.ends_with(kTail)) {
    return {};
  }
  return reply.substr(kHead.size(), reply.size() - kHead.size() - kTail.size());
}

// Sends `line` and interprets the reply; prints per command.
int exchange(Client& client, const Invocation& inv, const std::string& line,
             const std::string& command) {
  std::string error;
  const auto reply = client.request(line, inv.timeout, error);
  if (!reply) {
    std::fprintf(stderr, "pimsnmpctl: %s\n", error.c_str());
    return kUnreachable;
  }
  if (const std::string_view document = dumpedDocument(*reply);
      command == "dump" && !document.empty()) {
    if (inv.json) {
      std::fwrite(reply->data(), 1, reply->size(), stdout);
    } else {
      // A piece at a time: the laid-out text is half as large again as the reply.
      constexpr size_t kPiece = size_t{1} << 20;
      JsonIndenter indenter;
      std::string text;
      for (size_t at = 0; at < document.size(); at += kPiece) {
        text.clear();
        indenter.feed(document.substr(at, kPiece), text);
        std::fwrite(text.data(), 1, text.size(), stdout);
      }
      text.clear();
      indenter.finish(text);
      std::fwrite(text.data(), 1, text.size(), stdout);
    }
    std::fputc('\n', stdout);
    return kOk;
  }
  if (inv.json) {
    std::printf("%s\n", reply->c_str());
    const Json j = Json::parse(*reply, nullptr, false);
    return j.is_object() && j.value("ok", false) ? kOk : kRefused;
  }
  const Json j = Json::parse(*reply, nullptr, false);
  if (!j.is_object()) {
    std::fprintf(stderr, "pimsnmpctl: unreadable reply: %s\n", reply->c_str());
    return kRefused;
  }
  if (!j.value("ok", false)) {
    std::fprintf(stderr, "refused:\n");
    printErrors(j);
    return kRefused;
  }
  if (command == "status") {
    printStatus(j["status"]);
  } else if (command == "dump") {
    std::printf("%s\n", j["document"].dump(2).c_str());
  } else if (command == "patch") {
    std::printf("applied (update %llu)\n", j.value("update", 0ULL));
  } else if (command == "trace") {
    const std::string t = j.value("trace", "");
    std::printf("trace: %s\n", t.empty() ? "off" : t.c_str());
  } else if (command == "notify") {
    for (const auto& [group, notifications] : j["notifications"]["groups"].items()) {
      for (const auto& [name, n] : notifications.items()) {
        std::printf("%s: %s (%s), delay %g s\n", name.c_str(),
                    n.value("enabled", false) ? "on" : "off", n.value("reason", "").c_str(),
                    n.value("delay", 0.0));
      }
    }
  } else if (command == "communities") {
    for (const Json& l : j["lines"]) std::printf("%s\n", l.get<std::string>().c_str());
    for (const Json& c : j["unmappable"]) {
      std::fprintf(stderr, "# context '%s' cannot be mapped; use SNMPv3 -n\n",
                   c.get<std::string>().c_str());
    }
  } else if (command == "ping") {
    std::printf("pong\n");
  } else if (command == "reload") {
    std::printf("reloaded\n");
  } else {
    std::printf("%s\n", j.dump(2).c_str());
  }
  return kOk;
}

}  // namespace

void JsonIndenter::newline(std::string& out) const {
  out += '\n';
  out.append(2 * depth_, ' ');
}

void JsonIndenter::feed(std::string_view piece, std::string& out) {
  for (const char c : piece) {
    if (opened_ != 0) {
      const char open = opened_;
      opened_ = 0;
      out += open;
      if (c == (open == '{' ? '}' : ']')) {
        out += c;
        continue;
      }
      ++depth_;
      newline(out);
    }
    if (inString_) {
      // Escapes and all, as it stands.
      out += c;
      if (escaped_) {
        escaped_ = false;
      } else if (c == '\\') {
        escaped_ = true;
      } else if (c == '"') {
        inString_ = false;
      }
      continue;
    }
    switch (c) {
      case '"':
        out += c;
        inString_ = true;
        break;
      case '{':
      case '[':
        opened_ = c;
        break;
      case '}':
      case ']':
        if (depth_ > 0) --depth_;
        newline(out);
        out += c;
        break;
      case ',':
        out += c;
        newline(out);
        break;
      case ':':
        out += ": ";
        break;
      default:
        out += c;
    }
  }
}

void JsonIndenter::finish(std::string& out) {
  if (opened_ != 0) out += opened_;
  opened_ = 0;
}

void indentJson(std::string_view compact, std::string& out) {
  JsonIndenter indenter;
  indenter.feed(compact, out);
  indenter.finish(out);
}

namespace {

int patchCommand(Client& client, const Invocation& inv) {
  if (inv.words.size() != 2) {
    std::fprintf(stderr, "pimsnmpctl: patch takes one argument: JSON, FILE or -\n");
    return kUsage;
  }
  const std::string& arg = inv.words[1];
  std::string text;
  std::string error;
  if (!arg.empty() && arg.front() == '{') {
    text = arg;
  } else if (!readAll(arg, text, error)) {
    std::fprintf(stderr, "pimsnmpctl: %s\n", error.c_str());
    return kUsage;
  }
  // One line on the wire: a pretty-printed file is compacted. Text that is not JSON is sent
  // as is (flattened), so that the daemon's own message describes the problem.
  const Json j = Json::parse(text, nullptr, false);
  std::string line;
  if (!j.is_discarded()) {
    line = j.dump(-1, ' ', false, Json::error_handler_t::replace);
  } else {
    line = text;
    for (char& ch : line) {
      if (ch == '\n' || ch == '\r') ch = ' ';
    }
  }
  if (line.empty() || line.find_first_not_of(" \t") == std::string::npos ||
      line[line.find_first_not_of(" \t")] != '{') {
    std::fprintf(stderr, "pimsnmpctl: a merge patch is a JSON object\n");
    return kUsage;
  }
  return exchange(client, inv, line, "patch");
}

int feedCommand(Client& client, const Invocation& inv) {
  if (inv.words.size() != 2) {
    std::fprintf(stderr, "pimsnmpctl: feed takes one argument: FILE or -\n");
    return kUsage;
  }
  std::string text;
  std::string error;
  if (!readAll(inv.words[1], text, error)) {
    std::fprintf(stderr, "pimsnmpctl: %s\n", error.c_str());
    return kUsage;
  }
  std::istringstream lines(text);
  std::string line;
  size_t number = 0;
  size_t refused = 0;
  size_t applied = 0;
  while (std::getline(lines, line)) {
    ++number;
    if (line.find_first_not_of(" \t\r") == std::string::npos) continue;
    const auto reply = client.request(line, inv.timeout, error);
    if (!reply) {
      std::fprintf(stderr, "pimsnmpctl: line %zu: %s\n", number, error.c_str());
      return kUnreachable;
    }
    if (inv.json) std::printf("%s\n", reply->c_str());
    const Json j = Json::parse(*reply, nullptr, false);
    if (j.is_object() && j.value("ok", false)) {
      ++applied;
      continue;
    }
    ++refused;
    std::fprintf(stderr, "line %zu refused:\n", number);
    if (j.is_object()) printErrors(j);
  }
  if (!inv.json) std::printf("%zu applied, %zu refused\n", applied, refused);
  return refused ? kRefused : kOk;
}

}  // namespace

Client::~Client() {
  if (fd_ >= 0) ::close(fd_);
}

bool Client::connect(const std::string& path, std::string& error) {
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  if (path.empty() || path.size() >= sizeof(addr.sun_path)) {
    error = fmt::format("bad socket path '{}'", path);
    return false;
  }
  std::memcpy(addr.sun_path, path.data(), path.size());
  fd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd_ < 0 || ::connect(fd_, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) {
    error = fmt::format("cannot connect to {}: {} (is pimsnmpd running with --feed unix:{}?)", path,
                        std::strerror(errno), path);
    return false;
  }
  return true;
}

std::optional<std::string> Client::request(std::string_view line, double timeoutSeconds,
                                           std::string& error) {
  std::string out(line);
  out += '\n';
  for (size_t off = 0; off < out.size();) {
    const ssize_t n = ::send(fd_, out.data() + off, out.size() - off, MSG_NOSIGNAL);
    if (n < 0) {
      if (errno == EINTR) continue;
      error = fmt::format("send: {}", std::strerror(errno));
      return std::nullopt;
    }
    off += static_cast<size_t>(n);
  }
  const auto deadline =
      std::chrono::steady_clock::now() + std::chrono::duration<double>(timeoutSeconds);
  for (;;) {
    if (const size_t nl = pending_.find('\n'); nl != std::string::npos) {
      std::string reply = pending_.substr(0, nl);
      pending_.erase(0, nl + 1);
      return reply;
    }
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) {
      error = fmt::format("no reply within {} s", timeoutSeconds);
      return std::nullopt;
    }
    pollfd p{fd_, POLLIN, 0};
    const int r = poll(&p, 1, static_cast<int>(left.count()));
    if (r < 0 && errno == EINTR) continue;
    if (r <= 0) continue;
    char buf[65536];
    const ssize_t n = ::read(fd_, buf, sizeof buf);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      error = "the daemon closed the connection";
      return std::nullopt;
    }
    pending_.append(buf, static_cast<size_t>(n));
  }
}

std::string defaultSocket() {
  const char* env = std::getenv("PIMSNMP_SOCKET");
  return env && *env ? env : kPackagedSocket;
}

int main(int argc, char** argv, const char* program) {
  Invocation inv;
  for (int i = 1; i < argc; ++i) {
    const std::string a = argv[i];
    if (!inv.words.empty()) {
      inv.words.push_back(a);
    } else if (a == "-h" || a == "--help") {
      std::fputs(usage(program).c_str(), stdout);
      return kOk;
    } else if (a == "--json") {
      inv.json = true;
    } else if ((a == "-s" || a == "--socket" || a == "--timeout") && i + 1 < argc) {
      const std::string v = argv[++i];
      if (a == "--timeout") {
        char* end = nullptr;
        inv.timeout = std::strtod(v.c_str(), &end);
        if (end == v.c_str() || *end != '\0' || !(inv.timeout > 0)) {
          std::fprintf(stderr, "%s: --timeout takes seconds, not '%s'\n", program, v.c_str());
          return kUsage;
        }
      } else {
        inv.socket = v.rfind("unix:", 0) == 0 ? v.substr(5) : v;
      }
    } else if (a.rfind("--socket=", 0) == 0) {
      inv.socket = a.substr(9);
      if (inv.socket.rfind("unix:", 0) == 0) inv.socket = inv.socket.substr(5);
    } else if (!a.empty() && a.front() == '-') {
      std::fprintf(stderr, "%s: unknown option '%s'\nTry '%s --help'.\n", program, a.c_str(),
                   program);
      return kUsage;
    } else {
      inv.words.push_back(a);
    }
  }
  if (inv.words.empty()) {
    std::fputs(usage(program).c_str(), stderr);
    return kUsage;
  }
  const std::string command = inv.words[0];
  static const char* const kCommands[] = {"status", "dump",   "patch",       "feed", "trace",
                                          "notify", "reload", "communities", "ping"};
  bool known = false;
  for (const char* c : kCommands) known = known || command == c;
  if (!known) {
    std::fprintf(stderr, "%s: unknown command '%s'\nTry '%s --help'.\n", program, command.c_str(),
                 program);
    return kUsage;
  }
  for (const std::string& w : inv.words) {
    if (w.find_first_of("\r\n") != std::string::npos && command != "patch") {
      std::fprintf(stderr, "%s: arguments are single lines\n", program);
      return kUsage;
    }
  }

  Client client;
  std::string error;
  if (!client.connect(inv.socket, error)) {
    std::fprintf(stderr, "%s: %s\n", program, error.c_str());
    return kUnreachable;
  }
  if (command == "patch") return patchCommand(client, inv);
  if (command == "feed") return feedCommand(client, inv);
  std::string line;
  for (const std::string& w : inv.words) line += (line.empty() ? "" : " ") + w;
  return exchange(client, inv, line, command);
}

}  // namespace PimSnmpd::Ctl
