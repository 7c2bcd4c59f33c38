// Conversions between texts, numbers and addresses. None of them allocates.
#pragma once

#include <netinet/in.h>
#include <stddef.h>
#include <stdint.h>

extern "C" {

/// Resolves a host name or dotted address.
/// @param flags    0; no flag is defined
/// @param address  receives the IPv4 address in network byte order on success
/// @return null on success, otherwise an error text of static storage: "name lookup failed" for a
/// well-formed name that does not resolve now, another text for what can never be one.
const char* atoaddr(const char* text, int flags, struct in_addr* address);

/// Reads a decimal number. Leading blanks and a '+' are skipped; a text without digits, or a
/// negative number, gives 0; what does not fit 32 bits gives 0xFFFFFFFF.
/// @param end   receives the place behind the last digit; may be null
/// @param base  0 or 10; both mean decimal
/// @return 0 when at least one digit was read, else -1
int atoul(const char* text, const char** end, int base, uint32_t* value);

/// Copies `text` into `work` and cuts it at every `separator`: a leading, trailing or doubled
/// separator gives an empty field, and an empty text is one empty field.
/// @param fields  receives pointers into `work` for the first `max_fields` fields
/// @return the number of all fields of the text, or -1 when it does not fit `work`
int split(const char* text, char separator, char* work, size_t work_bytes, char** fields,
          int max_fields);

/// Writes a MAC address as upper-case hexadecimal, colon-separated text: "00:1A:2B:3C:4D:5E".
/// @param text  18 bytes. @return `text`
char* ether_etoa(const uint8_t mac[6], char* text);
}
