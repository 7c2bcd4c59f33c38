// The settings that a server sends: a block of name=value texts, looked up by name.
//
// Each text ends in one or more NULs; only its first '=' counts, and nothing is escaped. One block
// is loaded at a time. Nothing is copied: names and values point into the block, which is written
// to (each '=' becomes a NUL) and must stay untouched while the table is used. Names are matched
// exactly; of records with the same name the last one counts.
#pragma once

#include <cstdint>

namespace rcmd {

/// More distinct names than this are dropped; a datagram holds fewer.
constexpr std::int32_t kMaxCgiNames = 3000;

/// Loads a block in place of the last one; a null block only drops the last one. A text that begins
/// inside the block is taken to its NUL, which may lie behind the block's end.
void init_cgi(char* block, std::uint32_t length);

/// @return the value, or null when nothing is loaded or the name is absent
const char* get_cgi(const char* name);

/// Enters or replaces one pair, when a block is loaded. Both texts stay the caller's.
void set_cgi(const char* name, const char* value);

/// The number of distinct names that are loaded.
std::int32_t count_cgi();

} // namespace rcmd
