#include "objects/signalenums.h"

#include "tests/objects/signaltest.h"

namespace vela {
namespace {

using test::raisedBy;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(SignalEnumsTest, TextsAndValuesBelongTogether) {
  const std::vector<std::string> styles = {"-", "--", ":", "-."};
  const std::vector<std::string> markers = {"",  "+", "o", "*", ".", "x", "s",
                                            "d", "^", "v", ">", "<", "p", "h"};
  const std::vector<std::string> sources = {"logged",     "visualized", "imported",
                                            "comparison", "tolerance",  "baseline",
                                            "compare_to", "difference"};
  for (int i = 0; i < 4; ++i) {
    const std::string& text = styles[static_cast<std::size_t>(i)];
    EXPECT_EQ(Signal::getEnumFromLineStyle(text), i);
    EXPECT_EQ(Signal::getLineStyleFromEnum(static_cast<Signal::LineStyle>(i)), text);
  }
  for (int i = 0; i < 14; ++i) {
    const std::string& text = markers[static_cast<std::size_t>(i)];
    EXPECT_EQ(Signal::getEnumFromMarker(text), i);
    EXPECT_EQ(Signal::getMarkerFromEnum(static_cast<Signal::Marker>(i)), text);
  }
  for (int i = 0; i < 8; ++i) {
    const std::string& text = sources[static_cast<std::size_t>(i)];
    EXPECT_EQ(Signal::getEnumFromSourceType(text), i);
    EXPECT_EQ(Signal::getSourceTypeFromEnum(static_cast<Signal::SourceType>(i)), text);
  }
}

TEST(SignalEnumsTest, WhatIsNotListedStandsForTheFirst) {
  for (const std::string text : {"", " -", "---", "-:", "x"}) {
    EXPECT_EQ(Signal::getEnumFromLineStyle(text), Signal::Solid) << text;
  }
  EXPECT_EQ(Signal::getEnumFromMarker("O"), Signal::NoMarker);
  EXPECT_EQ(Signal::getEnumFromSourceType("Difference"), Signal::Logged);
  for (const int value : {-1, 4, 7, INT_MAX, INT_MIN}) {
    EXPECT_EQ(Signal::getLineStyleFromEnum(static_cast<Signal::LineStyle>(value)), "-");
  }
  EXPECT_EQ(Signal::getMarkerFromEnum(static_cast<Signal::Marker>(14)), "");
  EXPECT_EQ(Signal::getSourceTypeFromEnum(static_cast<Signal::SourceType>(8)), "");
}

TEST(SignalEnumsTest, PlotsAreBitsCountedFromOne) {
  EXPECT_THAT(Signal::getPlotIndicesFromInt(0), IsEmpty());
  EXPECT_THAT(Signal::getPlotIndicesFromInt(5), ElementsAre(1, 3));
  EXPECT_THAT(Signal::getPlotIndicesFromInt(INT_MIN + 1), ElementsAre(1, 32));
  EXPECT_EQ(Signal::getPlotIndicesFromInt(-1).size(), 32u);
  EXPECT_EQ(Signal::getIntFromPlotIndices({32, 1, 1}), INT_MIN + 1);
  for (const unsigned char plot : std::vector<unsigned char>{0, 33, 255}) {
    EXPECT_EQ(raisedBy([&] {
                Signal::getIntFromPlotIndices({1, plot});
              }),
              "nexstore:nex:InvalidData");
  }
}

class SignalColorsTest : public test::SignalTest {};

TEST_F(SignalColorsTest, NewSignalsTakeTheDefaultColoursInTurn) {
  const std::vector<ColorTuple>& colors = Signal::getDefaultVelaColors();
  ASSERT_EQ(colors.size(), 14u);
  EXPECT_EQ(colors[0], ColorTuple(0.0, 0.447, 0.741));
  EXPECT_EQ(colors[13], ColorTuple(0.133, 0.71, 0.451));
  Signal::resetColors();
  for (std::size_t i = 0; i < 15; ++i) {
    EXPECT_EQ(Signal(*manager_).getColor(), colors[i % 14]) << i;
  }
  Signal::resetColors();
  EXPECT_EQ(Signal(*manager_).getColor(), colors[0]);
}

}  // namespace
}  // namespace vela
