#include "kodiag/catalog.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>

namespace {

std::string contents(const std::filesystem::path& file) {
  std::ifstream stream(file);
  return {std::istreambuf_iterator<char>(stream), {}};
}

TEST(Catalog, EveryMessageTheSourcesRaiseHasAText) {
  const std::vector<std::string> known = kodiag::catalogIDs();
  const std::regex raised("\\{\\s*\"([A-Za-z]+:[a-z]+)\",\\s*\"(\\w+)\"\\s*\\}");
  int found = 0;
  for (const char* const room : {"platform", "comparison", "src", "formats", "tools"}) {
    const auto folder = std::filesystem::path(SOURCE_FOLDER) / room;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
      const auto extension = entry.path().extension();
      if (extension != ".cpp" && extension != ".h") continue;
      const std::string source = contents(entry.path());
      for (std::sregex_iterator match(source.begin(), source.end(), raised), end; match != end;
           ++match) {
        const std::string id = (*match)[1].str() + ":" + (*match)[2].str();
        EXPECT_TRUE(std::ranges::binary_search(known, id)) << id << " in " << entry.path();
        ++found;
      }
    }
  }
  EXPECT_GT(found, 30);
}

TEST(Catalog, ArgumentsAreFilledInOnceAndAMissingTextShowsTheID) {
  EXPECT_EQ(
      kodiag::catalogText({"KODD:kodd", "NoSuchObjectType"}, {{"ClassName", "{ClassName}"}}),
      "The repository has no class \"{ClassName}\".");
  EXPECT_EQ(kodiag::catalogText({"a:b", "C"}, {{"X", "1"}}), "a:b:C X=\"1\"");
}

}  // namespace
