// The router's settings store: named texts, shared by every process of the device.
//
// Names and values are NUL-terminated and hold any byte but NUL (a name holds no '=' either).
// A set is seen by every process at once and lasts until the next restart; nvram_commit makes all
// values lasting. A key stored with an empty value exists and differs from an absent one.
#pragma once

extern "C" {

/// @return the value, or null when the key is absent. The text belongs to the store and is valid
/// until this process next calls any function of this header; it never changes meanwhile.
const char* nvram_get(const char* name);

/// Copies both texts. A null value removes the key.
/// @return 0, or -1 when the value could not be stored (nothing has changed then).
int nvram_set(const char* name, const char* value);

/// Makes the present values lasting: power loss at any instant leaves the old values or the new.
/// @return 0, or non-zero when the lasting image could not be written (the old one stands).
int nvram_commit(void);
}
