#include "KernelTestData.h"

#include <arpa/inet.h>

#include <fstream>
#include <sstream>
#include <stdexcept>

namespace PimSnmpFrr::Kernel::Testing {

std::string dataPath(const std::string& name) {
  return std::string(FRR_KERNEL_DATA) + "/" + name;
}

std::string readText(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw std::runtime_error("cannot read " + path);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

std::vector<Bytes> readDatagrams(const std::string& path) {
  const std::string all = readText(path);
  std::vector<Bytes> out;
  for (size_t off = 0; off + 4 <= all.size();) {
    uint32_t len;
    std::memcpy(&len, all.data() + off, 4);  // little-endian, as this machine
    off += 4;
    if (len > all.size() - off) throw std::runtime_error("recording cut short: " + path);
    out.emplace_back(all.begin() + off, all.begin() + off + len);
    off += len;
  }
  return out;
}

std::map<std::pair<uint32_t, uint32_t>, CacheLine> parseCache(const std::string& text) {
  std::map<std::pair<uint32_t, uint32_t>, CacheLine> out;
  std::istringstream in(text);
  std::string line;
  std::getline(in, line);  // header
  while (std::getline(in, line)) {
    std::istringstream f(line);
    std::string group, origin, oif;
    CacheLine c;
    if (!(f >> group >> origin >> c.iifVif >> c.packets >> c.bytes >> c.wrongIf)) continue;
    // The addresses are the raw 32-bit words in hex: network order read as little-endian.
    c.group = ntohl(static_cast<uint32_t>(std::stoul(group, nullptr, 16)));
    c.origin = ntohl(static_cast<uint32_t>(std::stoul(origin, nullptr, 16)));
    while (f >> oif) c.oifVifs.push_back(std::stoi(oif.substr(0, oif.find(':'))));
    out[{c.origin, c.group}] = c;
  }
  return out;
}

MessageBuilder& MessageBuilder::header(uint16_t type, uint32_t seq, uint16_t flags) {
  start_ = bytes_.size();
  nlmsghdr h{};
  h.nlmsg_type = type;
  h.nlmsg_flags = flags;
  h.nlmsg_seq = seq;
  return raw(&h, sizeof(h));
}

MessageBuilder& MessageBuilder::route(uint8_t family, uint8_t table) {
  rtmsg r{};
  r.rtm_family = family;
  r.rtm_table = table;
  r.rtm_type = RTN_MULTICAST;
  return raw(&r, sizeof(r));
}

MessageBuilder& MessageBuilder::attr(uint16_t type, const void* data, size_t size) {
  rtattr a{};
  a.rta_len = static_cast<uint16_t>(sizeof(a) + size);
  a.rta_type = type;
  raw(&a, sizeof(a));
  raw(data, size);
  while (bytes_.size() % 4) bytes_.push_back(0);
  return *this;
}

MessageBuilder& MessageBuilder::addrAttr(uint16_t type, uint32_t hostOrder) {
  const uint32_t net = htonl(hostOrder);
  return attr(type, &net, 4);
}

MessageBuilder& MessageBuilder::multipath(const std::vector<int>& ifindexes) {
  Bytes nest;
  for (int ifindex : ifindexes) {
    rtnexthop nh{};
    nh.rtnh_len = sizeof(nh);
    nh.rtnh_hops = 1;
    nh.rtnh_ifindex = ifindex;
    const auto* p = reinterpret_cast<const uint8_t*>(&nh);
    nest.insert(nest.end(), p, p + sizeof(nh));
  }
  return attr(RTA_MULTIPATH, nest.data(), nest.size());
}

MessageBuilder& MessageBuilder::stats(uint64_t packets, uint64_t bytes, uint64_t wrongIf) {
  rta_mfc_stats s{packets, bytes, wrongIf};
  return attr(RTA_MFC_STATS, &s, sizeof(s));
}

MessageBuilder& MessageBuilder::raw(const void* data, size_t size) {
  const auto* p = static_cast<const uint8_t*>(data);
  bytes_.insert(bytes_.end(), p, p + size);
  return *this;
}

MessageBuilder& MessageBuilder::finish() {
  const auto len = static_cast<uint32_t>(bytes_.size() - start_);
  std::memcpy(bytes_.data() + start_, &len, 4);
  while (bytes_.size() % 4) bytes_.push_back(0);
  return *this;
}

Bytes doneMessage(uint32_t seq, int error) {
  return MessageBuilder().header(NLMSG_DONE, seq).raw(&error, sizeof(error)).finish().datagram();
}

}  // namespace PimSnmpFrr::Kernel::Testing
