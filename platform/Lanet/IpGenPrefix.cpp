#include "platform/Lanet/IpGenPrefix.h"

#include <array>
#include <ostream>
#include <stdexcept>

#include "platform/Lanet/Hash.h"

namespace Lanet {

static_assert(sizeof(IpGenPrefix) == 18, "IpGenPrefix is a map key; keep it compact");

IpGenPrefix::IpGenPrefix(const IpGenAddr& addr, uint8_t maskLen) : addr_(addr), len_(maskLen) {
  if (maskLen > addressBits(addr.af())) {
    throw std::invalid_argument(
        fmt::format("prefix length {} is too long for {} address {}", maskLen, addr.af(), addr));
  }
}

IpGenPrefix IpGenPrefix::host(const IpGenAddr& addr) {
  return IpGenPrefix(addr, addressBits(addr.af()));
}

std::optional<IpGenPrefix> IpGenPrefix::parse(std::string_view text) {
  const size_t slash = text.rfind('/');
  if (slash == std::string_view::npos) return std::nullopt;
  const auto addr = IpGenAddr::parse(text.substr(0, slash));
  if (!addr) return std::nullopt;
  const std::string_view lenText = text.substr(slash + 1);
  if (lenText.empty() || lenText.size() > 3) return std::nullopt;
  unsigned len = 0;
  for (char c : lenText) {
    if (c < '0' || c > '9') return std::nullopt;
    len = len * 10 + static_cast<unsigned>(c - '0');
  }
  if (len > addressBits(addr->af())) return std::nullopt;
  return IpGenPrefix(*addr, static_cast<uint8_t>(len));
}

bool IpGenPrefix::contains(const IpGenAddr& addr) const {
  if (addr.af() != addr_.af()) return false;
  const auto mine = addr_.bytes();
  const auto theirs = addr.bytes();
  const size_t fullBytes = len_ / 8;
  for (size_t i = 0; i < fullBytes; ++i) {
    if (mine[i] != theirs[i]) return false;
  }
  if (const unsigned rest = len_ % 8; rest != 0) {
    const auto mask = static_cast<uint8_t>(0xff << (8 - rest));
    if ((mine[fullBytes] & mask) != (theirs[fullBytes] & mask)) return false;
  }
  return true;
}

IpGenPrefix IpGenPrefix::masked() const {
  const auto src = addr_.bytes();
  if (src.empty()) return *this;
  std::array<uint8_t, IpGenAddr::kMaxBytes> out{};
  for (size_t i = 0; i < src.size(); ++i) {
    const size_t bitsBefore = i * 8;
    if (len_ >= bitsBefore + 8) {
      out[i] = src[i];
    } else if (len_ > bitsBefore) {
      out[i] = static_cast<uint8_t>(src[i] & (0xff << (8 - (len_ - bitsBefore))));
    }
  }
  IpGenPrefix result;
  result.addr_ =
      *IpGenAddr::fromBytes(addr_.af(), std::span<const uint8_t>(out.data(), src.size()));
  result.len_ = len_;
  return result;
}

std::string IpGenPrefix::toString() const {
  return fmt::format("{}/{}", addr_, len_);
}

size_t IpGenPrefix::hash(size_t seed) const {
  return hashCombine(addr_.hash(seed), len_);
}

std::ostream& operator<<(std::ostream& os, const IpGenPrefix& prefix) {
  return os << prefix.toString();
}

}  // namespace Lanet
