// All methods with inputs they must refuse.
#include <algorithm>
#include <complex>
#include <set>

#include "kodiag/catalog.h"
#include "scriptingtest.h"

namespace vela {
namespace {

using host::HostArray;
using host::HostArrays;
using host::Parameter;
using host::ValueKind;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

HostArray nothing() {
  return HostArray();
}
HostArray cells() {
  return HostArray::cell({HostArray::scalar(1), HostArray::text("a")});
}
HostArray structure() {
  return HostArray::structure({{"field", HostArray::scalar(1.5)}});
}
HostArray function() {
  return HostArray::function([](auto, std::size_t) { return HostArrays(1); });
}

/// Values that no parameter of a kind takes.
std::vector<HostArray> unfit(ValueKind kind) {
  const HostArray text = HostArray::text("text");
  const HostArray complex = HostArray::scalar(std::complex<double>(1, 1));
  const HostArray pair = HostArray::list(std::vector<double>{1, 2});
  const HostArray negative = HostArray::scalar(-1.0);
  const HostArray fraction = HostArray::scalar(1.5);
  const HostArray flag = HostArray::scalar(true);
  const HostArray huge = HostArray::scalar(1e300);
  switch (kind) {
    case ValueKind::int32Scalar:
      return {text,
              complex,
              pair,
              fraction,
              flag,
              huge,
              HostArray::scalar(1LL << 31),
              nothing(),
              cells(),
              HostArray::scalar(kNaN)};
    case ValueKind::int64Scalar:
      return {text, complex, pair, fraction, flag, huge, nothing(), structure()};
    case ValueKind::doubleScalar:
      return {text, complex, pair, flag, nothing(), cells(), function()};
    case ValueKind::logicalScalar:
      return {text,      complex,  pair,
              fraction,  negative, HostArray::scalar(2),
              nothing(), cells(),  HostArray::scalar(kNaN)};
    case ValueKind::int32Vector:
      return {text, complex, flag, huge, cells(), HostArray::list(std::vector<double>{1, 1.5})};
    case ValueKind::uint8Vector:
      return {text, complex, negative, HostArray::scalar(256), cells()};
    case ValueKind::asciiString:
    case ValueKind::unicodeString:
      return {HostArray::scalar(1), nothing(), cells(), structure(), function()};
    case ValueKind::object:
      return {nothing(), text, HostArray::scriptObject("vela.Other", nullptr)};
    case ValueKind::any:
      return {};
  }
  return {};
}

/// Values of every kind, for parameters that are looked at by the method itself.
std::vector<HostArray> ofAllKinds() {
  return {nothing(),
          HostArray::text(L""),
          HostArray::text("text"),
          HostArray::scalar(true),
          HostArray::scalar(std::uint64_t{1} << 63),
          HostArray::scalar(kNaN),
          HostArray::scalar(std::complex<double>(1, 1)),
          HostArray::list(std::vector<int>{1, 2, 3}),
          cells(),
          structure(),
          function(),
          HostArray::scriptObject("vela.Other", nullptr),
          HostArray::enumeration({"Gear", {{"low", 1}}}, HostArray::scalar(1)),
          HostArray::fixedPoint({}, HostArray::scalar(0.5))};
}

bool namesRun(const Parameter& parameter) {
  return parameter.kind == ValueKind::any &&
         (parameter.name == "runID" || parameter.name == "oldRunID" ||
          parameter.name == "newRunID");
}
/// Of these, some also take an empty array for none.
bool namesSignal(const Parameter& parameter) {
  static const std::set<std::string> names = {
      "signalID", "parentID", "targetID", "sourceID", "comparisonID", "baseline", "compareTo"};
  return parameter.kind == ValueKind::any && names.contains(parameter.name) &&
         !parameter.isOptional;
}

class InputsTest : public test::ScriptingTest {
 protected:
  InputsTest()
      : run_(run()), signal_(signalIn(run_)), census_(test::censusOf(vela_.manager())) {}

  /// A value that the parameter takes.
  HostArray fit(const Parameter& parameter) const {
    if (namesRun(parameter)) return HostArray::scalar(run_);
    if (namesSignal(parameter)) return HostArray::scalar(signal_);
    switch (parameter.kind) {
      case ValueKind::object:
        return vela_.self();
      case ValueKind::int32Vector:
      case ValueKind::uint8Vector:
        return HostArray::list(std::vector<int>());
      case ValueKind::asciiString:
        return HostArray::text("DataSet");
      case ValueKind::unicodeString:
        return HostArray::text(L"\u00e4");
      default:
        return HostArray::scalar(0);
    }
  }

  std::string calling(const host::COSMethodInfo& method, const HostArrays& inputs) {
    return test::idOf([&] { host::callMethod(method, inputs); });
  }

