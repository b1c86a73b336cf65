#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "objects/strings.h"
#include "tests/schema/vocabulary.h"

namespace {

namespace strings = vela::strings;

// Words added to the ones that are stored by name: tokens and the property that loading uses.
const std::set<std::string> kFurther = {"OLDID",
                                        "RunData",
                                        "FxpBinaryPointScaling",
                                        "FxpSlopeBiasScaling",
                                        "FxpUnspecifiedScaling",
                                        "QRVTestSuite",
                                        "HasCrashed"};

TEST(Vocabulary, HasEveryWordOnce) {
  const auto vocabulary = vela::test::declaredVocabulary();
  EXPECT_EQ(vocabulary.size(), 320 + kFurther.size());
  const auto spelledAsNamed = std::ranges::count_if(vocabulary, [](const auto& word) {
    return word.first == word.second && !kFurther.contains(word.first);
  });
  EXPECT_EQ(spelledAsNamed, 278);

  std::map<std::string, int> uses;
  for (const auto& [name, text] : vocabulary) ++uses[text];
  std::erase_if(uses, [](const auto& use) { return use.second == 1; });
  EXPECT_EQ(uses, (std::map<std::string, int>{{"Modified", 2}}));
}

TEST(Vocabulary, KeepsSpellingsApartThatDifferByCase) {
  const std::pair<std::string, std::string> words[] = {
      {strings::CheckSum, "CheckSum"},
      {strings::Checksum, "Checksum"},
      {strings::ModelCheckSum, "ModelCheckSum"},
      {strings::ModelChecksum, "ModelChecksum"},
      {strings::KOVersion, "KOVersion"},
      {strings::Koversion, "Koversion"},
      {strings::UName, "UName"},
      {strings::Uname, "Uname"},
      {strings::ModelCMVer, "ModelCMVer"},
      {strings::ModelCmver, "ModelCmver"},
      {strings::ID, "ID"},
      {strings::IDLower, "id"},
      {strings::Name, "Name"},
      {strings::NameLower, "name"},
      {strings::Class, "Class"},
      {strings::ClassLower, "class"},
      {strings::EMPTY_STRING, ""},
      {strings::ZOH, "zoh"},
      {strings::EmbeddedFI, "embedded.fi"},
      {strings::UnicodeArg, "-unicode"},
      {strings::MetaData_, "__METADATA__"},
      {strings::Double, "double"},
      {strings::SessionInfo, "vela_view.SessionInfo"},
      {strings::VELATestHarnessData, "vela.TestHarnessData"},
      {strings::KorvoIntEnumType, "Korvo.IntEnumType"}};
  for (const auto& [constant, text] : words) EXPECT_EQ(constant, text);
}

}  // namespace
