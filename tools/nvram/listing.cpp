#include "tools/nvram/listing.h"

#include "platform/api/nvram.h"
#include "platform/common/nvram_store.h"

#include <cstdlib>
#include <cstring>

namespace rcmd {

namespace {

struct Names {
  char** texts = nullptr;
  size_t count = 0;
  size_t room = 0;
  bool failed = false;

  Names() = default;
  Names(const Names&) = delete;
  Names& operator=(const Names&) = delete;
  ~Names() {
    for (size_t i = 0; i < count; i++) {
      free(texts[i]);
    }
    free(texts);
  }

  void add(const char* name, size_t length) {
    if (count == room) {
      const size_t more = room == 0 ? 256 : room * 2;
      auto* larger = static_cast<char**>(realloc(texts, more * sizeof(char*)));
      if (larger == nullptr) {
        failed = true;
        return;
      }
      texts = larger;
      room = more;
    }
    texts[count] = strndup(name, length);
    if (texts[count] == nullptr) {
      failed = true;
      return;
    }
    count++;
  }
};

int compare(const void* a, const void* b) {
  return strcmp(*static_cast<char* const*>(a), *static_cast<char* const*>(b));
}

void collect(void* arg, const char* record) {
  static_cast<Names*>(arg)->add(record, strcspn(record, "="));
}

} // namespace

Listing write_settings(FILE* file) {
  Names names;
  if (nvram_store().each(collect, &names) != 0 || names.failed) {
    return Listing::kFailed;
  }
  if (names.count > 0) {
    qsort(names.texts, names.count, sizeof(char*), compare);
  }
  Listing result = Listing::kWhole;
  for (size_t i = 0; i < names.count; i++) {
    // A key that others change meanwhile may have been seen twice, or be gone by now.
    const bool seen = i > 0 && strcmp(names.texts[i - 1], names.texts[i]) == 0;
    const char* value = seen ? nullptr : nvram_get(names.texts[i]);
    if (value != nullptr && strchr(value, '\n') != nullptr) {
      fprintf(stderr, "nvram: %s: left out, its value holds a line feed\n", names.texts[i]);
      result = Listing::kKeysLeftOut;
    } else if (value != nullptr) {
      fprintf(file, "%s=%s\n", names.texts[i], value);
    }
  }
  return fflush(file) != 0 || ferror(file) != 0 ? Listing::kFailed : result;
}

} // namespace rcmd
