// What tests ask of a picture of a ring: that it is well-formed XML, and that the arcs of each of
// its bands follow each other once around the circle. Written for the subset of SVG that pictures
// of rings use; anything else is a fault.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

namespace OstrandTest {

// Why a text is no well-formed XML of elements, attributes and text; "" when it is.
inline std::string XmlFault(const std::string& xml) {
  std::vector<std::string> open;
  size_t at = 0;
  bool had_root = false;
  while (at < xml.size()) {
    const size_t tag = xml.find('<', at);
    const std::string text = xml.substr(at, tag - at);
    for (size_t i = text.find('&'); i != std::string::npos; i = text.find('&', i + 1)) {
      const std::string entity = text.substr(i, text.find(';', i) - i + 1);
      if (entity != "&amp;" && entity != "&lt;" && entity != "&gt;" && entity != "&quot;") {
        return "a bare & near " + text.substr(i, 20);
      }
    }
    if (open.empty() && text.find_first_not_of(" \n") != std::string::npos) {
      return "text outside of the root";
    }
    if (tag == std::string::npos) {
      break;
    }
    // The end of the tag, behind its quoted attributes.
    size_t end = tag + 1;
    for (bool quoted = false; end < xml.size() && (quoted || xml[end] != '>'); ++end) {
      quoted = quoted != (xml[end] == '"');
      if (xml[end] == '<') {
        return "a < inside a tag";
      }
    }
    if (end == xml.size()) {
      return "a tag without end";
    }
    const std::string inside = xml.substr(tag + 1, end - tag - 1);
    const std::string name = inside.substr(0, inside.find_first_of(" />", 1));
    if (inside[0] == '/') {
      if (open.empty() || "/" + open.back() != inside) {
        return "an end tag that nothing began: " + inside;
      }
      open.pop_back();
    } else if (inside.back() != '/') {
      if (open.empty() && had_root) {
        return "a second root";
      }
      open.push_back(name);
      had_root = true;
    }
    at = end + 1;
  }
  return !had_root ? "no element" : open.empty() ? "" : "never ended: " + open.back();
}

struct SvgBand {
  int arcs = 0;
  double turns = 0;   // all arcs together, in whole circles
  std::string fault;  // "": each arc begins where another one ends
};

// The bands of paths whose class is one of `kinds`, by radius.
inline std::map<std::string, SvgBand> SvgBands(const std::string& svg,
                                               const std::vector<std::string>& kinds) {
  constexpr double kPi = 3.14159265358979323846;
  constexpr double kCentre = 300;
  std::map<std::string, SvgBand> bands;
  std::map<std::string, std::map<std::string, int>> ends;  // by band and place
  for (size_t path = svg.find("<path "); path != std::string::npos;
       path = svg.find("<path ", path + 1)) {
    const std::string tag = svg.substr(path, svg.find('>', path) - path);
    bool wanted = false;
    for (const std::string& kind : kinds) {
      wanted = wanted || tag.find("class=\"" + kind + "\"") != std::string::npos;
    }
    if (!wanted) {
      continue;
    }
    const size_t begin = tag.find(" d=\"") + 4;
    const std::string data = tag.substr(begin, tag.find('"', begin) - begin);
    for (size_t move = 0; move < data.size();) {
      const size_t next = std::min(data.find('M', move + 1), data.size());
      const std::string arc = data.substr(move, next - move);
      double x0 = 0, y0 = 0, rx = 0, ry = 0, x1 = 0, y1 = 0;
      int large = 0;
      char radius[32] = {};
      if (std::sscanf(arc.c_str(), "M%lf %lfA%31s %lf 0 %d 1 %lf %lf", &x0, &y0, radius, &ry,
                      &large, &x1, &y1) != 7) {
        bands["?"].fault = "no arc: " + arc;
        return bands;
      }
      rx = std::atof(radius);
      SvgBand& band = bands[radius];
      ++band.arcs;
      for (const double distance :
           {std::hypot(x0 - kCentre, y0 - kCentre), std::hypot(x1 - kCentre, y1 - kCentre)}) {
        if (std::abs(distance - rx) > 0.01 || rx != ry) {
          band.fault = "not on the circle: " + arc;
        }
      }
      double turn = std::atan2(x1 - kCentre, kCentre - y1) - std::atan2(x0 - kCentre, kCentre - y0);
      turn += turn < 0 ? 2 * kPi : 0;
      if ((turn > kPi) != (large == 1)) {
        band.fault = "drawn the other way round: " + arc;
      }
      band.turns += turn / (2 * kPi);
      const size_t arc_begin = arc.find('A');
      ++ends[radius][arc.substr(1, arc_begin - 1)];
      --ends[radius][arc.substr(arc.find(large == 1 ? " 0 1 1 " : " 0 0 1 ") + 7)];
      move = next;
    }
  }
  for (const auto& [radius, places] : ends) {
    for (const auto& [place, balance] : places) {
      if (balance != 0) {
        bands[radius].fault = "the arcs leave a gap at " + place;
      }
    }
  }
  return bands;
}

}  // namespace OstrandTest
