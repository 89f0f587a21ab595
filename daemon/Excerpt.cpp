#include "daemon/Excerpt.h"

#include <fmt/format.h>

namespace PimSnmpd {

namespace {

// The tail keeps what usually follows a quoted value: the reason it was refused.
constexpr size_t kTail = 96;
constexpr size_t kHead = kMaxExcerpt - kTail;

bool continuation(char ch) {
  return (static_cast<unsigned char>(ch) & 0xC0) == 0x80;
}

}  // namespace

std::string excerpt(std::string_view text) {
  if (text.size() <= kMaxExcerpt) return std::string(text);
  // Never split a UTF-8 sequence: the result goes into JSON replies, which must stay valid.
  size_t head = kHead;
  while (head > 0 && continuation(text[head])) --head;
  size_t tail = text.size() - kTail;
  while (tail < text.size() && continuation(text[tail])) ++tail;
  return fmt::format("{}…[{} bytes left out]…{}", text.substr(0, head), tail - head,
                     text.substr(tail));
}

void excerptErrors(ValidationErrors& errors) {
  for (ValidationError& e : errors) {
    if (e.path.size() > kMaxExcerpt) e.path = excerpt(e.path);
    if (e.reason.size() > kMaxExcerpt) e.reason = excerpt(e.reason);
  }
}

}  // namespace PimSnmpd
