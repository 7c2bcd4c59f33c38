#include "platform/api/convert.h"

#include <cctype>
#include <cstdio>
#include <cstring>

extern "C" {

int atoul(const char* text, const char** end, int, uint32_t* value) {
  const char* at = text;
  while (isspace(static_cast<unsigned char>(*at)) != 0) {
    at++;
  }
  const bool negative = *at == '-';
  if (negative || *at == '+') {
    at++;
  }
  const char* first_digit = at;
  uint32_t number = 0;
  for (; *at >= '0' && *at <= '9'; at++) {
    const auto digit = static_cast<uint32_t>(*at - '0');
    number = number > (UINT32_MAX - digit) / 10 ? UINT32_MAX : number * 10 + digit;
  }
  const bool found = at != first_digit;
  *value = negative ? 0 : number;
  if (end != nullptr) {
    *end = found ? at : text;
  }
  return found ? 0 : -1;
}

int split(const char* text, char separator, char* work, size_t work_bytes, char** fields,
          int max_fields) {
  const size_t bytes = strlen(text) + 1;
  if (bytes > work_bytes) {
    return -1;
  }
  memcpy(work, text, bytes);
  int count = 0;
  for (char* field = work; field != nullptr; count++) {
    if (count < max_fields) {
      fields[count] = field;
    }
    field = strchr(field, separator);
    if (field != nullptr) {
      *field++ = '\0';
    }
  }
  return count;
}

char* ether_etoa(const uint8_t mac[6], char* text) {
  snprintf(text, 18, "%02X:%02X:%02X:%02X:%02X:%02X", mac[0], mac[1], mac[2], mac[3], mac[4],
           mac[5]);
  return text;
}

} // extern "C"
