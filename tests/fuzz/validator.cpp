// Bytes -> the validator, twice: as a whole state document (Document::parse) and as a merge
// patch of the demo document (applyPatchText). A text is accepted or refused with at least one
// reason; an accepted document survives its own dump unchanged; a refused patch leaves the
// document byte for byte as it was.

#include <cstddef>
#include <cstdint>
#include <string>

#include "daemon/state/Applier.h"
#include "daemon/state/StateDocument.h"
#include "tests/fuzz/FuzzSupport.h"

namespace {

using PimSnmpd::Document;
using PimSnmpd::ValidationErrors;

void checkReasons(const ValidationErrors& errors, std::string_view what) {
  Fuzz::check(!errors.empty(), what, "refused without a reason");
  for (const auto& e : errors) Fuzz::check(!e.reason.empty(), what, "an error without a reason");
}

void wholeDocument(std::string_view text) {
  const PimSnmpd::ParseResult parsed = Document::parse(text);
  if (!parsed.ok()) {
    checkReasons(parsed.errors, "document");
    return;
  }
  Fuzz::check(parsed.errors.empty(), "an accepted document has errors");
  const std::string dumped = parsed.document->dump();
  const PimSnmpd::ParseResult again = Document::parse(dumped);
  Fuzz::check(again.ok(), "the dump of an accepted document is refused", dumped);
  Fuzz::check(again.document->dump() == dumped, "a document changes through its dump", dumped);
}

// The demo document, applied once; every patch is checked against it and taken back.
struct Demo {
  Fuzz::Platform platform{false};
  Document document;
  std::string dump;

  Demo() {
    const auto r = PimSnmpd::applyText(document, Fuzz::readSourceFile("examples/demo-state.json"),
                                       platform.state());
    Fuzz::check(r.ok, "the demo document is refused");
    dump = document.dump();
  }
};

void patchOfDemo(std::string_view text) {
  static Demo demo;
  const PimSnmpd::ApplyResult r =
      PimSnmpd::applyPatchText(demo.document, text, demo.platform.state());
  if (!r.ok) {
    checkReasons(r.errors, "patch");
    Fuzz::check(demo.document.dump() == demo.dump, "a refused patch changed the document");
    return;
  }
  const PimSnmpd::ApplyResult back =
      PimSnmpd::applyText(demo.document, demo.dump, demo.platform.state());
  Fuzz::check(back.ok, "the demo document is refused after a patch");
  Fuzz::check(demo.document.dump() == demo.dump, "the demo document did not come back");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text = Fuzz::text(data, size);
  wholeDocument(text);
  patchOfDemo(text);
  return 0;
}
