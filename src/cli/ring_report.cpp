#include "cli/ring_report.h"

#include <cstdio>

#include "cli/output.h"

namespace OstrandCli {
namespace {

using OstrandService::RingPoint;
using OstrandService::RingView;

std::string Hex(uint64_t position) {
  char text[32];
  std::snprintf(text, sizeof(text), "0x%016llx", static_cast<unsigned long long>(position));
  return text;
}

std::string Percent(double share) { return FormatReal(100 * share, 4) + "%"; }

// "tcp://127.0.0.1:9001 (p0)"
std::string NameOf(const OstrandFleet::RouteRow& row) {
  return row.id.empty() ? row.url : row.url + " (" + row.id + ")";
}

std::string KeyText(const std::vector<Field>& key) {
  std::string text;
  for (const Field& field : key) {
    text += (text.empty() ? "" : " ") + field.name + "=" + FieldValueText(field.type, field.value);
  }
  return text;
}

// The arc that a point ends.
struct ArcOf {
  ArcOf(const NamedRing& ring, size_t index)
      : begin(ring.Points()[index].hash_code - ring.View().ArcLength(index)),
        before((index > 0 ? index : ring.Points().size()) - 1),
        share(static_cast<double>(ring.View().ArcLength(index)) / kRingLength) {}

  uint64_t begin;
  size_t before;  // index of the point where it begins
  double share;
};

void AddProxy(JsonWriter& json, const OstrandFleet::RouteRow& row) {
  json.Key("url").String(row.url).Key("id").String(row.id);
}

}  // namespace

RouteChange::RouteChange(const Route& old_route, const Route& new_route)
    : old_ring(UrlsOf(old_route)),
      new_ring(RingView::OrderAfterChange(UrlsOf(old_route), UrlsOf(new_route))),
      fresh_ring(UrlsOf(new_route)),
      diff(Compare(old_ring, new_ring)),
      fresh_differs(Compare(new_ring, fresh_ring).moved) {}

std::string ShowText(const NamedRing& ring, const Route& route) {
  Table table({{"place", Table::Align::kRight},
               {"proxy", Table::Align::kLeft},
               {"points", Table::Align::kRight},
               {"share", Table::Align::kRight}});
  const std::vector<double> shares = ring.Shares();
  const size_t points = ring.Points().size() / shares.size();
  for (size_t i = 0; i < shares.size(); ++i) {
    table.AddRow({std::to_string(i), NameOf(route[i]), std::to_string(points), Percent(shares[i])});
  }
  return table.Text();
}

std::string ShowJson(const NamedRing& ring, const Route& route) {
  const std::vector<double> shares = ring.Shares();
  JsonWriter json;
  json.BeginObject().Key("points").Unsigned(ring.Points().size()).Key("proxies").BeginArray();
  for (size_t i = 0; i < shares.size(); ++i) {
    json.BeginObject().Key("place").Unsigned(i);
    AddProxy(json, route[i]);
    json.Key("share").Real(shares[i], 12).EndObject();
  }
  json.EndArray().EndObject();
  return json.Text() + "\n";
}

std::string WhereText(const NamedRing& ring, const Route& route, const KeyPlace& place) {
  const std::vector<RingPoint>& points = ring.Points();
  const size_t index = ring.View().IndexAt(place.position);
  const ArcOf arc(ring, index);
  std::string text = "key    " + KeyText(place.key) + "\n";
  text += "hash   " + Hex(place.position) + "\n";
  text += "owner  " + NameOf(route[points[index].proxy]) + "\n";
  text += "why    the point at " + Hex(points[index].hash_code) +
          " is the first at or behind the " + "hash;\n       the point before it, at " +
          Hex(arc.begin) + ", is that of " + NameOf(route[points[arc.before].proxy]) +
          ";\n       the arc between them is " + Percent(arc.share) + " of the ring\n\n";
  Table table({{"owner", Table::Align::kRight},
               {"proxy", Table::Align::kLeft},
               {"point", Table::Align::kLeft},
               {"number", Table::Align::kRight}});
  size_t number = 0;
  for (const size_t owner : ring.OwnersFrom(place.position, place.owners)) {
    table.AddRow({std::to_string(++number), NameOf(route[points[owner].proxy]),
                  Hex(points[owner].hash_code),
                  std::to_string(owner + 1) + " of " + std::to_string(points.size())});
  }
  return text + table.Text();
}

std::string WhereJson(const NamedRing& ring, const Route& route, const KeyPlace& place) {
  const std::vector<RingPoint>& points = ring.Points();
  const size_t index = ring.View().IndexAt(place.position);
  const ArcOf arc(ring, index);
  JsonWriter json;
  json.BeginObject().Key("key").BeginObject();
  for (const Field& field : place.key) {
    json.Key(field.name).Bytes(field.value);
  }
  json.EndObject().Key("hash").String(Hex(place.position));
  json.Key("arc").BeginObject().Key("begin").String(Hex(arc.begin));
  json.Key("end").String(Hex(points[index].hash_code));
  json.Key("share").Real(arc.share, 12).EndObject();
  json.Key("owners").BeginArray();
  for (const size_t owner : ring.OwnersFrom(place.position, place.owners)) {
    json.BeginObject();
    AddProxy(json, route[points[owner].proxy]);
    json.Key("place").Unsigned(points[owner].proxy);
    json.Key("point").String(Hex(points[owner].hash_code)).Key("number").Unsigned(owner + 1);
    json.EndObject();
  }
  json.EndArray().Key("points").Unsigned(points.size()).EndObject();
  return json.Text() + "\n";
}

std::string DiffText(const RouteChange& change) {
  Table table({{"proxy", Table::Align::kLeft},
               {"old share", Table::Align::kRight},
               {"new share", Table::Align::kRight},
               {"gained", Table::Align::kRight},
               {"lost", Table::Align::kRight}});
  for (const RingDiff::Proxy& proxy : change.diff.proxies) {
    table.AddRow({proxy.url, Percent(proxy.old_share), Percent(proxy.new_share),
                  Percent(proxy.gained), Percent(proxy.lost)});
  }
  std::string text = table.Text() + "\n" + Percent(change.diff.moved) +
                     " of the key space moves; between these shares at least " +
                     Percent(change.diff.least) + " has to.\n";
  if (change.fresh_differs > 0) {
    text +=
        "A client that starts with the new route lists its proxies in another order than one\n"
        "that was running before: the two place " +
        Percent(change.fresh_differs) + " of the key space apart.\n";
  }
  return text;
}

std::string DiffJson(const RouteChange& change) {
  JsonWriter json;
  json.BeginObject().Key("moved").Real(change.diff.moved, 12);
  json.Key("least").Real(change.diff.least, 12);
  json.Key("fresh_client_differs").Real(change.fresh_differs, 12).Key("proxies").BeginArray();
  for (const RingDiff::Proxy& proxy : change.diff.proxies) {
    json.BeginObject().Key("url").String(proxy.url);
    json.Key("old_share").Real(proxy.old_share, 12).Key("new_share").Real(proxy.new_share, 12);
    json.Key("gained").Real(proxy.gained, 12).Key("lost").Real(proxy.lost, 12).EndObject();
  }
  json.EndArray().EndObject();
  return json.Text() + "\n";
}

}  // namespace OstrandCli
