#include "tests/unit/frr/FrrTestUtil.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "pimsnmp-frr/kernel/ProcFiles.h"

namespace FrrTest {

namespace fs = std::filesystem;
using PimSnmpd::Json;

std::string captureDir(const std::string& name) {
  return std::string(PIMSNMP_FRR_CAPTURES) + "/" + name;
}

std::string readCapture(const std::string& set, const std::string& file) {
  const std::string path = captureDir(set) + "/" + file;
  std::ifstream in(path);
  if (!in) {
    ADD_FAILURE() << "capture file missing: " << path;
    return "";
  }
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

PimSnmpFrr::FrrJson captureJson(const std::string& set, const std::string& file) {
  auto j = PimSnmpFrr::parseFrrJson(readCapture(set, file), file);
  if (!j) ADD_FAILURE() << "capture is not JSON: " << set << "/" << file;
  return j ? *j : PimSnmpFrr::FrrJson::object();
}

std::string tempSocket(const std::string& name) {
  static int n = 0;
  return "/tmp/pimsnmp-frr-test-" + std::to_string(getpid()) + "-" + std::to_string(++n) + "-" +
         name;
}

// ---- UnixServer

UnixServer::UnixServer(std::string path, char delimiter, Handler handler)
    : path_(std::move(path)), delimiter_(delimiter), handler_(std::move(handler)) {
  ::unlink(path_.c_str());
  listenFd_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  std::strncpy(addr.sun_path, path_.c_str(), sizeof addr.sun_path - 1);
  if (::bind(listenFd_, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0 ||
      ::listen(listenFd_, 8) != 0) {
    ADD_FAILURE() << "cannot listen on " << path_;
  }
  if (::pipe(wakeFd_) != 0) ADD_FAILURE() << "pipe";
  thread_ = std::thread([this] { serve(); });
}

UnixServer::~UnixServer() {
  stop();
}

void UnixServer::stop() {
  if (!thread_.joinable()) return;
  const char c = 'x';
  (void)!::write(wakeFd_[1], &c, 1);
  thread_.join();
  ::close(listenFd_);
  ::close(wakeFd_[0]);
  ::close(wakeFd_[1]);
  ::unlink(path_.c_str());
}

int UnixServer::count(const std::string& request) const {
  std::lock_guard lock(mu_);
  return static_cast<int>(std::count(requests_.begin(), requests_.end(), request));
}

std::vector<std::string> UnixServer::requests() const {
  std::lock_guard lock(mu_);
  return requests_;
}

void UnixServer::serve() {
  int conn = -1;
  std::string buf;
  for (;;) {
    pollfd fds[2] = {{wakeFd_[0], POLLIN, 0}, {conn >= 0 ? conn : listenFd_, POLLIN, 0}};
    if (::poll(fds, 2, -1) < 0) continue;
    if (fds[0].revents) break;
    if (conn < 0) {
      conn = ::accept4(listenFd_, nullptr, nullptr, SOCK_CLOEXEC);
      buf.clear();
      continue;
    }
    char chunk[65536];
    const ssize_t n = ::read(conn, chunk, sizeof chunk);
    if (n <= 0) {
      ::close(conn);
      conn = -1;
      continue;
    }
    buf.append(chunk, static_cast<size_t>(n));
    for (size_t end; (end = buf.find(delimiter_)) != std::string::npos;) {
      const std::string request = buf.substr(0, end);
      buf.erase(0, end + 1);
      {
        std::lock_guard lock(mu_);
        requests_.push_back(request);
      }
      const std::string reply = handler_(request);
      for (size_t off = 0; off < reply.size();) {
        const ssize_t w = ::write(conn, reply.data() + off, reply.size() - off);
        if (w <= 0) break;
        off += static_cast<size_t>(w);
      }
    }
  }
  if (conn >= 0) ::close(conn);
}

// ---- FakeVty

FakeVty::FakeVty(std::string path, std::string captureSet)
    : set_(std::move(captureSet)),
      server_(std::move(path), '\0', [this](const std::string& c) { return answer(c); }) {}

void FakeVty::set(const std::string& command, const std::string& text, int status) {
  std::lock_guard lock(mu_);
  overrides_[command] = text + std::string("\0\0\0", 3) + static_cast<char>(status);
}

std::string FakeVty::answer(const std::string& command) {
  static const std::string kOk("\0\0\0\0", 4);
  {
    std::lock_guard lock(mu_);
    if (const auto it = overrides_.find(command); it != overrides_.end()) return it->second;
  }
  auto fileOf = [](std::string c) {
    const bool json = c.size() > 5 && c.ends_with(" json");
    std::replace(c.begin(), c.end(), ' ', '_');
    return json ? c.substr(0, c.size() - 5) + ".json" : c + ".txt";
  };
  auto read = [&](const std::string& file) -> std::optional<std::string> {
    std::ifstream in(captureDir(set_) + "/" + file);
    if (!in) return std::nullopt;
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
  };
  if (auto own = read("vrf-all/" + fileOf(command))) return *own + kOk;
  if (auto own = read(fileOf(command))) return *own + kOk;
  if (const auto at = command.find(" vrf all"); at != std::string::npos) {
    std::string plain = command;
    plain.erase(at, 8);
    const bool zebra = command.starts_with("show interface");
    if (auto text = read(fileOf(plain))) {
      return (zebra ? *text : "{\"default\":" + *text + "}") + kOk;
    }
  }
  return "% Unknown command: " + command + "\n" + std::string("\0\0\0\2", 4);
}

// ---- FakeFeed

FakeFeed::FakeFeed(std::string path)
    : server_(std::move(path), '\n', [this](const std::string& l) { return answer(l); }) {}

Json FakeFeed::document() const {
  std::lock_guard lock(mu_);
  return doc_.json();
}

void FakeFeed::load(const Json& doc) {
  std::lock_guard lock(mu_);
  auto r = PimSnmpd::Document::fromJson(doc);
  ASSERT_TRUE(r.ok());
  doc_ = std::move(*r.document);
}

std::vector<Json> FakeFeed::patches() const {
  std::lock_guard lock(mu_);
  return patches_;
}

std::string FakeFeed::answer(const std::string& line) {
  std::lock_guard lock(mu_);
  if (line == "dump") return Json{{"ok", true}, {"document", doc_.json()}}.dump() + "\n";
  auto parsed = PimSnmpd::parseJson(line);
  if (!parsed.value)
    return R"({"ok":false,"errors":[{"path":"","reason":"not JSON"}]})"
           "\n";
  patches_.push_back(*parsed.value);
  PimSnmpd::ValidationErrors errors;
  if (refuse_) {
    errors.push_back({"", "refused by the test"});
  } else {
    errors = doc_.mergePatch(*parsed.value);
  }
  if (errors.empty())
    return R"({"ok":true})"
           "\n";
  Json e = Json::array();
  for (const auto& x : errors) e.push_back({{"path", x.path}, {"reason", x.reason}});
  return Json{{"ok", false}, {"errors", e}}.dump() + "\n";
}

// ---- FakeKernel

namespace {

uint32_t hexLe(const std::string& h) {
  const uint32_t v = static_cast<uint32_t>(std::stoul(h, nullptr, 16));
  return __builtin_bswap32(v);  // /proc shows network byte order as a little-endian word
}

}  // namespace

FakeKernel::FakeKernel(const std::string& set) {
  std::istringstream net(readCapture(set, "sys_class_net.txt"));
  for (std::string line; std::getline(net, line);) {
    std::istringstream w(line);
    std::string name, idx, op;
    w >> name >> idx >> op;
    if (name.empty()) continue;
    links[name] = {std::stoi(idx.substr(idx.find('=') + 1)), op.substr(op.find('=') + 1)};
  }
  std::map<int, int> ifOfVif;
  vifTable = PimSnmpFrr::Kernel::parseVifTable(readCapture(set, "proc_ip_mr_vif.txt"));
  for (auto& v : vifTable) {
    v.ifIndex = links.contains(v.name) ? links[v.name].first : 0;
    ifOfVif[v.vif] = v.ifIndex;
  }
  std::istringstream cache(readCapture(set, "proc_ip_mr_cache.txt"));
  std::string line;
  std::getline(cache, line);
  while (std::getline(cache, line)) {
    std::istringstream w(line);
    std::string g, s;
    int iif = 0;
    PimSnmpFrr::Kernel::MfcEntry e;
    if (!(w >> g >> s >> iif >> e.packets >> e.bytes >> e.wrongIf)) continue;
    e.table = 253;
    e.group = hexLe(g);
    e.source = hexLe(s);
    e.iifIndex = ifOfVif.contains(iif) ? ifOfVif[iif] : 0;
    for (std::string oif; w >> oif;) {
      const int v = std::stoi(oif.substr(0, oif.find(':')));
      if (ifOfVif.contains(v)) e.oifIndexes.push_back(ifOfVif[v]);
    }
    mfc.push_back(e);
  }
}

std::string FakeKernel::operState(const std::string& name) {
  const auto it = links.find(name);
  return it == links.end() ? "" : it->second.second;
}

std::optional<int> FakeKernel::ifIndex(const std::string& name) {
  const auto it = links.find(name);
  if (it == links.end()) return std::nullopt;
  return it->second.first;
}

// ---- snapshots of the captures

CaptureRun::CaptureRun(const std::string& set)
    : dir(tempSocket("vty")),
      made(fs::create_directories(dir)),
      pimd(dir + "/pimd.vty", set),
      zebra(dir + "/zebra.vty", set),
      kernel(set) {}

CaptureRun::~CaptureRun() {
  fs::remove_all(dir);
}

Json CaptureRun::snapshot() {
  PimSnmpFrr::Options o;
  o.vtyDir = dir;
  PimSnmpFrr::Feeder feeder(o, kernel, clock);
  return feeder.snapshotOnce();
}

Json captureSnapshot(const std::string& set, int64_t now) {
  CaptureRun run(set);
  run.clock.unix = now;
  return run.snapshot();
}

}  // namespace FrrTest
