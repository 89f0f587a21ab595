#include "daemon/ConfigFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace PimSnmpd {

std::optional<std::string> configUnreadable(const std::string& path) {
  struct stat st;
  if (stat(path.c_str(), &st) != 0) {
    if (errno == ENOENT) return "does not exist";
    return std::string("cannot be read: ") + std::strerror(errno);
  }
  if (S_ISDIR(st.st_mode)) return "is a directory";
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return std::string("cannot be read: ") + std::strerror(errno);
  close(fd);
  return std::nullopt;
}

}  // namespace PimSnmpd
