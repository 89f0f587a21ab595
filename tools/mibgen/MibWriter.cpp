#include "tools/mibgen/MibWriter.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <map>
#include <set>
#include <string_view>

#include <fmt/format.h>

#include "PimSnmp/MibTable/MibTc.h"

namespace Routing::Pim::Snmp::Mib {

namespace {

const char* baseName(Base b) {
  switch (b) {
    case Base::kInteger:
      return "INTEGER";
    case Base::kInteger32:
      return "Integer32";
    case Base::kUnsigned32:
      return "Unsigned32";
    case Base::kGauge32:
      return "Gauge32";
    case Base::kCounter32:
      return "Counter32";
    case Base::kCounter64:
      return "Counter64";
    case Base::kTimeTicks:
      return "TimeTicks";
    case Base::kIpAddress:
      return "IpAddress";
    case Base::kOctetString:
      return "OCTET STRING";
  }
  return "?";
}

// The base types a varbind of `asnType` can carry (Gauge32 and Unsigned32 share a tag).
bool carries(u_char asnType, Base b) {
  switch (asnType) {
    case ASN_INTEGER:
      return b == Base::kInteger || b == Base::kInteger32;
    case ASN_UNSIGNED:
      return b == Base::kUnsigned32 || b == Base::kGauge32;
    case ASN_COUNTER:
      return b == Base::kCounter32;
    case ASN_COUNTER64:
      return b == Base::kCounter64;
    case ASN_TIMETICKS:
      return b == Base::kTimeTicks;
    case ASN_IPADDRESS:
      return b == Base::kIpAddress;
    case ASN_OCTET_STR:
      return b == Base::kOctetString;
    default:
      return false;
  }
}

std::string entryName(const Table& t) {
  std::string n = t.name;
  return n.substr(0, n.size() - std::strlen("Table")) + "Entry";
}

std::string sequenceName(const Table& t) {
  std::string n = entryName(t);
  n[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(n[0])));
  return n;
}

// "{ parent n }" for `at`, or "" when no named node is its parent.
std::string parentOf(const Module& m, const std::vector<oid>& at) {
  if (at.empty()) return "";
  const std::vector<oid> parent(at.begin(), at.end() - 1);
  if (m.identityOid == parent) return fmt::format("{{ {} {} }}", m.identity, at.back());
  for (const auto& n : m.nodes) {
    if (n.at == parent) return fmt::format("{{ {} {} }}", n.name, at.back());
  }
  for (const auto& t : m.tables) {
    if (t.at == parent) return fmt::format("{{ {} {} }}", t.name, at.back());
    std::vector<oid> entry = t.at;
    entry.push_back(1);
    if (entry == parent) return fmt::format("{{ {} {} }}", entryName(t), at.back());
  }
  return "";
}

bool quotable(const char* text) {
  return text && *text && !std::strchr(text, '"');
}

// The module defining index object `name` (its own, not imported, index column).
const Module* definingModule(const char* name, const std::vector<const Module*>& all) {
  for (const Module* m : all) {
    for (const auto& t : m->tables) {
      for (const auto& c : t.indexes) {
        if (c.number != 0 && std::string_view(c.name) == name) return m;
      }
    }
  }
  return nullptr;
}

template <class F>
void forEachObject(const Module& m, F&& f) {
  for (const auto& s : m.scalars) f(s.name, s.asnType, *s.object);
  for (const auto& t : m.tables) {
    for (const auto& c : t.indexes) {
      if (c.number != 0) f(c.name, c.asnType, *c.object);
    }
    for (const auto& c : t.columns) f(c.name, c.asnType, *c.object);
  }
}

void checkSyntax(const std::string& what, u_char asnType, const Syntax& s,
                 std::vector<std::string>& out) {
  if (!carries(asnType, s.base)) {
    out.push_back(fmt::format("{}: SYNTAX {} cannot carry the varbind type {:#x} it is sent as",
                              what, syntaxText(s), asnType));
  }
  if (s.base == Base::kInteger && !s.tc && s.enums.empty()) {
    out.push_back(fmt::format("{}: INTEGER without enumeration labels", what));
  }
  if ((s.base == Base::kCounter32 || s.base == Base::kCounter64) && !s.ranges.empty()) {
    out.push_back(fmt::format("{}: a counter cannot have a range", what));
  }
}

// `items` joined by `separator` and a space, broken into lines of at most `width` columns
// indented by `indent` (the first line starts at that column too).
std::string wrapped(const std::vector<std::string>& items, size_t indent,
                    const char* separator = ",", size_t width = 92) {
  std::string out;
  size_t col = indent;
  for (size_t i = 0; i < items.size(); ++i) {
    const std::string item = items[i] + (i + 1 < items.size() ? separator : "");
    if (i && col + 1 + item.size() > width) {
      out += '\n' + std::string(indent, ' ');
      col = indent;
    } else if (i) {
      out += ' ';
      ++col;
    }
    out += item;
    col += item.size();
  }
  return out;
}

// `text` as a quoted DESCRIPTION string, words wrapped, every line indented by `indent`.
std::string quoted(std::string_view text, size_t indent) {
  std::vector<std::string> words;
  for (size_t start = 0; start <= text.size();) {
    const size_t sp = std::min(text.find(' ', start), text.size());
    words.emplace_back(text.substr(start, sp - start));
    start = sp + 1;
  }
  return std::string(indent, ' ') + '"' + wrapped(words, indent + 1, "") + '"';
}

std::string objectType(const std::string& name, const std::string& syntax, const char* units,
                       const char* access, const char* description, const std::string& extra,
                       const std::string& at) {
  std::string s = fmt::format("{} OBJECT-TYPE\n    SYNTAX      {}\n", name, syntax);
  if (units) s += fmt::format("    UNITS       \"{}\"\n", units);
  s += fmt::format("    MAX-ACCESS  {}\n    STATUS      current\n    DESCRIPTION\n{}\n", access,
                   quoted(description, 8));
  s += extra;
  return s + fmt::format("    ::= {}\n", at);
}

// The name in a SEQUENCE: the type without ranges or labels.
std::string sequenceType(const Syntax& s) {
  return s.tc ? s.tc->name : baseName(s.base);
}

std::string textualConvention(const TextualConvention& tc) {
  std::string s = fmt::format("{} ::= TEXTUAL-CONVENTION\n", tc.name);
  if (tc.displayHint) s += fmt::format("    DISPLAY-HINT \"{}\"\n", tc.displayHint);
  return s + fmt::format("    STATUS       current\n    DESCRIPTION\n{}\n    SYNTAX       {}\n",
                         quoted(tc.description, 8), syntaxText(tc.syntax));
}

}  // namespace

