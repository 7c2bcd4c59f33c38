#include "platform/common/working_copy.h"

#include <cstring>

namespace rcmd {

namespace {

constexpr uint32_t kMagic = 0x4E565257;
constexpr uint32_t kVersion = 1;
constexpr size_t kMinSlots = 1024;
constexpr size_t kMinRecordBytes = 65536;

struct Header {
  uint32_t magic;
  uint32_t version;
  uint32_t file_bytes;
  uint32_t slot_count; ///< a power of two
  uint32_t used;       ///< offset behind the last record
  uint32_t taken;      ///< slots that are not free
  uint32_t superseded;
  uint32_t zero;
};
static_assert(sizeof(Header) == 32);

Header& header_of(const WorkingCopy& copy) {
  return *reinterpret_cast<Header*>(copy.base);
}

uint32_t& word_at(const WorkingCopy& copy, size_t offset) {
  return *reinterpret_cast<uint32_t*>(copy.base + offset);
}

uint32_t load(const uint32_t& word) {
  return __atomic_load_n(&word, __ATOMIC_ACQUIRE);
}

void publish(uint32_t& word, uint32_t value) {
  __atomic_store_n(&word, value, __ATOMIC_RELEASE);
}

size_t whole_words(size_t bytes) {
  return (bytes + 3) & ~size_t{3};
}

uint32_t hash_of(const char* name, size_t length) {
  uint32_t hash = 0x811C9DC5U;
  for (size_t i = 0; i < length; i++) {
    hash = (hash ^ static_cast<uint8_t>(name[i])) * 0x01000193U;
  }
  return hash ^ hash >> 15;
}

size_t data_start(const WorkingCopy& copy) {
  return sizeof(Header) + header_of(copy).slot_count * sizeof(uint32_t);
}

/// The text of the record at `offset`, or null where no record can lie.
const char* text_at(const WorkingCopy& copy, uint32_t offset) {
  const bool inside = offset >= sizeof(Header) && offset % 4 == 0 && offset < copy.bytes - 8;
  return inside ? copy.base + offset + 4 : nullptr;
}

/// Finds the name's slot, or the free slot where it would stand.
/// @param text  receives the text of the name's record, or null
/// @return null when the name is absent and no slot is free
uint32_t* find_slot(const WorkingCopy& copy, const char* name, size_t length, const char** text) {
  const uint32_t hash = hash_of(name, length);
  const uint32_t mask = header_of(copy).slot_count - 1;
  *text = nullptr;
  for (uint32_t i = 0; i <= mask; i++) {
    uint32_t& slot = word_at(copy, sizeof(Header) + ((hash + i) & mask) * sizeof(uint32_t));
    const uint32_t offset = load(slot);
    if (offset == 0) {
      return &slot;
    }
    const char* found = text_at(copy, offset);
    if (found != nullptr && word_at(copy, offset) == hash && strncmp(found, name, length) == 0 &&
        (found[length] == '=' || found[length] == '\0')) {
      *text = found;
      return &slot;
    }
  }
  return nullptr;
}

size_t slots_for(size_t names) {
  size_t slots = kMinSlots;
  while (slots < names * 4) {
    slots *= 2;
  }
  return slots;
}

} // namespace

size_t WorkingCopy::size_for(size_t names, size_t record_bytes) {
  const size_t records = record_bytes * 4;
  return sizeof(Header) + slots_for(names) * sizeof(uint32_t) +
         (records < kMinRecordBytes ? kMinRecordBytes : whole_words(records)) + sizeof(uint32_t);
}

size_t WorkingCopy::record_bytes(size_t name_length, const char* value) {
  const size_t value_bytes = value == nullptr ? 0 : 1 + strlen(value);
  return whole_words(sizeof(uint32_t) + name_length + value_bytes + 1);
}

void WorkingCopy::format(size_t names) {
  Header& header = header_of(*this);
  header.version = kVersion;
  header.file_bytes = static_cast<uint32_t>(bytes);
  header.slot_count = static_cast<uint32_t>(slots_for(names));
  header.used = static_cast<uint32_t>(data_start(*this));
  publish(header.magic, kMagic);
}

bool WorkingCopy::sound() const {
  if (bytes < sizeof(Header) || bytes % 4 != 0) {
    return false;
  }
  const Header& header = header_of(*this);
  if (load(header.magic) != kMagic) { // written behind the other words, so read before them
    return false;
  }
  const uint32_t slots = header.slot_count;
  return header.version == kVersion && header.file_bytes == bytes && slots >= kMinSlots &&
         (slots & (slots - 1)) == 0 && slots < bytes / sizeof(uint32_t) &&
         data_start(*this) <= load(header.used) && load(header.used) <= bytes - 4 &&
         load(word_at(*this, bytes - 4)) == 0;
}

bool WorkingCopy::superseded() const {
  return load(header_of(*this).superseded) != 0;
}

void WorkingCopy::set_superseded(bool superseded) {
  publish(header_of(*this).superseded, superseded ? 1 : 0);
}

const char* WorkingCopy::find(const char* name) const {
  const size_t length = strlen(name);
  const char* text = nullptr;
  find_slot(*this, name, length, &text);
  return text == nullptr || text[length] != '=' ? nullptr : text + length + 1;
}

bool WorkingCopy::put(const char* name, size_t name_length, const char* value) {
  Header& header = header_of(*this);
  const size_t size = record_bytes(name_length, value);
  const char* old = nullptr;
  uint32_t* slot = find_slot(*this, name, name_length, &old);
  if (old == nullptr && value == nullptr) {
    return true;
  }
  const bool new_name_fits = header.taken < header.slot_count / 4 * 3;
  if (slot == nullptr || (old == nullptr && !new_name_fits) || size > bytes - 4 - header.used) {
    return false;
  }
  const uint32_t offset = header.used;
  word_at(*this, offset) = hash_of(name, name_length);
  char* text = base + offset + 4;
  memset(text, 0, size - 4);
  memcpy(text, name, name_length);
  if (value != nullptr) {
    text[name_length] = '=';
    memcpy(text + name_length + 1, value, strlen(value) + 1);
  }
  publish(header.used, static_cast<uint32_t>(offset + size));
  publish(*slot, offset);
  header.taken += old == nullptr ? 1 : 0;
  return true;
}

const char* WorkingCopy::next(uint32_t* position) const {
  const uint32_t used = load(header_of(*this).used);
  uint32_t at = *position == 0 ? static_cast<uint32_t>(data_start(*this)) : *position;
  while (at < used) {
    const char* text = text_at(*this, at);
    if (text == nullptr) {
      break;
    }
    const char* end = strchr(text, '\0');
    at = static_cast<uint32_t>(whole_words(static_cast<size_t>(end + 1 - base)));
    const char* separator = strchr(text, '=');
    if (separator == nullptr) {
      continue;
    }
    const char* present = nullptr;
    find_slot(*this, text, static_cast<size_t>(separator - text), &present);
    if (present == text) { // not one that a later record has replaced
      *position = at;
      return text;
    }
  }
  *position = used;
  return nullptr;
}

} // namespace rcmd
