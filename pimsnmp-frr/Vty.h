#pragma once

// A persistent session on an FRR daemon's vty socket (pimd.vty, zebra.vty): what vtysh does,
// without forking vtysh for every command. A command is sent as "cmd\0"; the daemon's answer
// ends with the trailer "\0\0\0<status>".

#include <array>
#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace PimSnmpFrr {

// Commands never sent, whatever the VRF form: on FRR 8.4 the first crashes pimd and the second
// returns corrupt RP addresses.
inline constexpr std::array<std::string_view, 2> kForbiddenCommands = {
    "show ip pim interface detail",
    "show ip pim bsm-database",
};

// Whether `command`, with any "vrf NAME" words taken out, starts with a forbidden command.
bool isForbiddenCommand(std::string_view command);

struct VtyReply {
  int status = 0;  // FRR's CMD_* code: 0 is success
  std::string text;
};

class VtyClient {
 public:
  VtyClient(std::string socketPath, std::chrono::milliseconds timeout);
  ~VtyClient();
  VtyClient(const VtyClient&) = delete;
  VtyClient& operator=(const VtyClient&) = delete;

  const std::string& path() const { return path_; }
  bool connected() const { return fd_ >= 0; }
  // Opens the session when it is not open; false when the daemon does not accept it.
  bool connect();
  void close();

  // The daemon's answer, or nullopt when the command is forbidden or the session failed (no
  // answer within the timeout, or the daemon closed it): the session is then closed, because a
  // late answer would be taken for the next command's.
  std::optional<VtyReply> run(std::string_view command);

 private:
  std::string path_;
  std::chrono::milliseconds timeout_;
  int fd_ = -1;
};

}  // namespace PimSnmpFrr
