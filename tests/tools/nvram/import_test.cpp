#include "tools/nvram/import.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

using Settings = std::vector<std::pair<std::string, std::string>>;

struct Result {
  Settings settings;
  std::size_t line = 0;
  bool good = false;
};

Result import(std::string text) {
  Result result;
  const std::size_t length = text.size();
  text.push_back('x'); // the byte to spare holds anything
  const rcmd::ImportFault fault = rcmd::import_settings(
      text.data(), length,
      [](void* arg, const char* name, const char* value) {
        static_cast<Settings*>(arg)->emplace_back(name, value);
        return std::string(name) == "refused" ? -1 : 0;
      },
      &result.settings);
  result.line = fault.line;
  result.good = fault.reason == nullptr;
  return result;
}

TEST(NvramImport, EveryLineIsSetInOrder) {
  const Result result = import("b=2\na=1\nb=3\n");
  EXPECT_TRUE(result.good);
  EXPECT_EQ(result.settings, (Settings{{"b", "2"}, {"a", "1"}, {"b", "3"}}));
}

TEST(NvramImport, TheFirstEqualsSignSplitsAndTheValueStaysAsItStands) {
  const Result result = import("a= x=y \r\nempty=\n#c=1\n");
  EXPECT_TRUE(result.good);
  EXPECT_EQ(result.settings, (Settings{{"a", " x=y \r"}, {"empty", ""}, {"#c", "1"}}));
}

TEST(NvramImport, TheLastLineMayLackItsEndAndEmptyLinesArePassedOver) {
  const Result result = import("\n\na=1\n\nb=2");
  EXPECT_TRUE(result.good);
  EXPECT_EQ(result.settings, (Settings{{"a", "1"}, {"b", "2"}}));
}

TEST(NvramImport, AnEmptyTextSetsNothing) {
  EXPECT_TRUE(import("").good);
  EXPECT_TRUE(import("").settings.empty());
}

TEST(NvramImport, AMalformedLineSetsNothingAndIsNamed) {
  for (const auto& [text, line] :
       std::vector<std::pair<std::string, std::size_t>>{{"a=1\nb\n", 2},
                                                        {"a=1\n\nb=2\n=3", 4},
                                                        {"x", 1},
                                                        {"=", 1},
                                                        {std::string("a=1\nb=\0\n", 8), 2},
                                                        {std::string("a\0=1", 4), 1},
                                                        {" \na=1", 1}}) {
    const Result result = import(text);
    EXPECT_FALSE(result.good) << text;
    EXPECT_EQ(result.line, line) << text;
    EXPECT_TRUE(result.settings.empty()) << text;
  }
}

TEST(NvramImport, ALineThatCannotBeStoredEndsTheImportAndIsNamed) {
  const Result result = import("a=1\nrefused=2\nb=3\n");
  EXPECT_FALSE(result.good);
  EXPECT_EQ(result.line, 2U);
  EXPECT_EQ(result.settings.size(), 2U);
}

} // namespace
