#pragma once

// The daemon's one copy of the state document and the only way it changes: whole documents
// (the --state file) and merge patches (feed lines, the simulation) go through the applier,
// which validates the whole update before it changes any platform record. Refused updates are
// counted and the latest kept for the status report, within a byte budget: every quote of the
// input is an excerpt, and the oldest refusals go first.

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>

#include "daemon/state/Applier.h"
#include "daemon/state/PlatformState.h"
#include "daemon/state/StateDocument.h"

namespace PimSnmpd {

class StateKeeper {
 public:
  struct Refusal {
    double time = 0;
    std::string source;  // "feed client 3", "state file /etc/...", "simulation"
    ValidationErrors errors;
    size_t bytes = 0;  // what it counts against kKeptRefusalBytes
  };

  // How many refusals the status report keeps, and in how many bytes of paths and reasons.
  static constexpr size_t kKeptRefusals = 16;
  static constexpr size_t kKeptRefusalBytes = size_t{64} << 10;
  // One refusal keeps the errors that fit in this share, then says how many it left out.
  static constexpr size_t kRefusalBytes = kKeptRefusalBytes / 4;
  // The log line names this many errors and counts the rest.
  static constexpr size_t kLoggedErrors = 5;

  explicit StateKeeper(PlatformState& state) : state_(state) {}

  const Document& document() const { return document_; }

  // Applies a merge patch given as JSON text (one feed line).
  ApplyResult applyPatchText(std::string_view text, std::string_view source);
  ApplyResult applyPatch(const Json& patch, std::string_view source);
  // Makes the document `text` the current one (the state file).
  ApplyResult applyDocumentText(std::string_view text, std::string_view source);
  // Reads and applies the document in `path`; a missing or unreadable file is a refusal too.
  ApplyResult loadFile(const std::string& path);

  uint64_t applied() const { return applied_; }
  uint64_t refused() const { return refused_; }
  const std::deque<Refusal>& refusals() const { return refusals_; }
  // The bytes the kept refusals count against kKeptRefusalBytes.
  size_t refusalBytes() const { return refusalBytes_; }

 private:
  ApplyResult finish(ApplyResult result, std::string_view source);

  PlatformState& state_;
  Document document_;
  uint64_t applied_ = 0;
  uint64_t refused_ = 0;
  std::deque<Refusal> refusals_;
  size_t refusalBytes_ = 0;
};

// The JSON form of validation errors: [{"path": ..., "reason": ...}, ...].
Json errorsToJson(const ValidationErrors& errors);

}  // namespace PimSnmpd
