#include "daemon/StateKeeper.h"

#include <fmt/format.h>

#include <array>
#include <exception>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>

#include "daemon/Excerpt.h"
#include "daemon/Log.h"
#include "platform/Clock/Clock.h"

namespace PimSnmpd {

Json errorsToJson(const ValidationErrors& errors) {
  Json out = Json::array();
  for (const ValidationError& e : errors) out.push_back({{"path", e.path}, {"reason", e.reason}});
  return out;
}

namespace {

size_t errorBytes(const ValidationError& e) {
  // Each entry also costs its JSON punctuation in the status report.
  return e.path.size() + e.reason.size() + 32;
}

// The errors of `errors` that fit in `budget` bytes, and one more entry counting the rest.
ValidationErrors keptErrors(const ValidationErrors& errors, size_t budget) {
  ValidationErrors kept;
  size_t used = 0;
  for (const ValidationError& e : errors) {
    // Leave room for the closing entry.
    if (used + errorBytes(e) + 64 > budget) break;
    used += errorBytes(e);
    kept.push_back(e);
  }
  if (kept.size() < errors.size()) {
    kept.push_back({"", fmt::format("{} more error(s) not kept", errors.size() - kept.size())});
  }
  return kept;
}

}  // namespace

ApplyResult StateKeeper::finish(ApplyResult result, std::string_view source) {
  if (result.ok) {
    ++applied_;
    return result;
  }
  ++refused_;
  excerptErrors(result.errors);
  // The reasons are logged: the operator may not see the client's copy of the reply.
  std::string text;
  for (size_t i = 0; i < result.errors.size() && i < kLoggedErrors; ++i) {
    if (!text.empty()) text += "; ";
    text += result.errors[i].toString();
  }
  if (result.errors.size() > kLoggedErrors) {
    text += fmt::format("; and {} more", result.errors.size() - kLoggedErrors);
  }
  Log::warning("refused update from {}: {}", excerpt(source), text);

  Refusal r{Plat::now(), excerpt(source), keptErrors(result.errors, kRefusalBytes)};
  r.bytes = r.source.size();
  for (const ValidationError& e : r.errors) r.bytes += errorBytes(e);
  refusalBytes_ += r.bytes;
  refusals_.push_back(std::move(r));
  while (refusals_.size() > kKeptRefusals || refusalBytes_ > kKeptRefusalBytes) {
    refusalBytes_ -= refusals_.front().bytes;
    refusals_.pop_front();
  }
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
  // Read straight into one buffer of the file's size: a million-route document is hundreds of
  // megabytes, and every extra copy is as many fresh pages to fault in. A file whose size is
  // unknown (a FIFO) grows the buffer as it is read.
  std::string text;
  std::error_code ec;
  if (const auto size = std::filesystem::file_size(path, ec); !ec) text.reserve(size);
  std::array<char, 1 << 16> chunk;
  while (in.read(chunk.data(), chunk.size()) || in.gcount() > 0) {
    text.append(chunk.data(), static_cast<size_t>(in.gcount()));
  }
  if (in.bad()) return finish({false, {{"", fmt::format("error reading {}", path)}}}, source);
  return finish(
      guarded([&] { return PimSnmpd::applyTextTaking(document_, std::move(text), state_); }),
      source);
}

}  // namespace PimSnmpd
