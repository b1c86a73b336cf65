#include "host/classes/classes.h"

#include <gmock/gmock.h>

#include "host/classes/calls.h"
#include "tests/support/throwsid.h"

namespace {

using host::HostArray;
using host::HostArrays;
using vela::test::ThrowsId;

/// Gives its inputs back as arrays, the way a handler would get them.
class Echo : public host::COSMethodInfo {
 public:
  explicit Echo(std::vector<host::Parameter> inputs)
      : signature_(std::move(inputs), {{"any", "classes"}}) {}

  const std::string& name() const override { return name_; }
  const host::MethodSignature& signature() const override { return signature_; }
  const std::string& documentation() const override { return name_; }
  const std::vector<std::string>& raisedIDs() const override { return ids_; }
  void invoke(int& count, std::span<host::OutputValue> outputs,
              std::span<const host::InputValue> inputs) const override {
    inputs_.assign(inputs.begin(), inputs.end());
    outputs[0] = HostArray::scalar(static_cast<int>(inputs.size()));
    count = 1;
  }
  const std::vector<host::InputValue>& inputs() const { return inputs_; }

 private:
  std::string name_ = "echo";
  host::MethodSignature signature_;
  std::vector<std::string> ids_;
  mutable std::vector<host::InputValue> inputs_;
};

class Counted : public host::COSInstanceData {
 public:
  explicit Counted(int& alive) : alive_(alive) { ++alive_; }
  ~Counted() override { --alive_; }
  std::string describe() const noexcept override { return "counted"; }
  void close() override {}

 private:
  int& alive_;
};

class CountedClass : public host::COSClassInfo {
 public:
  explicit CountedClass(int& alive) : alive_(alive) {}
  const std::string& name() const override { return name_; }
  const std::string& shortDescription() const override { return name_; }
  const std::string& longDescription() const override { return name_; }
  const std::vector<std::unique_ptr<host::COSMethodInfo>>& methodInfos() const override {
    return methods_;
  }
  std::unique_ptr<host::COSInstanceData> createInstanceData() const override {
    return std::make_unique<Counted>(alive_);
  }
  void destroyInstanceData(std::unique_ptr<host::COSInstanceData>) const noexcept override {}
  bool mayBeConstructed() const override { return false; }
  bool hasProperty(std::string_view) const override { return false; }
  bool isSealed() const override { return true; }

 private:
  int& alive_;
  std::string name_ = "Counted";
  std::vector<std::unique_ptr<host::COSMethodInfo>> methods_;
};

class CountedPackage : public host::COSPackageInfo {
 public:
  CountedPackage(std::string name, int& asked, int& alive)
      : name_(std::move(name)), asked_(asked), alive_(alive) {}
  const std::string& name() const override { return name_; }
  void addClasses(host::COSPackage& package) const override {
    ++asked_;
    package.addClass(std::make_unique<CountedClass>(alive_));
  }

 private:
  std::string name_;
  int& asked_;
  int& alive_;
};

TEST(ClassSystem, RegistersOnceAndAsksForClassesWhenTheyAreWanted) {
  // Packages live until the process ends.
  static int asked = 0;
  static int alive = 0;
  EXPECT_EQ(host::COSPackage::getPackage("counted"), nullptr);
  host::COSPackage& package =
      host::COSPackage::addPackage(std::make_unique<CountedPackage>("counted", asked, alive));
  EXPECT_EQ(host::COSPackage::getPackage("counted"), &package);
  EXPECT_THAT(
      [] {
        host::COSPackage::addPackage(std::make_unique<CountedPackage>("counted", asked, alive));
      },
      ThrowsId("nexstore:nex:PackageExists"));
  EXPECT_EQ(asked, 0);
  EXPECT_EQ(package.findClass("None"), nullptr);
  const host::COSClassInfo* const cls = package.findClass("Counted");
  EXPECT_EQ(package.classes(), std::vector{cls});
  EXPECT_EQ(asked, 1);
  EXPECT_THAT([&] { package.addClass(std::make_unique<CountedClass>(alive)); },
              ThrowsId("nexstore:nex:ClassExists"));
  {
    const host::COSObject object(*cls);
    EXPECT_EQ(alive, 1);
  }
  EXPECT_EQ(alive, 0);
}

TEST(ClassSystem, InputsArriveAsTheyAreDeclared) {
  const Echo method({{"int32 scalar", "a"},
                     {"int64 scalar", "b"},
                     {"double scalar", "c"},
                     {"logical scalar", "d"},
                     {"int32 vector", "e"},
                     {"uint8 vector", "f"},
                     {"asciiString", "g"},
                     {"unicodeString", "h"},
                     {"any", "i"}});
  const HostArrays given = {HostArray::scalar(-3.0),
                            HostArray::scalar((1LL << 53) + 1),
                            HostArray::scalar(std::uint8_t{7}),
                            HostArray::scalar(1.0),
                            HostArray::list(std::vector<double>{1, -2}),
                            HostArray(),
                            HostArray::text(L"\u00e4"),
                            HostArray::text("\u00e4"),
                            HostArray::list(std::vector<float>{0.5f})};
  EXPECT_EQ(host::callMethod(method, given), HostArrays{HostArray::scalar(9)});
  const std::vector<host::InputValue> expected = {
      std::int32_t{-3},
      std::int64_t{(1LL << 53) + 1},
      7.0,
      true,
      HostArray::list(std::vector<std::int32_t>{1, -2}),
      HostArray::list(std::vector<std::uint8_t>()),
      std::string("\u00e4"),
      std::wstring(L"\u00e4"),
      given.back()};
  EXPECT_EQ(method.inputs(), expected);
}

TEST(ClassSystem, OptionalInputsMayBeLeftOutFromTheEnd) {
  const Echo method({{"any", "a"}, host::Parameter("any", "b").optional()});
  const HostArrays three(3);
  for (const std::size_t count : {0u, 3u}) {
    EXPECT_THAT([&] { host::callMethod(method, std::span(three).first(count)); },
                ThrowsId("nexstore:nex:InputCount"));
  }
  for (const std::size_t count : {1u, 2u}) {
    EXPECT_EQ(host::callMethod(method, std::span(three).first(count)).front().toInt64(), count);
  }
  EXPECT_THROW(host::valueKindOf("int33 scalar"), std::invalid_argument);
}

}  // namespace