std::string syntaxText(const Syntax& s) {
  std::string out = s.tc ? s.tc->name : baseName(s.base);
  if (!s.enums.empty() && !s.tc) {
    std::vector<std::string> labels;
    for (const auto& n : s.enums) labels.push_back(fmt::format("{}({})", n.label, n.value));
    out += fmt::format(" {{ {} }}", wrapped(labels, 17));
  }
  if (!s.ranges.empty()) {
    std::vector<std::string> alts;
    for (const auto& r : s.ranges) {
      alts.push_back(r.lo == r.hi ? fmt::format("{}", r.lo) : fmt::format("{}..{}", r.lo, r.hi));
    }
    const std::string joined = fmt::format("{}", fmt::join(alts, " | "));
    out += s.base == Base::kOctetString ? fmt::format(" (SIZE ({}))", joined)
                                        : fmt::format(" ({})", joined);
  }
  return out;
}

std::vector<std::string> problemsOf(const Module& m, const std::vector<const Module*>& all) {
  std::vector<std::string> out;
  if (!quotable(m.description)) out.push_back(fmt::format("{}: no usable DESCRIPTION", m.name));
  forEachObject(m, [&](const char* name, u_char asnType, const ObjectType& o) {
    if (!quotable(o.description)) out.push_back(fmt::format("{}: no usable DESCRIPTION", name));
    checkSyntax(name, asnType, o.syntax, out);
  });
  for (const auto& n : m.nodes) {
    if (parentOf(m, n.at).empty()) out.push_back(fmt::format("{}: no parent node", n.name));
  }
  for (const auto& s : m.scalars) {
    if (parentOf(m, s.at).empty()) out.push_back(fmt::format("{}: no parent node", s.name));
  }
  for (const auto& n : m.notifications) {
    if (parentOf(m, n.at).empty()) out.push_back(fmt::format("{}: no parent node", n.name));
    if (!quotable(n.description)) out.push_back(fmt::format("{}: no usable DESCRIPTION", n.name));
  }
  for (const auto& t : m.tables) {
    if (!std::string_view(t.name).ends_with("Table")) {
      out.push_back(fmt::format("{}: a table's name ends in Table", t.name));
    }
    if (parentOf(m, t.at).empty()) out.push_back(fmt::format("{}: no parent node", t.name));
    if (!quotable(t.description)) out.push_back(fmt::format("{}: no usable DESCRIPTION", t.name));
    std::set<unsigned> numbers;
    for (const auto& c : t.indexes) {
      if (c.number == 0 && !definingModule(c.name, all)) {
        out.push_back(fmt::format("{}: index {} is defined by no module", t.name, c.name));
      }
      if (c.number != 0 && !numbers.insert(c.number).second) {
        out.push_back(fmt::format("{}: column {} used twice", t.name, c.number));
      }
    }
    for (const auto& c : t.columns) {
      if (!numbers.insert(c.number).second) {
        out.push_back(fmt::format("{}: column {} used twice", t.name, c.number));
      }
    }
  }
  return out;
}

