// The ring as a picture: SVG 1.1, complete in itself.
//
// Position 0 is at the top, positions grow clockwise. Each proxy is one path of class "proxy" with
// one arc for each of its points, and has its name and share as a title and in the legend.
// Threads: no state.
#pragma once

#include <string>
#include <vector>

#include "cli/ring_model.h"

namespace OstrandCli {

// One ring.
std::string DrawRing(const NamedRing& ring);

// Two: the inner one before the change, the outer one after it; between them what moves (class
// "moved") and what stays (class "kept").
std::string DrawDiff(const RingDiff& diff);

// A colour as "#rrggbb"; those of neighbouring numbers are far apart.
std::string ColourOf(size_t number);

// With the characters that mean something to XML escaped, and those that it cannot hold replaced.
std::string XmlText(const std::string& text);

}  // namespace OstrandCli
