#pragma once

#include <fmt/format.h>

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

// Numbered trace levels 0..9 per facility, "{}"-style messages. A message is
// formatted only when its level is enabled, so disabled traces cost one load
// and one test.
namespace Trace {

constexpr int kMaxLevel = 9;

// A named facility ("PimSnmpAgent", "PimMIB"). Handles have static storage and
// register themselves, so levels can be changed at run time by name.
class Handle {
 public:
  explicit Handle(std::string_view name);
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;

  std::string_view name() const { return name_; }
  bool enabled(int level) const { return (mask_ >> level) & 1u; }
  uint32_t mask() const { return mask_; }
  void maskIs(uint32_t mask) { mask_ = mask; }

 private:
  friend void applySettings();
  std::string name_;
  uint32_t mask_ = 0;
  Handle* next_ = nullptr;
};

// Receives every enabled message. The default sink writes "name/level message" to stderr.
using Sink = std::function<void(const Handle& handle, int level, std::string_view message)>;
void sinkIs(Sink sink);
void defaultSinkIs();

// Enables levels by a setting string: comma-separated "facility/levels" items,
// levels as digits and ranges ("0-2", "08", "0-9"); a '*' in the facility matches any run
// of characters ("*", "Pim*", "Pim*MIB"). A facility without "/levels" gets all levels.
// Example: "PimSnmpAgent/8,Pim*MIB/0-2". Returns false (changing nothing) on a malformed setting.
bool enable(std::string_view setting);
// Disables every level of every facility.
void disableAll();
// The current setting, as accepted by enable().
std::string setting();

void emit(const Handle& handle, int level, std::string_view message);

}  // namespace Trace

// Each source file that traces names its facility once:
//   DEFAULT_TRACE_HANDLE("PimSnmpAgent")
// and then uses TRACE0(...) .. TRACE9(...).
#define DEFAULT_TRACE_HANDLE(name)                 \
  namespace {                                      \
  ::Trace::Handle& defaultTraceHandle() {          \
    static ::Trace::Handle handle(name);           \
    return handle;                                 \
  }                                                \
  }

#define TRACE_AT(handle, level, ...)                                          \
  do {                                                                        \
    const ::Trace::Handle& traceHandle_ = (handle);                           \
    if (traceHandle_.enabled(level))                                          \
      ::Trace::emit(traceHandle_, (level), ::fmt::format(__VA_ARGS__));       \
  } while (0)

#define TRACE0(...) TRACE_AT(defaultTraceHandle(), 0, __VA_ARGS__)
#define TRACE1(...) TRACE_AT(defaultTraceHandle(), 1, __VA_ARGS__)
#define TRACE2(...) TRACE_AT(defaultTraceHandle(), 2, __VA_ARGS__)
#define TRACE3(...) TRACE_AT(defaultTraceHandle(), 3, __VA_ARGS__)
#define TRACE4(...) TRACE_AT(defaultTraceHandle(), 4, __VA_ARGS__)
#define TRACE5(...) TRACE_AT(defaultTraceHandle(), 5, __VA_ARGS__)
#define TRACE6(...) TRACE_AT(defaultTraceHandle(), 6, __VA_ARGS__)
#define TRACE7(...) TRACE_AT(defaultTraceHandle(), 7, __VA_ARGS__)
#define TRACE8(...) TRACE_AT(defaultTraceHandle(), 8, __VA_ARGS__)
#define TRACE9(...) TRACE_AT(defaultTraceHandle(), 9, __VA_ARGS__)
