#include "server/target.h"

#include <algorithm>
#include <charconv>

namespace server {

namespace {

std::string percent_decoded(std::string_view text) {
  std::string decoded;
  for (std::size_t i = 0; i < text.size(); i++) {
    unsigned byte = 0;
    if (text[i] == '%' && i + 2 < text.size() &&
        std::from_chars(&text[i + 1], &text[i + 1] + 2, byte, 16).ptr == &text[i + 1] + 2) {
      decoded += static_cast<char>(byte);
      i += 2;
    } else {
      decoded += text[i];
    }
  }
  return decoded;
}

std::vector<std::string> split_path(std::string_view path) {
  std::vector<std::string> parts;
  while (!path.empty()) {
    const std::size_t end = std::min(path.find('/'), path.size());
    if (end != 0) {
      parts.push_back(percent_decoded(path.substr(0, end)));
    }
    path.remove_prefix(std::min(end + 1, path.size()));
  }
  return parts;
}

Query split_query(std::string_view text) {
  Query query;
  while (!text.empty()) {
    const std::string_view pair = text.substr(0, text.find('&'));
    const std::size_t equals = std::min(pair.find('='), pair.size());
    query[percent_decoded(pair.substr(0, equals))] =
        percent_decoded(pair.substr(std::min(equals + 1, pair.size())));
    text.remove_prefix(std::min(pair.size() + 1, text.size()));
  }
  return query;
}

} // namespace

Target split_target(std::string_view target) {
  const std::size_t mark = std::min(target.find('?'), target.size());
  return {split_path(target.substr(0, mark)),
          split_query(target.substr(std::min(mark + 1, target.size())))};
}

} // namespace server
