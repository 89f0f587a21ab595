// Bytes -> a document and merge patches applied in turn to a platform state that the agent's
// state machines follow. The first line is the document (a blank one keeps the empty
// document), every further line a patch, as on the feed. Updates are all or nothing: a refused
// one leaves the document's dump and every platform record exactly as they were. In the end a
// fresh state given the final document holds the same records (the patches' changes add up to
// what the document says).

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "daemon/state/Applier.h"
#include "daemon/state/StateDocument.h"
#include "tests/fuzz/FuzzSupport.h"
#include "tests/unit/state_doc/RecordsDump.h"

namespace {

using PimSnmpd::ApplyResult;
using PimSnmpd::Document;
using StateDocTest::recordsDump;

std::vector<std::string_view> lines(std::string_view text) {
  std::vector<std::string_view> out;
  while (!text.empty()) {
    const size_t nl = text.find('\n');
    out.push_back(text.substr(0, nl));
    if (nl == std::string_view::npos) break;
    text.remove_prefix(nl + 1);
  }
  return out;
}

bool blank(std::string_view line) {
  return line.find_first_not_of(" \t\r") == std::string_view::npos;
}

// Applies one update and checks that a refusal changed nothing.
template <class Apply>
void update(Document& doc, Fuzz::Platform& p, std::string_view what, Apply apply) {
  const std::string docBefore = doc.dump();
  const std::string recordsBefore = recordsDump(p.state());
  const ApplyResult r = apply();
  if (r.ok) {
    Fuzz::check(r.errors.empty(), what, "accepted with errors");
    return;
  }
  Fuzz::check(!r.errors.empty(), what, "refused without a reason");
  Fuzz::check(doc.dump() == docBefore, what, "a refusal changed the document");
  Fuzz::check(recordsDump(p.state()) == recordsBefore, what,
              "a refusal changed the platform records");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::vector<std::string_view> input = lines(Fuzz::text(data, size));
  Fuzz::Platform platform(true);
  Document doc;
  for (size_t i = 0; i < input.size(); ++i) {
    if (blank(input[i])) continue;
    if (i == 0) {
      update(doc, platform, "document",
             [&] { return PimSnmpd::applyText(doc, input[i], platform.state()); });
    } else {
      update(doc, platform, "patch",
             [&] { return PimSnmpd::applyPatchText(doc, input[i], platform.state()); });
    }
    // New items take the time of their update; the agent's timers run.
    platform.clock().stepTo(platform.clock().now() + 1);
  }

  const std::string final = doc.dump();
  Fuzz::Platform fresh(false);
  Document again;
  const ApplyResult r = PimSnmpd::applyText(again, final, fresh.state());
  Fuzz::check(r.ok, "the final document is refused on its own", final);
  Fuzz::check(again.dump() == final, "the final document changes when applied on its own");
  Fuzz::check(recordsDump(fresh.state()) == recordsDump(platform.state()),
              "the patches' records differ from the final document's", final);
  return 0;
}
