#include "koddtest.h"

namespace kodd {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

class MetamodelTest : public KoddTest {
 protected:
  const Metamodel& load(const std::string& name) { return Metamodel::load(path(name)); }
};

TEST_F(MetamodelTest, NavigatesByNameAndAnswersEmptyForTheUnknown) {
  const MetamodelRef model(&load("schema.xml"));
  const PackageRef package = model.findPackage("lab");
  std::vector<std::string> names;
  package.getClassNames(names);
  EXPECT_THAT(names, ElementsAre("Run", "Signal", "Note"));
  names.clear();
  package.findClass("Note").getPropertyNames(names);
  EXPECT_THAT(names, ElementsAre("Text"));  // not the hidden link of Run's notes
  EXPECT_FALSE(model.findPackage("Lab").isValid());
  EXPECT_FALSE(package.findClass("run").isValid());
  EXPECT_FALSE(package.findClass("Run").findProperty("number").isValid());
  EXPECT_FALSE(MetamodelRef().findPackage("lab").findClass("Run").findProperty("x").isValid());
  EXPECT_TRUE(package.findClass("Run").findProperty("Baseline").typeIsClass());
  EXPECT_FALSE(package.findClass("Run").findProperty("Number").typeIsClass());
}

TEST_F(MetamodelTest, EqualContentIsOneSchemaAndAnyChangeAnother) {
  const Metamodel& first = load("schema.xml");
  writeSchema(kLabClasses, "copy.xml");
  EXPECT_EQ(&load("copy.xml"), &first);
  const std::string classes = kLabClasses;
  const std::pair<const char*, const char*> changes[] = {
      {"default=\"1\"", "default=\"2\""},    {" index=\"yes\"", ""},
      {"kind=\"int64\"", "kind=\"int32\""},  {"name=\"Level\"", "name=\"level\""},
      {"target=\"Note\"", "target=\"Run\""}, {"index=\"partial\"", "index=\"yes\""},
  };
  for (const auto& [from, to] : changes) {
    SCOPED_TRACE(from);
    std::string changed = classes;
    changed.replace(changed.find(from), std::string(from).size(), to);
    writeSchema(changed, "changed.xml");
    EXPECT_NE(load("changed.xml").fingerprint(), first.fingerprint());
  }
  EXPECT_EQ(&load("schema.xml"), &first);
}

TEST_F(MetamodelTest, IncludedFilesAddTheirPackagesOnce) {
  setenv("VELA_ROOT", folder_.c_str(), 1);
  writeFile("outer.xml", R"(<Metamodel metamodelVersion="1"><file path=""/>
    <file path="inner.xml"/><file path="inner.xml"/><Package name="outer"><Class name="A">
    <Property name="b" kind="link" target="inner.B"/></Class></Package></Metamodel>)");
  writeFile("inner.xml", R"(<Metamodel><file path="outer.xml"/><Package name="inner">
    <Class name="B"/></Package></Metamodel>)");
  const MetamodelRef model(&load("outer.xml"));
  unsetenv("VELA_ROOT");
  const ClassRef target(
      model.findPackage("outer").findClass("A").findProperty("b").info()->target);
  EXPECT_EQ(target, model.findPackage("inner").findClass("B"));
}

TEST_F(MetamodelTest, RefusesWhatItCannotMeanAndNamesTheFile) {
  const auto inClass = [](const std::string& members) {
    return R"(<Metamodel><Package name="p"><Class name="C">)" + members +
           "</Class></Package></Metamodel>";
  };
  const std::pair<const char*, std::string> cases[] = {
      {"nothing", ""},
      {"no XML", "text"},
      {"cut off", "<Metamodel>"},
      {"no package", "<Metamodel/>"},
      {"another root", "<Model/>"},
      {"DOCTYPE", "<!DOCTYPE Metamodel [<!ENTITY a \"b\">]>" + inClass("")},
      {"unknown element", inClass("<Propertie name='a' kind='int32'/>")},
      {"unknown attribute", inClass("<Property name='a' kind='int32' indexed='yes'/>")},
      {"no name", inClass("<Property kind='int32'/>")},
      {"unknown kind", inClass("<Property name='a' kind='int16'/>")},
      {"property twice",
       inClass("<Property name='a' kind='int32'/><Property name='a' kind='blob'/>")},
      {"default too large", inClass("<Property name='a' kind='int32' default='2147483648'/>")},
      {"default of a blob", inClass("<Property name='a' kind='blob' default='x'/>")},
      {"default not finite", inClass("<Property name='a' kind='real64' default='inf'/>")},
      {"unknown target", inClass("<Property name='a' kind='link' target='D'/>")},
      {"reference to anything", inClass("<Property name='a' kind='reference' target='any'/>")},
      {"target of a number", inClass("<Property name='a' kind='int32' target='C'/>")},
      {"via nothing", inClass("<Collection name='C' via='a'/>")},
      {"via a number",
       inClass("<Property name='a' kind='int32'/><Collection name='C' via='a'/>")},
      {"index on nothing", inClass("<Index properties='a'/>")},
      {"unknown index", inClass("<Property name='a' kind='int32' index='full'/>")},
      {"larger than 4 MiB", inClass("") + std::string(5 << 20, ' ')},
      {"class twice",
       "<Metamodel><Package name='p'><Class name='C'/><Class name='C'/>"
       "</Package></Metamodel>"},
  };
  for (const auto& [what, xml] : cases) {
    SCOPED_TRACE(what);
    writeFile("wrong.xml", xml);
    try {
      load("wrong.xml");
      ADD_FAILURE() << "was accepted";
    } catch (const kodiag::except::ExceptionWithCauses& refusal) {
      EXPECT_EQ(refusal.id(), "KODD:kodd:SchemaError");
      EXPECT_THAT(refusal.what(), HasSubstr("wrong.xml"));
    }
  }
}

TEST_F(MetamodelTest, ASchemaThatCannotBeReadLeavesTheRepositoryAlone) {
  DataModelRepository repository;
  for (const std::string& schema : {path("none.xml"), folder_}) {
    EXPECT_EQ(idLeftBy([&](diagnostics& diag) {
                repository.open(text::toWide(path("new.dmr")), text::toWide(schema), {}, diag);
              }),
              "KODD:kodd:SchemaError");
  }
  EXPECT_FALSE(std::filesystem::exists(path("new.dmr")));
}

}  // namespace
}  // namespace kodd
