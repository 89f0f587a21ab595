#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>

namespace Snmp {

// Per-table counts of what ordered table walks did, for the agent's status and for tests
// that check a request took the short path.
class TableCounters {
 public:
  enum Kind : uint8_t {
    walkEnd,      // a walk ran off the end of the table
    hintMatch,    // the hint named an existing row: the walk started there
    hintMiss,     // the hint named no row
    hintBad,      // the hint could not be read (type, range, too few components)
    hintNone,     // no hint: the walk started at the first row
    walkResync,   // the table changed during a walk, which continued after the current row
    cursorMatch,  // of hintMatch: the row the table's last request started at, found without
                  // the hash index
    kindCount,
  };
  using Counts = std::array<uint64_t, kindCount>;

  static void orderedIterCntrsInc(std::string_view table, Kind kind);
  // One table's counts, created on first use. The reference stays valid for the life of the
  // process (clearing zeroes counts, it removes no table), so a hot path looks it up once.
  static Counts& orderedIterCntrsOf(std::string_view table);
  static uint64_t orderedIterCntr(std::string_view table, Kind kind);
  // All tables' counts, by table name.
  static const std::map<std::string, Counts, std::less<>>& orderedIterCntrs();
  static void orderedIterCntrsClear();

  static std::string_view kindName(Kind kind);
};

}  // namespace Snmp
