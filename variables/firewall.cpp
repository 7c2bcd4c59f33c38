#include "variables/firewall.h"

#include "core/context.h"
#include "core/owned.h"
#include "core/text.h"
#include "platform/api/convert.h"
#include "platform/api/nvram.h"
#include "variables/keys.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

namespace rcmd {

namespace {

constexpr const char* kAccessFields[] = {"indev",     "from_ip", "outdev", "to_ip",  "protocol",
                                         "startport", "endport", "log",    "action", "desc"};
constexpr const char* kForwardingFields[] = {"interface", "protocol",  "srcip",  "externalport",
                                             "natip",     "localport", "autofw", "desc"};

struct RuleKind {
  const char* stem; // of the keys, and of the variable's name before "_rule" and the number
  const char* const* fields;
  int field_count;
};

constexpr RuleKind kAccess = {"firewall_access", kAccessFields, std::size(kAccessFields)};
constexpr RuleKind kForwarding = {"firewall_portforwarding", kForwardingFields,
                                  std::size(kForwardingFields)};

constexpr int kMostParts = std::size(kAccessFields) + 1; // the flag included
constexpr int kEnabled = 2;

// A rule's fields while it is taken apart; a value never exceeds the datagram that brings it.
char work[kBufferBytes];

struct Rule {
  const RuleKind& kind;
  int number;

  Rule(const RuleKind& of_kind, const VariableEntry& row)
      : kind(of_kind),
        number(decimal(row.name + std::strlen(of_kind.stem) + std::strlen("_rule"))) {}

  [[nodiscard]] NvramKey key(const char* suffix) const {
    NvramKey key;
    std::snprintf(key.text, sizeof key.text, "%s%d_%s", kind.stem, number, suffix);
    return key;
  }
};

// Puts `more` and `end` behind the text, which may move; null, or no memory, gives null.
char* appended(char* text, const char* more, const char* end) {
  if (text == nullptr) {
    return nullptr;
  }
  const std::size_t used = std::strlen(text);
  auto* longer =
      static_cast<char*>(std::realloc(text, used + std::strlen(more) + std::strlen(end) + 1));
  if (longer == nullptr) {
    std::free(text);
    return nullptr;
  }
  stpcpy(stpcpy(longer + used, more), end);
  return longer;
}

char* rule_get(const Rule& rule) {
  const int status = decimal(nvram_text(rule.key("status").text));
  char* text = strdup("");
  if (status == 0) {
    return text;
  }
  for (int i = 0; i < rule.kind.field_count; i++) {
    text = appended(text, nvram_text(rule.key(rule.kind.fields[i]).text), ",");
  }
  return appended(text, status == kEnabled ? "1" : "0", "");
}

std::int32_t rule_set(const Rule& rule, const char* value) {
  if (*value == '\0') {
    return nvram_set(rule.key("status").text, "0");
  }
  char* parts[kMostParts];
  const int count = split(value, ',', work, sizeof work, parts, kMostParts);
  if (count != rule.kind.field_count + 1) {
    return count;
  }
  for (int i = 0; i < rule.kind.field_count; i++) {
    ignore(nvram_set(rule.key(rule.kind.fields[i]).text, parts[i])); // the status key's counts
  }
  const bool enabled = std::strcmp(parts[rule.kind.field_count], "1") == 0;
  return nvram_set(rule.key("status").text, enabled ? "2" : "1");
}

} // namespace

char* firewall_access_get(std::int32_t, const VariableEntry* row) {
  return rule_get(Rule(kAccess, *row));
}

std::int32_t firewall_access_set(std::int32_t, const char* value, const VariableEntry* row) {
  return rule_set(Rule(kAccess, *row), value);
}

char* firewall_portforwarding_get(std::int32_t, const VariableEntry* row) {
  return rule_get(Rule(kForwarding, *row));
}

std::int32_t firewall_portforwarding_set(std::int32_t, const char* value,
                                         const VariableEntry* row) {
  return rule_set(Rule(kForwarding, *row), value);
}

} // namespace rcmd
