// What `ring` answers, for the eye and as JSON. Positions are hexadecimal texts, shares fractions
// of the key space (per cent in tables).
//
// Threads: no state.
#pragma once

#include <string>
#include <vector>

#include "cli/fields.h"
#include "cli/ring_model.h"
#include "cli/route_source.h"

namespace OstrandCli {

// Where a key lies.
struct KeyPlace {
  std::vector<Field> key;
  uint64_t position;
  size_t owners;  // how many to name
};

// From one route to another, as a client that runs meanwhile lives through it.
struct RouteChange {
  RouteChange(const Route& old_route, const Route& new_route);

  NamedRing old_ring;
  NamedRing new_ring;
  NamedRing fresh_ring;  // of a client that begins with the new route
  RingDiff diff;
  double fresh_differs;  // share of the key space that those two clients place apart
};

std::string ShowText(const NamedRing& ring, const Route& route);
std::string ShowJson(const NamedRing& ring, const Route& route);
std::string WhereText(const NamedRing& ring, const Route& route, const KeyPlace& place);
std::string WhereJson(const NamedRing& ring, const Route& route, const KeyPlace& place);
std::string DiffText(const RouteChange& change);
std::string DiffJson(const RouteChange& change);

}  // namespace OstrandCli