std::string moduleText(const Module& m, const std::vector<const Module*>& all) {
  // What the objects use: SMI base types, textual conventions, other modules' index objects.
  std::set<std::string> smi{"MODULE-IDENTITY", "OBJECT-TYPE"};
  std::set<const TextualConvention*> tcs;
  std::map<std::string, std::set<std::string>> imports;  // module -> objects
  auto use = [&](const Syntax& s) {
    const Base b = s.tc ? s.tc->syntax.base : s.base;
    if (b != Base::kInteger && b != Base::kOctetString) smi.insert(baseName(b));
    if (s.tc) tcs.insert(s.tc);
  };
  forEachObject(m, [&](const char*, u_char, const ObjectType& o) { use(o.syntax); });
  for (const auto& t : m.tables) {
    for (const auto& c : t.indexes) {
      if (c.number != 0) continue;
      const Module* d = definingModule(c.name, all);
      if (d && d != &m) imports[d->name].insert(c.name);
    }
  }
  if (!m.notifications.empty()) smi.insert("NOTIFICATION-TYPE");

  std::string s = fmt::format(
      "-- Generated by tools/mibgen from pimsnmpd's own table descriptors: do not edit.\n"
      "-- The objects pimsnmpd serves, under their standard names and OIDs (docs/mibs.md).\n\n"
      "{} DEFINITIONS ::= BEGIN\n\nIMPORTS\n    {}\n        FROM SNMPv2-SMI",
      m.name, wrapped({smi.begin(), smi.end()}, 4));
  if (!tcs.empty()) s += "\n    TEXTUAL-CONVENTION\n        FROM SNMPv2-TC";
  for (const auto& [module, objects] : imports) {
    s += fmt::format("\n    {}\n        FROM {}", wrapped({objects.begin(), objects.end()}, 4),
                     module);
  }
  s += ";\n\n";

  s += fmt::format(
      "{} MODULE-IDENTITY\n    LAST-UPDATED \"{}\"\n    ORGANIZATION \"PimSnmp\"\n"
      "    CONTACT-INFO \"The PimSnmp project: see pimsnmpd's documentation.\"\n"
      "    DESCRIPTION\n{}\n    ::= {{ iso {} }}\n\n",
      m.identity, m.lastUpdated, quoted(m.description, 8),
      fmt::join(m.identityOid.begin() + 1, m.identityOid.end(), " "));

  for (const TextualConvention* tc : textualConventions()) {
    if (tcs.count(tc)) s += textualConvention(*tc) + "\n";
  }
  for (const auto& n : m.nodes) {
    s += fmt::format("{} OBJECT IDENTIFIER ::= {}\n", n.name, parentOf(m, n.at));
  }
  s += "\n";
  for (const auto& n : m.notifications) {
    s += fmt::format(
        "{} NOTIFICATION-TYPE\n    OBJECTS     {{ {} }}\n    STATUS      current\n"
        "    DESCRIPTION\n{}\n    ::= {}\n\n",
        n.name, fmt::join(n.objects, ", "), quoted(n.description, 8), parentOf(m, n.at));
  }
  for (const auto& sc : m.scalars) {
    s += objectType(sc.name, syntaxText(sc.object->syntax), sc.object->units, "read-only",
                    sc.object->description, "", parentOf(m, sc.at)) +
         "\n";
  }
  for (const auto& t : m.tables) {
    const std::string entry = entryName(t);
    const std::string seq = sequenceName(t);
    s += objectType(t.name, "SEQUENCE OF " + seq, nullptr, "not-accessible", t.description, "",
                    parentOf(m, t.at)) +
         "\n";
    std::vector<std::string> index;
    for (const auto& c : t.indexes) index.push_back(c.name);
    std::vector<oid> entryOid = t.at;
    entryOid.push_back(1);
    s += objectType(entry, seq, nullptr, "not-accessible",
                    fmt::format("A row of {}.", t.name).c_str(),
                    fmt::format("    INDEX       {{ {} }}\n", fmt::join(index, ", ")),
                    parentOf(m, entryOid)) +
         "\n";

    // The entry's own objects in column order: index objects (not-accessible), then served.
    std::vector<std::pair<const Column*, bool>> own;
    for (const auto& c : t.indexes) {
      if (c.number != 0) own.push_back({&c, true});
    }
    for (const auto& c : t.columns) own.push_back({&c, false});
    std::sort(own.begin(), own.end(),
              [](const auto& a, const auto& b) { return a.first->number < b.first->number; });
    std::vector<std::string> members;
    for (const auto& [c, isIndex] : own) {
      members.push_back(fmt::format("{} {}", c->name, sequenceType(c->object->syntax)));
    }
    s += fmt::format("{} ::= SEQUENCE {{\n    {}\n}}\n\n", seq, fmt::join(members, ",\n    "));
    for (const auto& [c, isIndex] : own) {
      std::vector<oid> at = entryOid;
      at.push_back(c->number);
      s += objectType(c->name, syntaxText(c->object->syntax), c->object->units,
                      isIndex ? "not-accessible" : "read-only", c->object->description, "",
                      parentOf(m, at)) +
           "\n";
    }
  }
  return s + "END\n";
}

}  // namespace Routing::Pim::Snmp::Mib
