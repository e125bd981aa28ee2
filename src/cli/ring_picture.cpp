#include "cli/ring_picture.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "cli/output.h"

namespace OstrandCli {
namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kCentre = 300;
constexpr int kPictureHeight = 600;
constexpr int kLegendX = 620;
constexpr int kLegendTop = 60;
constexpr int kLegendStep = 20;
constexpr size_t kLegendRows = 25;
constexpr char kMovedColour[] = "#222222";
constexpr char kKeptColour[] = "#e4e4e4";

// A band of the picture.
struct Band {
  double radius;  // of its middle
  double width;
};

std::string Number(double number) {
  char text[32];
  std::snprintf(text, sizeof(text), "%.3f", number);
  return text;
}

std::string Percent(double share) { return FormatReal(100 * share, 2) + "%"; }

std::string PlaceOf(uint64_t position, const Band& band) {
  const double angle = 2 * kPi * (static_cast<double>(position) / kRingLength);
  return Number(kCentre + band.radius * std::sin(angle)) + " " +
         Number(kCentre - band.radius * std::cos(angle));
}

// From behind `before` to `end`, clockwise.
std::string Arc(uint64_t before, uint64_t end, const Band& band) {
  const bool is_large = end - before > (uint64_t{1} << 63);
  const std::string radius = Number(band.radius);
  return "M" + PlaceOf(before, band) + "A" + radius + " " + radius + " 0 " +
         (is_large ? "1" : "0") + " 1 " + PlaceOf(end, band);
}

std::string Path(const std::string& kind, const std::string& colour, const Band& band,
                 const std::string& title, const std::string& arcs) {
  if (arcs.empty()) {
    return {};
  }
  return "<path class=\"" + kind + "\" fill=\"none\" stroke=\"" + colour + "\" stroke-width=\"" +
         Number(band.width) + "\" d=\"" + arcs + "\"><title>" + XmlText(title) +
         "</title></path>\n";
}

std::string Text(int x, int y, const std::string& text, const char* more = "") {
  return "<text x=\"" + std::to_string(x) + "\" y=\"" + std::to_string(y) + "\"" + more + ">" +
         XmlText(text) + "</text>\n";
}

struct LegendRow {
  std::string colour;
  std::string text;
};

std::string Legend(const std::vector<LegendRow>& rows) {
  std::string svg;
  int y = kLegendTop;
  for (size_t i = 0; i < std::min(rows.size(), kLegendRows); ++i, y += kLegendStep) {
    svg += "<rect x=\"" + std::to_string(kLegendX) + "\" y=\"" + std::to_string(y - 11) +
           "\" width=\"12\" height=\"12\" fill=\"" + rows[i].colour + "\"/>\n";
    svg += Text(kLegendX + 20, y, rows[i].text);
  }
  if (rows.size() > kLegendRows) {
    svg += Text(kLegendX + 20, y,
                "and " + std::to_string(rows.size() - kLegendRows) + " more proxies");
  }
  return svg;
}

// The whole picture, wide enough for its longest line.
std::string Picture(const std::string& heading, const std::vector<std::string>& middle,
                    const std::string& rings, const std::vector<LegendRow>& legend) {
  size_t longest = heading.size();
  for (const LegendRow& row : legend) {
    longest = std::max(longest, row.text.size());
  }
  const std::string width = std::to_string(kLegendX + 60 + 8 * static_cast<int>(longest));
  const std::string height = std::to_string(kPictureHeight);
  std::string svg = "<svg xmlns=\"http://www.w3.org/2000/svg\" version=\"1.1\" width=\"" + width +
                    "\" height=\"" + height + "\" viewBox=\"0 0 " + width + " " + height +
                    "\" font-family=\"sans-serif\" font-size=\"13\">\n";
  svg += "<rect width=\"100%\" height=\"100%\" fill=\"#ffffff\"/>\n" + rings;
  int y = static_cast<int>(kCentre) - 10 * static_cast<int>(middle.size()) + 10;
  for (const std::string& line : middle) {
    svg += Text(static_cast<int>(kCentre), y, line, " text-anchor=\"middle\"");
    y += kLegendStep;
  }
  svg += Text(kLegendX, 30, heading, " font-weight=\"bold\"");
  return svg + Legend(legend) + "</svg>\n";
}

// One path for each proxy of the `select`ed side of a diff.
std::string DiffBand(const RingDiff& diff, const Band& band, size_t RingPiece::*select,
                     double RingDiff::Proxy::*share) {
  std::vector<std::string> arcs(diff.proxies.size());
  for (const RingPiece& piece : diff.pieces) {
    arcs[piece.*select] += Arc(piece.before, piece.end, band);
  }
  std::string svg;
  for (size_t i = 0; i < arcs.size(); ++i) {
    const RingDiff::Proxy& proxy = diff.proxies[i];
    svg += Path("proxy", ColourOf(i), band, proxy.url + " " + Percent(proxy.*share), arcs[i]);
  }
  return svg;
}

std::string MovedBand(const RingDiff& diff, const Band& band) {
  std::string moved;
  std::string kept;
  for (const RingPiece& piece : diff.pieces) {
    (piece.old_url != piece.new_url ? moved : kept) += Arc(piece.before, piece.end, band);
  }
  return Path("kept", kKeptColour, band, Percent(1 - diff.moved) + " stays", kept) +
         Path("moved", kMovedColour, band, Percent(diff.moved) + " moves", moved);
}

}  // namespace