  /// Calls every method with each input in turn replaced by each of `bad(parameter)`.
  void sweep(const std::function<std::vector<HostArray>(const Parameter&)>& bad,
             const std::function<void(const host::COSMethodInfo&, const Parameter&,
                                      const HostArray&, const std::string& id)>& check) {
    for (const auto& method : test::ScriptObject::classInfo().methodInfos()) {
      if (method->name() == "Repository" || method->name() == "throwCorruptDatabase") continue;
      const std::vector<Parameter>& declared = method->signature().inputs();
      HostArrays inputs;
      for (const Parameter& parameter : declared) inputs.push_back(fit(parameter));
      for (std::size_t i = 0; i < declared.size(); ++i) {
        for (const HostArray& value : bad(declared[i])) {
          SCOPED_TRACE(method->name() + ", " + declared[i].name + ": " + value.describe());
          HostArrays changed = inputs;
          changed[i] = value;
          const std::string id = calling(*method, changed);
          check(*method, declared[i], value, id);
          test::Census now = test::censusOf(vela_.manager());
          EXPECT_TRUE(id.empty() || now == census_);
          census_ = std::move(now);
        }
      }
    }
  }

  int run_;
  int signal_;
  test::Census census_;
};

TEST_F(InputsTest, ValuesThatAreNotOfTheDeclaredTypeAreRefusedByEveryMethod) {
  sweep([](const Parameter& parameter) { return unfit(parameter.kind); },
        [](const auto&, const auto&, const auto&, const std::string& id) {
          EXPECT_EQ(id, "nexstore:nex:InvalidInput");
        });
}

TEST_F(InputsTest, WhatIsNoIDIsRefusedByEveryMethodThatTakesOne) {
  const auto bad = [](const Parameter& parameter) -> std::vector<HostArray> {
    if (!namesRun(parameter) && !namesSignal(parameter)) return {};
    std::vector<HostArray> values = ofAllKinds();
    values.push_back(HostArray::scalar(1.5));
    values.push_back(HostArray::list(std::vector<int>()));
    std::erase_if(values, [](const HostArray& value) {
      return value.isNumeric() && !value.isComplex() && value.isScalar() &&
             !(value == HostArray::scalar(1.5));
    });
    return values;
  };
  sweep(bad, [](const auto&, const auto&, const auto&, const std::string& id) {
    EXPECT_EQ(id, "nexstore:nex:NumericScalarExpected");
  });
}

TEST_F(InputsTest, IDsThatNameNothingOrAnotherClassAreRefused) {
  const auto bad = [this](const Parameter& parameter) -> std::vector<HostArray> {
    if (!namesRun(parameter) && !namesSignal(parameter)) return {};
    std::vector<HostArray> values = {
        HostArray::scalar(0),
        HostArray::scalar(-run_),
        HostArray::scalar(2147483647),
        HostArray::scalar(kNaN),
        HostArray::scalar(-kInfinity),
        HostArray::scalar(run_ + 0x1p32),
        HostArray::scalar((std::uint64_t{1} << 32) + static_cast<unsigned>(run_))};
    values.push_back(HostArray::scalar(namesRun(parameter) ? signal_ : run_));
    return values;
  };
  sweep(bad, [](const host::COSMethodInfo& method, const Parameter& parameter, const auto&,
                const std::string& id) {
    const bool answersFalse = method.name() == "isValidRunID" ||
                              method.name() == "isValidSignal" ||
                              method.name() == "runHasEnumSignals";
    EXPECT_EQ(id, answersFalse          ? ""
                  : namesRun(parameter) ? "nexstore:nex:NoSuchRun"
                                        : "nexstore:nex:NoSuchSignal");
  });
}

TEST_F(InputsTest, ValuesOfAnyKindAreTakenOrRefusedWithAnErrorPeopleCanRead) {
  const std::vector<std::string> known = kodiag::catalogIDs();
  sweep(
      [](const Parameter& parameter) {
        const bool isFree =
            parameter.kind == ValueKind::any && !namesRun(parameter) && !namesSignal(parameter);
        return isFree ? ofAllKinds() : std::vector<HostArray>();
      },
      [&](const auto&, const auto&, const auto&, const std::string& id) {
        EXPECT_TRUE(id.empty() || std::ranges::binary_search(known, id)) << id;
      });
}

TEST_F(InputsTest, IDsMayComeInAnyNumericClass) {
  vela_("setRunTag", run_, L"x");
  for (const HostArray& id :
       {HostArray::scalar(static_cast<double>(run_)), HostArray::scalar(std::int64_t{run_}),
        HostArray::scalar(static_cast<std::uint16_t>(run_)),
        HostArray::list(std::vector<int>{run_})}) {
    EXPECT_EQ(vela_("getRunTag", id).toWide(), L"x") << id.describe();
  }
}

}  // namespace
}  // namespace vela
