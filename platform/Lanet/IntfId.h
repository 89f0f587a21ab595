#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>
#include <utility>

#include <fmt/format.h>

namespace Lanet {

// An interface, identified by its name ("Ethernet1", "Vlan100"). The default is the empty
// interface id, meaning "no interface".
//
// Names are interned: every IntfId of one name shares one counted record, so an id costs a
// pointer wherever it is kept (a router holds a few per route, for a few hundred distinct
// names), copies are a count, and equality is a pointer comparison. A record goes when its
// last id does. Not thread-safe: ids are made and dropped on the daemon's one thread.
class IntfId {
 public:
  IntfId() = default;
  explicit IntfId(std::string_view name) : rec_(intern(name)) {}
  explicit IntfId(const std::string& name) : IntfId(std::string_view(name)) {}
  // Resolves IntfId("Ethernet1"), which would otherwise be ambiguous between the two above.
  explicit IntfId(const char* name) : IntfId(std::string_view(name)) {}
  IntfId(const IntfId& other) noexcept : rec_(other.rec_) {
    if (rec_) ++rec_->refs;
  }
  IntfId(IntfId&& other) noexcept : rec_(std::exchange(other.rec_, nullptr)) {}
  IntfId& operator=(const IntfId& other) noexcept {
    IntfId copy(other);
    std::swap(rec_, copy.rec_);
    return *this;
  }
  IntfId& operator=(IntfId&& other) noexcept {
    std::swap(rec_, other.rec_);
    return *this;
  }
  ~IntfId() {
    if (rec_ && --rec_->refs == 0) release(rec_);
  }

  const std::string& name() const { return rec_ ? rec_->name : emptyName(); }
  bool empty() const { return rec_ == nullptr; }
  const std::string& toString() const { return name(); }
  size_t hash(size_t seed = 0) const;

  // Equal names share a record.
  bool operator==(const IntfId& other) const { return rec_ == other.rec_; }
  // By name, bytewise.
  std::strong_ordering operator<=>(const IntfId& other) const {
    if (rec_ == other.rec_) return std::strong_ordering::equal;
    return name() <=> other.name();
  }

  // Distinct names currently held by some id (for tests and memory accounting).
  static size_t internedCount();

 private:
  struct Rec {
    std::string name;
    size_t nameHash;
    uint32_t refs;
  };
  // The record of `name`, counted once more; null for the empty name.
  static Rec* intern(std::string_view name);
  static void release(Rec* rec);
  static const std::string& emptyName();

  Rec* rec_ = nullptr;
};

std::ostream& operator<<(std::ostream& os, const IntfId& intf);

}  // namespace Lanet

template <>
struct std::hash<Lanet::IntfId> {
  size_t operator()(const Lanet::IntfId& intf) const noexcept { return intf.hash(); }
};

template <>
struct fmt::formatter<Lanet::IntfId> : fmt::formatter<std::string_view> {
  template <typename FormatContext>
  auto format(const Lanet::IntfId& intf, FormatContext& ctx) const {
    return fmt::formatter<std::string_view>::format(intf.name(), ctx);
  }
};
