// The trial faults of scripts/mutate, all compiled in and one of them chosen by the environment:
// RCMD_MUTANT is its number, 0 or absent for none. RCMD_MUTANTS_REACHED names a file of one byte
// per number into which a run writes which of them it came past, its children included.
//
// An expression `a < b` becomes `mutant::less(17, a, b)`. What is evaluated by the compiler is
// never changed.
#pragma once

#include <fcntl.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace mutant {

struct Choice {
  int number = 0;
  unsigned char* reached = nullptr;
  long reached_bytes = 0;

  Choice() {
    const char* text = getenv("RCMD_MUTANT");
    number = text != nullptr ? atoi(text) : 0;
    const char* path = getenv("RCMD_MUTANTS_REACHED");
    const int fd = path != nullptr ? open(path, O_RDWR | O_CLOEXEC) : -1;
    struct stat file {};
    if (fd >= 0 && fstat(fd, &file) == 0) {
      void* bytes = mmap(nullptr, static_cast<size_t>(file.st_size), PROT_READ | PROT_WRITE,
                         MAP_SHARED, fd, 0);
      if (bytes != MAP_FAILED) {
        reached = static_cast<unsigned char*>(bytes);
        reached_bytes = file.st_size;
      }
    }
    if (fd >= 0) {
      close(fd);
    }
  }
};

inline const Choice choice;

constexpr bool on(int number) {
  if (__builtin_is_constant_evaluated()) {
    return false;
  }
  if (number < choice.reached_bytes) {
    choice.reached[number] = 1;
  }
  return number == choice.number;
}

template <typename A, typename B> struct Same { static constexpr bool value = false; };
template <typename A> struct Same<A, A> { static constexpr bool value = true; };

// A truth turned round; on both operands and the result it makes an "or" of an "and".
constexpr bool flip(int number, bool value) {
  return on(number) ? !value : value;
}

// A constant and its successor.
template <typename T> constexpr T next(int number, T value) {
  if constexpr (Same<T, bool>::value) {
    return on(number) ? !value : value;
  } else {
    return on(number) ? static_cast<T>(static_cast<long long>(value) + 1) : value;
  }
}

// A result: none in place of some, one in place of none.
template <typename T> constexpr T other(int number, T value) {
  return on(number) ? static_cast<T>(value == static_cast<T>(0) ? 1 : 0) : value;
}
template <typename T> constexpr T* other(int number, T* value) {
  return on(number) ? nullptr : value;
}

// An expression that is left out is written: keep(n) ? void(expression) : void().
constexpr bool keep(int number) {
  return !on(number);
}

#define MUTANT_OPERATOR(name, was, becomes)                                                        \
  template <typename A, typename B> constexpr auto name(int number, const A& a, const B& b) {      \
    return on(number) ? (a becomes b) : (a was b);                                                 \
  }
MUTANT_OPERATOR(less, <, <=)
MUTANT_OPERATOR(less_equal, <=, <)
MUTANT_OPERATOR(greater, >, >=)
MUTANT_OPERATOR(greater_equal, >=, >)
MUTANT_OPERATOR(equal, ==, !=)
MUTANT_OPERATOR(not_equal, !=, ==)
MUTANT_OPERATOR(plus, +, -)
MUTANT_OPERATOR(minus, -, +)
MUTANT_OPERATOR(times, *, /)
MUTANT_OPERATOR(divided, /, *)
MUTANT_OPERATOR(modulo, %, *)
MUTANT_OPERATOR(shift_left, <<, >>)
MUTANT_OPERATOR(shift_right, >>, <<)
MUTANT_OPERATOR(bit_and, &, |)
MUTANT_OPERATOR(bit_or, |, &)
MUTANT_OPERATOR(bit_xor, ^, |)
#undef MUTANT_OPERATOR

#define MUTANT_ASSIGNMENT(name, was, becomes)                                                      \
  template <typename A, typename B> constexpr A& name(int number, A& a, const B& b) {              \
    return on(number) ? (a becomes b) : (a was b);                                                 \
  }
MUTANT_ASSIGNMENT(add_to, +=, -=)
MUTANT_ASSIGNMENT(take_from, -=, +=)
MUTANT_ASSIGNMENT(and_to, &=, |=)
MUTANT_ASSIGNMENT(or_to, |=, &=)
#undef MUTANT_ASSIGNMENT

} // namespace mutant
