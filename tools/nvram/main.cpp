// The command-line tool of the router's settings.

#include "platform/api/files.h"
#include "platform/api/nvram.h"
#include "tools/nvram/import.h"
#include "tools/nvram/listing.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace rcmd {

namespace {

constexpr int kDone = 0;
constexpr int kFailed = 1;
constexpr int kWrongUse = 2;

constexpr char kUsage[] =
    "Usage: nvram COMMAND\n"
    "Reads and changes the router's settings.\n"
    "\n"
    "  get NAME         print the value; exit status 1 when the key is absent\n"
    "  set NAME=VALUE   store a value; every process sees it at once\n"
    "  unset NAME       remove the key\n"
    "  show             print all settings as lines NAME=VALUE, sorted\n"
    "  commit           make the present settings lasting\n"
    "  import FILE      set every line NAME=VALUE of the file, or none when a line is malformed\n"
    "  export [FILE]    write all settings to the file, or to standard output\n"
    "  --help           print this text\n"
    "\n"
    "Exit status: 0 done, 1 failed or absent, 2 wrong use.\n";

int wrong_use() {
  fputs(kUsage, stderr);
  return kWrongUse;
}

int failed(const char* what, const char* reason) {
  fprintf(stderr, "nvram: %s: %s\n", what, reason);
  return kFailed;
}

int get(const char* name) {
  const char* value = nvram_get(name);
  return value != nullptr && puts(value) >= 0 && fflush(stdout) == 0 ? kDone : kFailed;
}

int set(const char* assignment) {
  const char* separator = strchr(assignment, '=');
  if (separator == nullptr || separator == assignment) {
    return wrong_use();
  }
  char* name = strndup(assignment, static_cast<size_t>(separator - assignment));
  const bool stored = name != nullptr && nvram_set(name, separator + 1) == 0;
  free(name);
  return stored ? kDone : failed(assignment, "cannot be stored");
}

int unset(const char* name) {
  return nvram_set(name, nullptr) == 0 ? kDone : failed(name, "cannot be removed");
}

int commit() {
  return nvram_commit() == 0 ? kDone : failed("commit", "the lasting image cannot be written");
}

/// Reads the whole file. @return a text of the caller's with one byte to spare, or null
char* read_whole(FILE* file, size_t* length) {
  size_t room = 65536;
  auto* text = static_cast<char*>(malloc(room));
  *length = 0;
  while (text != nullptr) {
    *length += fread(text + *length, 1, room - 1 - *length, file);
    if (*length < room - 1) {
      break;
    }
    room *= 2;
    auto* larger = static_cast<char*>(realloc(text, room));
    if (larger == nullptr) {
      free(text);
    }
    text = larger;
  }
  if (text != nullptr && ferror(file) != 0) {
    free(text);
    return nullptr;
  }
  return text;
}

int store(void*, const char* name, const char* value) {
  return nvram_set(name, value);
}

/// A file of the device is meant when there is one of that name.
FILE* open_import(const char* name) {
  FILE* file = fopen(device_path(name), "re");
  return file != nullptr ? file : fopen(name, "re");
}

int import_file(const char* name) {
  FILE* file = open_import(name);
  if (file == nullptr) {
    return failed(name, "cannot be opened");
  }
  size_t length = 0;
  char* text = read_whole(file, &length);
  fclose(file);
  if (text == nullptr) {
    return failed(name, "cannot be read");
  }
  const ImportFault fault = import_settings(text, length, store, nullptr);
  free(text);
  if (fault.reason != nullptr) {
    fprintf(stderr, "nvram: %s: line %zu: %s\n", name, fault.line, fault.reason);
  }
  return fault.reason == nullptr ? kDone : kFailed;
}

int export_to(FILE* file, const char* name) {
  const Listing result = write_settings(file);
  if (result == Listing::kFailed) {
    failed(name, "the settings cannot be written");
  }
  return result == Listing::kWhole ? kDone : kFailed;
}

int export_to_file(const char* name) {
  FILE* file = fopen(device_path(name), "we");
  if (file == nullptr) {
    return failed(name, "cannot be opened");
  }
  const int result = export_to(file, name);
  return fclose(file) == 0 ? result : failed(name, "cannot be written");
}

int run(const char* command, const char* operand) {
  if (operand == nullptr) {
    return strcmp(command, "show") == 0     ? export_to(stdout, "show")
           : strcmp(command, "export") == 0 ? export_to(stdout, "export")
           : strcmp(command, "commit") == 0 ? commit()
                                            : wrong_use();
  }
  const struct {
    const char* name;
    int (*action)(const char* operand);
  } commands[] = {{"get", get},
                  {"set", set},
                  {"unset", unset},
                  {"import", import_file},
                  {"export", export_to_file}};
  for (const auto& candidate : commands) {
    if (strcmp(command, candidate.name) == 0) {
      return candidate.action(operand);
    }
  }
  return wrong_use();
}

} // namespace

} // namespace rcmd

int main(int argc, char** argv) {
  if (argc == 2 && strcmp(argv[1], "--help") == 0) {
    fputs(rcmd::kUsage, stdout);
    return rcmd::kDone;
  }
  return argc == 2 || argc == 3 ? rcmd::run(argv[1], argc == 3 ? argv[2] : nullptr)
                                : rcmd::wrong_use();
}
