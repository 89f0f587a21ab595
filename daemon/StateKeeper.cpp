#include "daemon/StateKeeper.h"

#include <fmt/format.h>

#include <exception>
#include <fstream>
#include <sstream>

#include "daemon/Log.h"
#include "platform/Clock/Clock.h"

namespace PimSnmpd {

Json errorsToJson(const ValidationErrors& errors) {
  Json out = Json::array();
  for (const ValidationError& e : errors) out.push_back({{"path", e.path}, {"reason", e.reason}});
  return out;
}

ApplyResult StateKeeper::finish(ApplyResult result, std::string_view source) {
  if (result.ok) {
    ++applied_;
    return result;
  }
  ++refused_;
  // Every reason is logged: the operator may not see the client's copy of the reply.
  std::string text;
  for (const ValidationError& e : result.errors) {
    if (!text.empty()) text += "; ";
    text += e.toString();
  }
  Log::warning("refused update from {}: {}", source, text);
  refusals_.push_back(Refusal{Plat::now(), std::string(source), result.errors});
  while (refusals_.size() > kKeptRefusals) refusals_.pop_front();
  return result;
}

namespace {

// The applier does not throw on validated input; should a platform record refuse a change
// anyway, the update is reported instead of taking the daemon down.
template <class F>
ApplyResult guarded(F&& f) {
  try {
    return f();
  } catch (const std::exception& e) {
    return {false, {{"", fmt::format("internal error while applying: {}", e.what())}}};
  }
}

}  // namespace

ApplyResult StateKeeper::applyPatchText(std::string_view text, std::string_view source) {
  return finish(guarded([&] { return PimSnmpd::applyPatchText(document_, text, state_); }), source);
}

ApplyResult StateKeeper::applyPatch(const Json& patch, std::string_view source) {
  return finish(guarded([&] { return PimSnmpd::applyPatch(document_, patch, state_); }), source);
}

ApplyResult StateKeeper::applyDocumentText(std::string_view text, std::string_view source) {
  return finish(guarded([&] { return PimSnmpd::applyText(document_, text, state_); }), source);
}

ApplyResult StateKeeper::loadFile(const std::string& path) {
  const std::string source = "state file " + path;
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    return finish({false, {{"", fmt::format("cannot read {}", path)}}}, source);
  }
  std::ostringstream text;
  text << in.rdbuf();
  if (in.bad()) return finish({false, {{"", fmt::format("error reading {}", path)}}}, source);
  return applyDocumentText(text.str(), source);
}

}  // namespace PimSnmpd
