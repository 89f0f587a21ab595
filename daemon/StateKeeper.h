#pragma once

// The daemon's one copy of the state document and the only way it changes: whole documents
// (the --state file) and merge patches (feed lines, the simulation) go through the applier,
// which validates the whole update before it changes any platform record. Refused updates are
// counted and the latest kept for the status report.

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
  };

  // How many refusals the status report keeps.
  static constexpr size_t kKeptRefusals = 16;

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

 private:
  ApplyResult finish(ApplyResult result, std::string_view source);

  PlatformState& state_;
  Document document_;
  uint64_t applied_ = 0;
  uint64_t refused_ = 0;
  std::deque<Refusal> refusals_;
};

// The JSON form of validation errors: [{"path": ..., "reason": ...}, ...].
Json errorsToJson(const ValidationErrors& errors);

}  // namespace PimSnmpd
