#pragma once

// Non-blocking Unix stream sockets with deadlines: the vty sessions and the feed connection.

#include <chrono>
#include <string>
#include <string_view>

namespace PimSnmpFrr {

using Deadline = std::chrono::steady_clock::time_point;

// A connected non-blocking socket, or -1.
int connectUnix(const std::string& path);
// Writes all of `data`; nullptr when done, else why not (a timeout, an error).
const char* sendAll(int fd, std::string_view data, Deadline deadline);
// Appends what arrives before the deadline (at least one byte); nullptr when something was
// read, else why not (the peer closed, a timeout, an error).
const char* receiveSome(int fd, std::string& into, Deadline deadline);

}  // namespace PimSnmpFrr
