#include "variables/codec.h"

#include <cstddef>
#include <cstring>

namespace rcmd {

namespace {

struct Pair {
  const char* name; // null: free
  const char* value;
};

constexpr std::size_t kSlots = 4096;
static_assert(kSlots > kMaxCgiNames); // a free slot ends every search

Pair slots[kSlots];
bool loaded = false;
std::int32_t count = 0;

std::size_t hash(const char* text) {
  std::uint32_t value = 2166136261U;
  for (; *text != '\0'; text++) {
    value = (value ^ static_cast<std::uint8_t>(*text)) * 16777619U;
  }
  return value % kSlots;
}

// The name's slot, or the free one where it belongs.
Pair& slot_of(const char* name) {
  std::size_t at = hash(name);
  while (slots[at].name != nullptr && std::strcmp(slots[at].name, name) != 0) {
    at = (at + 1) % kSlots;
  }
  return slots[at];
}

void load(char* block, std::uint32_t length) {
  const char* end = block + length;
  char* at = block;
  while (at < end) {
    char* value = at;
    at += std::strlen(at);
    while (at < end && *at == '\0') {
      at++;
    }
    const char* name = strsep(&value, "=");
    if (value != nullptr) {
      set_cgi(name, value);
    }
  }
}

} // namespace

void init_cgi(char* block, std::uint32_t length) {
  std::memset(slots, 0, sizeof slots);
  count = 0;
  loaded = block != nullptr;
  if (loaded) {
    load(block, length);
  }
}

const char* get_cgi(const char* name) {
  return slot_of(name).value;
}

void set_cgi(const char* name, const char* value) {
  Pair& slot = slot_of(name);
  if (!loaded || (slot.name == nullptr && count == kMaxCgiNames)) {
    return;
  }
  if (slot.name == nullptr) {
    slot.name = name;
    count++;
  }
  slot.value = value;
}

std::int32_t count_cgi() {
  return count;
}

} // namespace rcmd
