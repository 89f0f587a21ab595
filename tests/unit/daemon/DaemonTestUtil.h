#pragma once

// Shared pieces of the daemon tests: a private temporary directory, the test documents, and a
// Unix-socket client that waits for reply lines.

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <sstream>
#include <string>

namespace DaemonTest {

class TempDir {
 public:
  TempDir() {
    std::string templ = (std::filesystem::temp_directory_path() / "pimsnmpd-test.XXXXXX").string();
    path_ = mkdtemp(templ.data());
  }
  ~TempDir() {
    std::error_code ec;
    std::filesystem::remove_all(path_, ec);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::string& path() const { return path_; }
  std::string file(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

inline std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

inline void writeFile(const std::string& path, const std::string& text) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << text;
}

// The document the daemon tests are written against: VRFs default and red (IPv4) and blue6
// (IPv6 only).
inline std::string testDocument() {
  return readFile(std::string(PIMSNMP_SOURCE_DIR) + "/tests/unit/daemon/test-state.json");
}

// The document the demo runs on.
inline std::string shippedDemoDocument() {
  return readFile(std::string(PIMSNMP_SOURCE_DIR) + "/examples/demo-state.json");
}

// A blocking client; `pump` runs the server side while waiting.
class LineClient {
 public:
  explicit LineClient(const std::string& path) {
    fd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    std::strncpy(addr.sun_path, path.c_str(), sizeof(addr.sun_path) - 1);
    connected_ = ::connect(fd_, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0;
  }
  ~LineClient() { close(); }
  LineClient(const LineClient&) = delete;
  LineClient& operator=(const LineClient&) = delete;

  bool connected() const { return connected_; }
  void send(const std::string& bytes) {
    size_t off = 0;
    while (off < bytes.size()) {
      const ssize_t n = ::send(fd_, bytes.data() + off, bytes.size() - off, MSG_NOSIGNAL);
      if (n <= 0) return;
      off += static_cast<size_t>(n);
    }
  }
  void shutdownWrite() { ::shutdown(fd_, SHUT_WR); }
  void close() {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
  }

  // The next reply line, pumping the server until it comes (nullopt after 5 s or at EOF).
  std::optional<std::string> readLine(const std::function<void()>& pump) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (std::chrono::steady_clock::now() < deadline) {
      if (const size_t nl = buf_.find('\n'); nl != std::string::npos) {
        std::string line = buf_.substr(0, nl);
        buf_.erase(0, nl + 1);
        return line;
      }
      if (!readSome(pump)) return std::nullopt;
    }
    return std::nullopt;
  }
  // True when the server closed the connection (pumping for up to 5 s).
  bool closedByServer(const std::function<void()>& pump) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (readSome(pump) && std::chrono::steady_clock::now() < deadline) {
    }
    return eof_;
  }

 private:
  int fd_ = -1;
  bool connected_ = false;
  bool eof_ = false;
  std::string buf_;

  // Pumps once and appends what arrives within 10 ms; false at EOF.
  bool readSome(const std::function<void()>& pump) {
    pump();
    pollfd p{fd_, POLLIN, 0};
    if (poll(&p, 1, 10) > 0) {
      char tmp[65536];
      const ssize_t n = ::read(fd_, tmp, sizeof tmp);
      if (n <= 0) eof_ = true;
      if (n > 0) buf_.append(tmp, static_cast<size_t>(n));
    }
    return !eof_;
  }
};

}  // namespace DaemonTest