std::string ColourOf(size_t number) {
  // Hues a golden angle apart, in three shades.
  const double hue = std::fmod(static_cast<double>(number) * 137.50776405, 360);
  const double lightness = 0.42 + 0.12 * static_cast<double>(number % 3);
  const double chroma = 0.6 * std::min(lightness, 1 - lightness);
  const auto channel = [&](double shift) {
    const double k = std::fmod(shift + hue / 30, 12);
    const double value = lightness - chroma * std::max(-1.0, std::min({k - 3, 9 - k, 1.0}));
    return static_cast<unsigned>(std::lround(255 * value));
  };
  char text[8];
  std::snprintf(text, sizeof(text), "#%02x%02x%02x", channel(0) & 0xFF, channel(8) & 0xFF,
                channel(4) & 0xFF);
  return text;
}

std::string XmlText(const std::string& text) {
  std::string escaped;
  for (const char letter : text) {
    switch (letter) {
      case '&': escaped += "&amp;"; break;
      case '<': escaped += "&lt;"; break;
      case '>': escaped += "&gt;"; break;
      case '"': escaped += "&quot;"; break;
      default: escaped += letter < ' ' || letter == 0x7F ? '?' : letter;  // beyond ASCII, too
    }
  }
  return escaped;
}

std::string DrawRing(const NamedRing& ring) {
  const Band band = {240, 60};
  std::vector<std::string> arcs(ring.Urls().size());
  uint64_t before = ring.Points().back().hash_code;
  for (const OstrandService::RingPoint& point : ring.Points()) {
    arcs[point.proxy] += Arc(before, point.hash_code, band);
    before = point.hash_code;
  }
  const std::vector<double> shares = ring.Shares();
  std::string rings;
  std::vector<LegendRow> legend;
  for (size_t i = 0; i < arcs.size(); ++i) {
    const std::string title = ring.Urls()[i] + " " + Percent(shares[i]);
    rings += Path("proxy", ColourOf(i), band, title, arcs[i]);
    legend.push_back({ColourOf(i), title});
  }
  return Picture(
      "The ring",
      {std::to_string(arcs.size()) + " proxies", std::to_string(ring.Points().size()) + " points"},
      rings, legend);
}

std::string DrawDiff(const RingDiff& diff) {
  const Band before = {160, 50};
  const Band between = {200, 20};
  const Band after = {240, 50};
  const std::string rings =
      DiffBand(diff, before, &RingPiece::old_url, &RingDiff::Proxy::old_share) +
      MovedBand(diff, between) +
      DiffBand(diff, after, &RingPiece::new_url, &RingDiff::Proxy::new_share);
  std::vector<LegendRow> legend;
  for (size_t i = 0; i < diff.proxies.size(); ++i) {
    const RingDiff::Proxy& proxy = diff.proxies[i];
    legend.push_back({ColourOf(i), proxy.url + " " + Percent(proxy.old_share) + " to " +
                                       Percent(proxy.new_share)});
  }
  return Picture("The ring before (inside) and after (outside)",
                 {Percent(diff.moved) + " of the key space", "moves (dark)"}, rings, legend);
}

}  // namespace OstrandCli
