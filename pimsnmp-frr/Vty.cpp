#include "pimsnmp-frr/Vty.h"

#include <unistd.h>

#include <sstream>

#include "pimsnmp-frr/Log.h"
#include "pimsnmp-frr/UnixStream.h"

namespace PimSnmpFrr {
namespace {

std::string withoutVrf(std::string_view command) {
  std::istringstream in{std::string(command)};
  std::string word, out;
  while (in >> word) {
    if (word == "vrf") {
      in >> word;  // the VRF's name
      continue;
    }
    if (!out.empty()) out += ' ';
    out += word;
  }
  return out;
}

constexpr std::string_view kTrailerStart("\0\0\0", 3);

}  // namespace

bool isForbiddenCommand(std::string_view command) {
  const std::string plain = withoutVrf(command);
  for (std::string_view f : kForbiddenCommands) {
    if (plain.compare(0, f.size(), f) == 0 &&
        (plain.size() == f.size() || plain[f.size()] == ' ')) {
      return true;
    }
  }
  return false;
}

VtyClient::VtyClient(std::string socketPath, std::chrono::milliseconds timeout)
    : path_(std::move(socketPath)), timeout_(timeout) {}

VtyClient::~VtyClient() {
  close();
}

void VtyClient::close() {
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
}

bool VtyClient::connect() {
  if (fd_ < 0) fd_ = connectUnix(path_);
  return fd_ >= 0;
}

std::optional<VtyReply> VtyClient::run(std::string_view command) {
  if (isForbiddenCommand(command)) {
    logLine("refusing to send '" + std::string(command) + "' to " + path_);
    return std::nullopt;
  }
  if (!connect()) return std::nullopt;
  const Deadline deadline = std::chrono::steady_clock::now() + timeout_;
  auto fail = [&](const char* why) -> std::optional<VtyReply> {
    logLine(path_ + " ('" + std::string(command) + "'): " + why + "; session closed");
    close();
    return std::nullopt;
  };
  std::string out(command);
  out.push_back('\0');
  if (const char* why = sendAll(fd_, out, deadline)) return fail(why);
  std::string in;
  for (;;) {
    if (const char* why = receiveSome(fd_, in, deadline)) return fail(why);
    if (in.size() >= 4 && in.compare(in.size() - 4, 3, kTrailerStart) == 0) break;
  }
  VtyReply reply;
  reply.status = static_cast<unsigned char>(in.back());
  in.resize(in.size() - 4);
  reply.text = std::move(in);
  return reply;
}

}  // namespace PimSnmpFrr
