// What the tests of variables share: packets taken apart at their raw offsets, and rows by name.
#pragma once

#include "tests/fake_platform/context.h"
#include "variables/tables.h"

#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

namespace kit {

using Texts = std::vector<std::string>;

/// A literal with its inner NULs.
template <std::size_t N> std::string text(const char (&literal)[N]) {
  return {literal, N - 1};
}

/// The records of a variable packet; one that lacks its NUL is marked.
inline Texts records_of(const fake::Bytes& packet) {
  Texts records;
  std::string record;
  for (std::size_t i = 40; i < packet.size(); i++) {
    if (packet[i] == 0) {
      records.push_back(record);
      record.clear();
    } else {
      record += static_cast<char>(packet[i]);
    }
  }
  if (!record.empty()) {
    records.push_back(record + "<not ended>");
  }
  return records;
}

inline std::uint16_t scope_of(const fake::Bytes& packet) {
  return fake::u16_at(packet, 36);
}
inline std::uint16_t unit_of(const fake::Bytes& packet) {
  return fake::u16_at(packet, 38);
}

/// The records of all packets sent, in order.
inline Texts sent_records() {
  Texts all;
  for (const fake::Datagram& datagram : fake::world().sent) {
    const Texts records = records_of(datagram.bytes);
    all.insert(all.end(), records.begin(), records.end());
  }
  return all;
}

/// A CONFIG request: every record with its NUL, or the payload's text as it is.
inline fake::Bytes config_request(std::uint16_t unit, const std::string& text,
                                  std::uint16_t variable_type = 0) {
  fake::Bytes payload = {static_cast<std::uint8_t>(variable_type >> 8),
                         static_cast<std::uint8_t>(variable_type & 0xFF),
                         static_cast<std::uint8_t>(unit >> 8),
                         static_cast<std::uint8_t>(unit & 0xFF)};
  payload.insert(payload.end(), text.begin(), text.end());
  return fake::server_packet(257, 0, 0x0A0B0C0D, payload);
}
inline fake::Bytes config_request(std::uint16_t unit, const Texts& records) {
  std::string text;
  for (const std::string& record : records) {
    text += record + '\0';
  }
  return config_request(unit, text);
}

/// The row of a configuration or status variable.
inline const rcmd::VariableEntry& row(const std::string& name) {
  for (const rcmd::VariableEntry* table : {rcmd::config_variables, rcmd::information_variables}) {
    for (; table->name != nullptr; table++) {
      if (name == table->name) {
        return *table;
      }
    }
  }
  throw std::out_of_range(name);
}

/// Reads a variable as a report does.
inline std::string read(const std::string& name, int unit = 0) {
  const rcmd::VariableEntry& entry = row(name);
  char* text = entry.get(unit, &entry);
  std::string value = text == nullptr ? "<null>" : text;
  std::free(text);
  return value;
}

inline int write(const std::string& name, const std::string& value, int unit = 0) {
  const rcmd::VariableEntry& entry = row(name);
  return entry.set(unit, value.c_str(), &entry);
}

/// A context whose server acknowledges everything.
class VariablesFixture : public fake::ContextFixture {
protected:
  VariablesFixture() { answer_everything(); }

  /// Only the n-th send from now on (counted from 0) fails; those behind it would succeed.
  static void fail_only_send(int number) {
    fake::world().sent.clear();
    fake::world().send_fails = [number, sends = 0](const fake::Datagram&) mutable {
      return sends++ == number;
    };
  }
};

} // namespace kit
