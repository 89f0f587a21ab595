#include "platform/Trace/Trace.h"

#include <cstdio>
#include <vector>

#include "platform/Trace/Capture.h"

namespace Trace {

namespace {

struct Registry {
  Handle* handles = nullptr;
  // facility pattern -> mask, in the order given; later items win.
  std::vector<std::pair<std::string, uint32_t>> settings;
  Sink sink;
};

Registry& registry() {
  static Registry r;
  return r;
}

// '*' matches any run of characters, anywhere in the pattern ("*", "Pim*", "Pim*MIB").
bool matches(std::string_view pattern, std::string_view name) {
  const size_t star = pattern.find('*');
  if (star == std::string_view::npos) return pattern == name;
  if (name.substr(0, star) != pattern.substr(0, star)) return false;
  pattern.remove_prefix(star + 1);
  for (size_t i = star; i <= name.size(); ++i) {
    if (matches(pattern, name.substr(i))) return true;
  }
  return false;
}

uint32_t maskFor(std::string_view name) {
  uint32_t mask = 0;
  for (const auto& [pattern, m] : registry().settings) {
    if (matches(pattern, name)) mask = m;
  }
  return mask;
}

// "0-2", "08", "0-9", "" (all) -> bit mask; returns false when malformed.
bool parseLevels(std::string_view s, uint32_t& mask) {
  if (s.empty()) {
    mask = (1u << (kMaxLevel + 1)) - 1;
    return true;
  }
  mask = 0;
  for (size_t i = 0; i < s.size(); ++i) {
    if (s[i] < '0' || s[i] > '9') return false;
    int lo = s[i] - '0', hi = lo;
    if (i + 1 < s.size() && s[i + 1] == '-') {
      if (i + 2 >= s.size() || s[i + 2] < '0' || s[i + 2] > '9') return false;
      hi = s[i + 2] - '0';
      i += 2;
      if (hi < lo) return false;
    }
    for (int l = lo; l <= hi; ++l) mask |= 1u << l;
  }
  return true;
}

std::string levelsText(uint32_t mask) {
  std::string out;
  for (int l = 0; l <= kMaxLevel; ++l) {
    if (mask & (1u << l)) out.push_back(static_cast<char>('0' + l));
  }
  return out;
}

void writeStderr(const Handle& h, int level, std::string_view msg) {
  fmt::print(stderr, "{}/{} {}\n", h.name(), level, msg);
}

}  // namespace

void applySettings() {
  for (Handle* h = registry().handles; h; h = h->next_) h->mask_ = maskFor(h->name_);
}

Handle::Handle(std::string_view name) : name_(name) {
  Registry& r = registry();
  next_ = r.handles;
  r.handles = this;
  mask_ = maskFor(name_);
}

void sinkIs(Sink sink) { registry().sink = std::move(sink); }
void defaultSinkIs() { registry().sink = nullptr; }

bool enable(std::string_view setting) {
  std::vector<std::pair<std::string, uint32_t>> items;
  while (!setting.empty()) {
    size_t comma = setting.find(',');
    std::string_view item = setting.substr(0, comma);
    setting = comma == std::string_view::npos ? std::string_view{} : setting.substr(comma + 1);
    if (item.empty()) continue;
    size_t slash = item.find('/');
    std::string_view facility = item.substr(0, slash);
    std::string_view levels = slash == std::string_view::npos ? "" : item.substr(slash + 1);
    uint32_t mask = 0;
    if (facility.empty() || !parseLevels(levels, mask)) return false;
    items.emplace_back(std::string(facility), mask);
  }
  for (auto& item : items) registry().settings.push_back(std::move(item));
  applySettings();
  return true;
}

void disableAll() {
  registry().settings.clear();
  applySettings();
}

std::string setting() {
  std::string out;
  for (const auto& [pattern, mask] : registry().settings) {
    if (!out.empty()) out += ',';
    out += pattern + "/" + levelsText(mask);
  }
  return out;
}

void emit(const Handle& handle, int level, std::string_view message) {
  const Sink& sink = registry().sink;
  if (sink) {
    sink(handle, level, message);
  } else {
    writeStderr(handle, level, message);
  }
}

Capture::Capture(std::string_view setting)
    : previous_(Trace::setting()), previousSink_(registry().sink) {
  disableAll();
  enable(setting);
  sinkIs([this](const Handle& h, int level, std::string_view msg) {
    lines_.push_back({std::string(h.name()), level, std::string(msg)});
  });
}

Capture::~Capture() {
  sinkIs(std::move(previousSink_));
  disableAll();
  enable(previous_);
}

bool Capture::contains(std::string_view text) const { return count(text) > 0; }

size_t Capture::count(std::string_view text) const {
  size_t n = 0;
  for (const auto& l : lines_) n += l.message.find(text) != std::string::npos;
  return n;
}

}  // namespace Trace
