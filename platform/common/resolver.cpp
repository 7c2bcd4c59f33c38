#include "platform/api/convert.h"

#include <arpa/inet.h>
#include <cstring>
#include <netdb.h>
#include <sys/socket.h>

namespace {

constexpr size_t kMaxName = 253;
constexpr size_t kMaxLabel = 63;

bool is_dotted(const char* text) {
  return text[strspn(text, "0123456789.")] == '\0';
}

bool is_name_character(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
         c == '_';
}

/// Letters, digits, '-' and '_' in labels of 1 to 63 characters; one dot may stand at the end.
bool is_host_name(const char* text) {
  const size_t length = strlen(text);
  size_t label = 0;
  for (size_t i = 0; i <= length; i++) {
    const char c = text[i];
    if (c == '\0' && label == 0 && i > 1) {
      return length - 1 <= kMaxName;
    }
    if (c == '.' || c == '\0') {
      if (label == 0 || label > kMaxLabel || text[i - 1] == '-' || text[i - label] == '-') {
        return false;
      }
      label = 0;
    } else if (is_name_character(c)) {
      label++;
    } else {
      return false;
    }
  }
  return length <= kMaxName;
}

} // namespace

extern "C" {

const char* atoaddr(const char* text, int, struct in_addr* address) {
  if (inet_pton(AF_INET, text, address) == 1) {
    return nullptr;
  }
  if (is_dotted(text)) {
    return "malformed address";
  }
  if (!is_host_name(text)) {
    return "not a host name";
  }
  addrinfo wanted = {};
  wanted.ai_family = AF_INET;
  wanted.ai_socktype = SOCK_DGRAM;
  addrinfo* found = nullptr;
  if (getaddrinfo(text, nullptr, &wanted, &found) != 0 || found == nullptr) {
    return "name lookup failed";
  }
  sockaddr_in first = {};
  memcpy(&first, found->ai_addr, sizeof first);
  freeaddrinfo(found);
  *address = first.sin_addr;
  return nullptr;
}

} // extern "C"
