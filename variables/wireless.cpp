#include "variables/wireless.h"

#include "core/owned.h"
#include "core/result.h"
#include "core/text.h"
#include "platform/api/nvram.h"
#include "variables/keys.h"

#include <cstdio>
#include <cstring>
#include <iterator>

namespace rcmd {

namespace {

struct AuthKeys {
  const char* auth;
  const char* akm;
};

constexpr AuthKeys kAuthModes[] = {{"0", ""}, {"1", ""}, {"0", "psk"}}; // of the numbers 1 to 3
constexpr const char* kMacModes[] = {"disabled", "deny", "allow"};      // of 0 to 2
constexpr const char* kWepModes[] = {"disabled", "enabled"};            // of 0 and 1

constexpr int kMacRules = 8;
constexpr int kMacCharacters = 17;

std::int32_t set_key(std::int32_t unit, const char* suffix, const char* value) {
  return nvram_set(wireless_key(unit, suffix).text, value);
}

template <std::size_t N>
std::int32_t set_word(std::int32_t unit, const char* suffix, const char* const (&words)[N],
                      int index) {
  if (index < 0 || index >= static_cast<int>(N)) {
    return kFailure;
  }
  return set_key(unit, suffix, words[index]);
}

// The number of the stored word, or -1.
template <std::size_t N>
int stored_word(std::int32_t unit, const char* suffix, const char* const (&words)[N]) {
  const char* stored = nvram_text(wireless_key(unit, suffix).text);
  for (int i = 0; i < static_cast<int>(N); i++) {
    if (std::strcmp(stored, words[i]) == 0) {
      return i;
    }
  }
  return -1;
}

char* digit_text(int number) {
  const char text[] = {static_cast<char>('0' + number), '\0'};
  return strdup(text);
}

} // namespace

char* wl_auth_mode_get(std::int32_t unit, const VariableEntry*) {
  return stored_copy(wireless_key(unit, "net_auth_mode").text);
}

std::int32_t wl_auth_mode_set(std::int32_t unit, const char* value, const VariableEntry*) {
  ignore(set_key(unit, "net_auth_mode", value)); // the status speaks of the last key alone
  const int mode = decimal(value);
  if (mode < 1) {
    return 1;
  }
  if (mode > static_cast<int>(std::size(kAuthModes))) {
    return 3;
  }
  const AuthKeys& keys = kAuthModes[mode - 1];
  ignore(set_key(unit, "auth", keys.auth));
  ignore(set_key(unit, "auth_mode", "none"));
  return set_key(unit, "akm", keys.akm);
}

char* wl_macmode_get(std::int32_t unit, const VariableEntry*) {
  const int mode = stored_word(unit, "macmode", kMacModes);
  return mode < 0 ? strdup("") : digit_text(mode);
}

std::int32_t wl_macmode_set(std::int32_t unit, const char* value, const VariableEntry*) {
  return set_word(unit, "macmode", kMacModes, decimal(value));
}

std::int32_t wl_macrule_set(std::int32_t unit, const char* value, const VariableEntry* row) {
  ignore(nvram_set(variable_key(*row, unit).text, value)); // the list's status counts
  return wl_maclist_update(unit);
}

std::int32_t wl_maclist_update(std::int32_t unit) {
  char list[kMacRules * (kMacCharacters + 1)] = "";
  TextWriter writer{list, sizeof list, 0};
  for (int n = 0; n < kMacRules; n++) {
    char suffix[24];
    std::snprintf(suffix, sizeof suffix, "macrule%d", n);
    const char* rule = nvram_text(wireless_key(unit, suffix).text);
    if (*rule != '\0') {
      ignore(writer.append("%s%.*s", writer.used == 0 ? "" : " ", kMacCharacters, rule)); // fits
    }
  }
  return set_key(unit, "maclist", list);
}

char* wl_wep_get(std::int32_t unit, const VariableEntry*) {
  return digit_text(stored_word(unit, "wep", kWepModes) == 1 ? 1 : 0);
}

std::int32_t wl_wep_set(std::int32_t unit, const char* value, const VariableEntry*) {
  return set_word(unit, "wep", kWepModes, decimal(value));
}

} // namespace rcmd
