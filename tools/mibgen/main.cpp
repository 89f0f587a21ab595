// pimsnmp-mibgen: writes the MIB module files of the objects pimsnmpd serves, read off the
// agent's own descriptors, into a directory (packaging/mibs/ holds the checked-in copies).
//
//   pimsnmp-mibgen DIR

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "PimSnmp/PimMIB/PimMIB.h"
#include "PimSnmp/ipMRouteStdMIB/ipMRouteStdMIB.h"
#include "PimSnmp/ipMcastMIB/ipMcastMIB.h"
#include "tools/mibgen/MibWriter.h"

int main(int argc, char** argv) {
  using namespace Routing::Pim::Snmp;
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s DIR\n", argv[0]);
    return 2;
  }
  const std::vector<const Mib::Module*> all{&PimMIBModule(), &ipMRouteStdMIBModule(),
                                            &ipMcastMIBModule()};
  int problems = 0;
  for (const Mib::Module* m : all) {
    for (const std::string& p : Mib::problemsOf(*m, all)) {
      std::fprintf(stderr, "pimsnmp-mibgen: %s: %s\n", m->name, p.c_str());
      ++problems;
    }
  }
  if (problems) return 1;
  for (const Mib::Module* m : all) {
    const std::string path = std::string(argv[1]) + "/" + m->name + ".txt";
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << Mib::moduleText(*m, all);
    if (!out.flush()) {
      std::fprintf(stderr, "pimsnmp-mibgen: cannot write %s\n", path.c_str());
      return 1;
    }
  }
  return 0;
}
