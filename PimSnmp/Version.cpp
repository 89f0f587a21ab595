namespace Routing::Pim::Snmp {
// Reported by the daemon's --version and status output.
const char* pimSnmpVersion() { return "0.1.0"; }
}  // namespace Routing::Pim::Snmp
