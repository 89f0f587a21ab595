#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <type_traits>
#include <utility>

namespace Ent {

// Base of every reference-counted object: rows, platform records, state machines.
// Counts are plain integers: everything runs on one event loop.
class RefCounted {
 public:
  RefCounted() = default;
  RefCounted(const RefCounted&) = delete;
  RefCounted& operator=(const RefCounted&) = delete;
  virtual ~RefCounted() = default;

  void ref() const noexcept { ++refs_; }
  void unref() const noexcept {
    if (--refs_ == 0) delete this;
  }
  uint32_t refCount() const noexcept { return refs_; }

 private:
  mutable uint32_t refs_ = 0;
};

// Intrusive counted reference. Ptr<const T> is the read-only reference that
// rows and state machines keep to the platform records they follow.
template <class T>
class Ptr {
 public:
  using element_type = T;

  Ptr() noexcept = default;
  Ptr(std::nullptr_t) noexcept {}
  Ptr(T* p) noexcept : p_(p) {  // NOLINT: implicit, like a raw pointer
    if (p_) p_->ref();
  }
  Ptr(const Ptr& o) noexcept : Ptr(o.p_) {}
  Ptr(Ptr&& o) noexcept : p_(std::exchange(o.p_, nullptr)) {}
  template <class U>
    requires std::is_convertible_v<U*, T*>
  Ptr(const Ptr<U>& o) noexcept : Ptr(o.get()) {}
  template <class U>
    requires std::is_convertible_v<U*, T*>
  Ptr(Ptr<U>&& o) noexcept : p_(o.release()) {}
  ~Ptr() {
    if (p_) p_->unref();
  }

  Ptr& operator=(Ptr o) noexcept {
    std::swap(p_, o.p_);
    return *this;
  }

  T* get() const noexcept { return p_; }
  T* operator->() const noexcept { return p_; }
  T& operator*() const noexcept { return *p_; }
  explicit operator bool() const noexcept { return p_ != nullptr; }
  void reset() noexcept { Ptr().swap(*this); }
  void swap(Ptr& o) noexcept { std::swap(p_, o.p_); }
  // Gives up ownership without dropping the count.
  T* release() noexcept { return std::exchange(p_, nullptr); }

  friend bool operator==(const Ptr& a, const Ptr& b) noexcept { return a.p_ == b.p_; }
  friend bool operator==(const Ptr& a, std::nullptr_t) noexcept { return a.p_ == nullptr; }

 private:
  T* p_ = nullptr;
};

template <class T, class... Args>
Ptr<T> make(Args&&... args) {
  return Ptr<T>(new T(std::forward<Args>(args)...));
}

// Casts between counted references of related entity types.
template <class T, class U>
Ptr<T> ptrCast(const Ptr<U>& p) noexcept {
  return Ptr<T>(dynamic_cast<T*>(p.get()));
}

}  // namespace Ent

template <class T>
struct std::hash<Ent::Ptr<T>> {
  size_t operator()(const Ent::Ptr<T>& p) const noexcept { return std::hash<T*>()(p.get()); }
};
