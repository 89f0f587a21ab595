#include "platform/Snmp/TableCounters.h"

namespace Snmp {

namespace {

// Few tables (13 per module set), looked up by name without allocating: a map with a
// transparent comparator is cheap enough and keeps the status output ordered.
std::map<std::string, TableCounters::Counts, std::less<>>& counters() {
  static std::map<std::string, TableCounters::Counts, std::less<>> c;
  return c;
}

}  // namespace

void TableCounters::orderedIterCntrsInc(std::string_view table, Kind kind) {
  if (kind >= kindCount) return;
  ++orderedIterCntrsOf(table)[kind];
}

TableCounters::Counts& TableCounters::orderedIterCntrsOf(std::string_view table) {
  auto& c = counters();
  auto it = c.find(table);
  if (it == c.end()) it = c.emplace(std::string(table), Counts{}).first;
  return it->second;
}

uint64_t TableCounters::orderedIterCntr(std::string_view table, Kind kind) {
  if (kind >= kindCount) return 0;
  const auto& c = counters();
  auto it = c.find(table);
  return it == c.end() ? 0 : it->second[kind];
}

const std::map<std::string, TableCounters::Counts, std::less<>>& TableCounters::orderedIterCntrs() {
  return counters();
}

void TableCounters::orderedIterCntrsClear() {
  // Zeroed, not erased: hot paths hold references to the counts.
  for (auto& [table, counts] : counters()) counts = Counts{};
}

std::string_view TableCounters::kindName(Kind kind) {
  switch (kind) {
    case walkEnd:
      return "walkEnd";
    case hintMatch:
      return "hintMatch";
    case hintMiss:
      return "hintMiss";
    case hintBad:
      return "hintBad";
    case hintNone:
      return "hintNone";
    case walkResync:
      return "walkResync";
    case cursorMatch:
      return "cursorMatch";
    case kindCount:
      break;
  }
  return "invalid";
}

}  // namespace Snmp
