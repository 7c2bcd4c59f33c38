// The working copy of the settings: one file on tmpfs that every process maps.
//
//   header    8 words: magic, version, size of the file in bytes, number of slots, bytes used,
//   slots
//             taken, superseded, 0
//   slots     words; a hash table with open addressing (linear). 0 is a free slot, anything else
//             the offset of a record. A slot is never freed, and always belongs to the same name.
//   records   one behind the other: the name's hash (a word), then "name=value" and NUL, or "name"
//             and NUL for a removed key, padded to whole words
//
// Words are 32 bits in the machine's own order. A record never changes once a slot points to it:
// a change is a new record behind the last one, then the new "bytes used", then one store into the
// slot. So a reader needs no lock, and a writer that is killed at any instant leaves the old value
// or the new one. Writers hold the store's lock. When a file is full, its live records move to a
// new file; the old one is marked as superseded and not written any more. The last word of a file
// stays 0, so that every text in it ends.
#pragma once

#include <cstddef>
#include <cstdint>

namespace rcmd {

struct WorkingCopy {
  char* base = nullptr; ///< the mapped file; null: none
  size_t bytes = 0;

  /// Bytes of a file with room for `names` names and `record_bytes` of records, and as much again.
  static size_t size_for(size_t names, size_t record_bytes);
  /// The room that a record takes; a null value is a removed key.
  static size_t record_bytes(size_t name_length, const char* value);

  /// Writes header and empty slots over a file that is all zero.
  void format(size_t names);
  /// Whether this is a whole file of this layout.
  [[nodiscard]] bool sound() const;

  [[nodiscard]] bool superseded() const;
  void set_superseded(bool superseded);

  /// @return the value, or null when the key is absent
  [[nodiscard]] const char* find(const char* name) const;
  /// Stores a value, or removes the key when it is null. @return false when the file is full
  bool put(const char* name, size_t name_length, const char* value);

  /// Walks the live records in the order of their last change. `position` is 0 at first.
  /// @return "name=value", or null behind the last one
  const char* next(uint32_t* position) const;
};

} // namespace rcmd
