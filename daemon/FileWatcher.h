#pragma once

// Follows one file through inotify. The directory is watched rather than the file, so that
// the usual ways of replacing a file (write in place, write a temporary and rename it over,
// delete and re-create) are all seen.

#include <functional>
#include <string>

#include "daemon/Poller.h"

namespace PimSnmpd {

class FileWatcher {
 public:
  enum class Event { changed, removed };
  using Callback = std::function<void(Event)>;

  FileWatcher(Poller& poller, Callback callback);
  ~FileWatcher();
  FileWatcher(const FileWatcher&) = delete;
  FileWatcher& operator=(const FileWatcher&) = delete;

  bool watch(const std::string& path, std::string& error);
  void stop();
  bool watching() const { return fd_ >= 0; }

 private:
  void onReadable();

  Poller& poller_;
  Callback callback_;
  int fd_ = -1;
  int wd_ = -1;
  std::string name_;  // the file's name in its directory
};

}  // namespace PimSnmpd
