// The vocabulary as its header spells it.
#pragma once

#include <fstream>
#include <iterator>
#include <map>
#include <regex>
#include <string>

namespace vela::test {

/// Constant to text, read from the source: C++ cannot list the names in a namespace.
inline std::map<std::string, std::string> declaredVocabulary() {
  std::ifstream header(SOURCE_FOLDER "/src/objects/strings.h");
  const std::string source{std::istreambuf_iterator<char>(header), {}};
  const std::regex declaration(R"re(inline const std::string (\w+)(?:\s*=\s*"([^"]*)")?;)re");
  std::map<std::string, std::string> vocabulary;
  for (std::sregex_iterator match(source.begin(), source.end(), declaration), end; match != end;
       ++match) {
    vocabulary.emplace((*match)[1], (*match)[2]);
  }
  return vocabulary;
}

}  // namespace vela::test
