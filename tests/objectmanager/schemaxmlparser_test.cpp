#include "objectmanager/schemaxmlparser.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "host/names.h"

namespace {

namespace fs = std::filesystem;

class SchemaXMLParserTest : public ::testing::Test {
 protected:
  SchemaXMLParserTest() : folder_(host::reserveTemporaryName("schema-", "")) {
    fs::remove(folder_);
    fs::create_directory(folder_);
    setenv("VELA_ROOT", folder_.c_str(), 1);
  }
  ~SchemaXMLParserTest() override {
    unsetenv("VELA_ROOT");
    fs::remove_all(folder_);
  }

  void write(const std::string& name, const std::string& text) const {
    std::ofstream(folder_ / name) << text;
  }
  std::string signatureOf(const std::string& name) const {
    return vela::SchemaXMLParser(folder_ / name).signature();
  }
  std::string signatureOfText(const std::string& text) const {
    write("schema.xml", text);
    return signatureOf("schema.xml");
  }

  fs::path folder_;
};

TEST_F(SchemaXMLParserTest, NamesTheFirstPackageAndTheVersion) {
  const std::pair<const char*, std::string> cases[] = {
      {R"(<Metamodel metamodelVersion="3"><Package name="vela"/></Metamodel>)", "vela_3"},
      {R"(<Metamodel metamodelVersion="3"><Package name="a"/><Package name="b"/></Metamodel>)",
       "a_3"},
      {R"(<Metamodel metamodelVersion="3"><Package/><Package name="b"/></Metamodel>)", "b_3"},
      {R"(<Metamodel><Package name="a"/></Metamodel>)", "a_"},
      {R"(<Metamodel metamodelVersion="3"/>)", "_3"},
      {R"(<m:Metamodel xmlns:m="urn:m" metamodelVersion="3"><m:Package name="a"/></m:Metamodel>)",
       "a_3"},
      {"<Metamodel metamodelVersion=\"3\"><Package name=\"v\xc3\xa9la\"/></Metamodel>",
       "v\xc3\xa9la_3"},
  };
  for (const auto& [text, signature] : cases)
    EXPECT_EQ(signatureOfText(text), signature) << text;
}

TEST_F(SchemaXMLParserTest, AppendsTheSignaturesOfIncludedFilesInTheirOrder) {
  write("inner.xml", R"(<Metamodel metamodelVersion="5"><Package name="inner"/></Metamodel>)");
  write(
      "view.xml",
      R"(<Metamodel metamodelVersion="2"><file path="inner.xml"/><Package name="view"/></Metamodel>)");
  EXPECT_EQ(
      signatureOfText(R"(<Metamodel metamodelVersion="3"><file path=""/><file path="view.xml"/>
                              <Package name="vela"/><file/></Metamodel>)"),
      "vela_3_view_2_inner_5");
  EXPECT_EQ(signatureOfText(R"(<Metamodel metamodelVersion="3"><Package name="vela"/>
                              <file path="missing.xml"/><file path="inner.xml"/></Metamodel>)"),
            "vela_3__none_inner_5");
}

TEST_F(SchemaXMLParserTest, FilesThatIncludeEachOtherContributeOnce) {
  write("a.xml", R"(<Metamodel metamodelVersion="1"><Package name="a"/>
                    <file path="b.xml"/><file path="./a.xml"/><file path="b.xml"/></Metamodel>)");
  write("b.xml", R"(<Metamodel metamodelVersion="2"><Package name="b"/>
                    <file path="a.xml"/></Metamodel>)");
  EXPECT_EQ(signatureOf("a.xml"), "a_1_b_2");
}

TEST_F(SchemaXMLParserTest, WhatCannotBeReadHasTheVersionNone) {
  fs::create_directory(folder_ / "folder");
  ASSERT_EQ(mkfifo((folder_ / "pipe").c_str(), 0600), 0);
  for (const char* const name : {"missing.xml", "folder", "pipe"}) {
    EXPECT_EQ(signatureOf(name), "_none") << name;
  }
  const std::pair<const char*, std::string> cases[] = {
      {"", "_none"},
      {"no markup", "_none"},
      {R"(<Metamodel metamodelVersion="3"><Package name="vela">)", "vela_none"},
      {R"(<Metamodel metamodelVersion="3"><Package name="vela"/></Other>)", "vela_none"},
  };
  for (const auto& [text, signature] : cases)
    EXPECT_EQ(signatureOfText(text), signature) << text;
}

TEST_F(SchemaXMLParserTest, NothingOutsideTheFileIsFollowed) {
  const std::string body =
      R"(<Metamodel metamodelVersion="3"><Package name="vela"/></Metamodel>)";
  EXPECT_EQ(signatureOfText("<!DOCTYPE Metamodel SYSTEM \"missing.dtd\">" + body), "vela_3");
  std::string bomb = R"(<!DOCTYPE M [<!ENTITY a0 "xxxxxxxxxx">)";
  for (int i = 1; i < 12; ++i) {
    const std::string inner = "&a" + std::to_string(i - 1) + ";";
    bomb += "<!ENTITY a" + std::to_string(i) + " \"";
    for (int copy = 0; copy < 10; ++copy) bomb += inner;
    bomb += "\">";
  }
  bomb += R"(]><Metamodel metamodelVersion="3"><Package name="vela"/>&a11;</Metamodel>)";
  EXPECT_EQ(signatureOfText(bomb), "vela_none");
}

TEST_F(SchemaXMLParserTest, NestingAndSizeAreLimited) {
  const auto nested = [](int depth) {
    std::string text = R"(<Metamodel metamodelVersion="3"><Package name="vela"/>)";
    for (int i = 1; i < depth; ++i) text += "<a>";
    for (int i = 1; i < depth; ++i) text += "</a>";
    return text + "</Metamodel>";
  };
  EXPECT_EQ(signatureOfText(nested(256)), "vela_3");
  EXPECT_EQ(signatureOfText(nested(300'000)), "vela_none");
  EXPECT_EQ(signatureOfText(nested(2) + std::string(5 << 20, ' ')), "_none");
}

TEST_F(SchemaXMLParserTest, ReadsTheFileAnewEachTime) {
  write("schema.xml", R"(<Metamodel metamodelVersion="3"><Package name="vela"/></Metamodel>)");
  vela::SchemaXMLParser parser(folder_ / "schema.xml");
  EXPECT_EQ(parser.signature(), "vela_3");
  fs::remove(folder_ / "schema.xml");
  EXPECT_EQ(parser.signature(), "_none");
}

}  // namespace
