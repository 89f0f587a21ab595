// pimsnmpctl: the companion CLI of pimsnmpd (also `pimsnmpd ctl`).

#include "daemon/ctl/Ctl.h"

int main(int argc, char** argv) {
  return PimSnmpd::Ctl::main(argc, argv, "pimsnmpctl");
}
