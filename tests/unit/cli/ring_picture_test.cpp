// Pictures of rings: well-formed, with bands that fill the circle.
#include "cli/ring_picture.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <set>
#include <string>
#include <vector>

#include "svg_check.h"

namespace OstrandCli {
namespace {

using OstrandTest::SvgBand;
using OstrandTest::SvgBands;
using OstrandTest::XmlFault;

std::vector<std::string> Names(int count) {
  std::vector<std::string> names;
  for (int i = 0; i < count; ++i) {
    names.push_back("tcp://10.0.0." + std::to_string(i) + ":9000");
  }
  return names;
}

size_t Count(const std::string& text, const std::string& part) {
  size_t count = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
    ++count;
  }
  return count;
}

TEST(RingPicture, DrawsOneArcForEachPointAndThemAllOnceAround) {
  for (const int proxies : {1, 2, 8, 200}) {
    const std::string svg = DrawRing(NamedRing(Names(proxies)));
    EXPECT_EQ(XmlFault(svg), "");
    EXPECT_EQ(Count(svg, "<path class=\"proxy\""), static_cast<size_t>(proxies));
    const auto bands = SvgBands(svg, {"proxy"});
    ASSERT_EQ(bands.size(), 1u);
    const SvgBand& band = bands.begin()->second;
    EXPECT_EQ(band.fault, "");
    EXPECT_EQ(band.arcs, 100 * proxies);
    EXPECT_NEAR(band.turns, 1, 1e-3);
  }
}

TEST(RingPicture, DrawsBothSidesOfAChangeAndWhatMoves) {
  const RingDiff diff = Compare(NamedRing(Names(8)), NamedRing(Names(9)));
  const std::string svg = DrawDiff(diff);
  EXPECT_EQ(XmlFault(svg), "");
  const auto proxies = SvgBands(svg, {"proxy"});
  ASSERT_EQ(proxies.size(), 2u);
  for (const auto& [radius, band] : proxies) {
    EXPECT_EQ(band.fault, "") << radius;
    EXPECT_NEAR(band.turns, 1, 1e-3) << radius;
  }
  const auto between = SvgBands(svg, {"moved", "kept"});
  ASSERT_EQ(between.size(), 1u);
  EXPECT_EQ(between.begin()->second.fault, "");
  EXPECT_NEAR(between.begin()->second.turns, 1, 1e-3);
  const auto moved = SvgBands(svg, {"moved"});
  ASSERT_EQ(moved.size(), 1u);
  EXPECT_NEAR(moved.begin()->second.turns, diff.moved, 1e-3);
  EXPECT_NE(svg.find("11.11% of the key space"), std::string::npos);
}

TEST(RingPicture, WhereNothingMovesNothingIsDrawnAsMoved) {
  const std::string svg = DrawDiff(Compare(NamedRing(Names(3)), NamedRing(Names(3))));
  EXPECT_EQ(XmlFault(svg), "");
  EXPECT_EQ(svg.find("class=\"moved\""), std::string::npos);
  EXPECT_NEAR(SvgBands(svg, {"kept"}).begin()->second.turns, 1, 1e-3);
}

TEST(RingPicture, NamesAreEscaped) {
  const std::string svg = DrawRing(NamedRing({"<a href=\"x\">&'\x01\x7f"}));
  EXPECT_EQ(XmlFault(svg), "");
  EXPECT_NE(svg.find("&lt;a href=&quot;x&quot;&gt;&amp;'??"), std::string::npos);
}

TEST(RingPicture, ALongLegendIsCut) {
  const std::string few = DrawRing(NamedRing(Names(25)));
  EXPECT_EQ(Count(few, "width=\"12\""), 25u);
  EXPECT_EQ(few.find("more proxies"), std::string::npos);
  const std::string many = DrawRing(NamedRing(Names(27)));
  EXPECT_EQ(Count(many, "width=\"12\""), 25u);
  EXPECT_NE(many.find("and 2 more proxies"), std::string::npos);
}

TEST(RingPicture, ColoursAreColoursAndDiffer) {
  std::set<std::string> colours;
  for (size_t i = 0; i < 50; ++i) {
    const std::string colour = ColourOf(i);
    unsigned rgb = 0;
    EXPECT_EQ(std::sscanf(colour.c_str(), "#%6x", &rgb), 1);
    EXPECT_EQ(colour.size(), 7u);
    colours.insert(colour);
  }
  EXPECT_EQ(colours.size(), 50u);
}

}  // namespace
}  // namespace OstrandCli
