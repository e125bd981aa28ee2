#include "cli/demo_report.h"

#include "cli/bench_report.h"
#include "cli/output.h"

namespace OstrandCli {
namespace {

constexpr auto kLeft = Table::Align::kLeft;
constexpr auto kRight = Table::Align::kRight;

std::string Percent(double share) { return FormatReal(100 * share, 2) + "%"; }

uint64_t RequestsOf(const DemoStage& stage, const std::string& url) {
  const auto found = stage.figures.by_proxy.find(url);
  return found != stage.figures.by_proxy.end() ? found->second : 0;
}

uint64_t RequestsOf(const DemoResult& result, const std::string& url) {
  uint64_t requests = 0;
  for (const DemoStage& stage : result.stages) {
    requests += RequestsOf(stage, url);
  }
  return requests;
}

double ShareOf(const DemoStage& stage, const std::string& url) {
  const uint64_t sent = stage.figures.sent - stage.figures.failed;
  return sent != 0 ? static_cast<double>(RequestsOf(stage, url)) / static_cast<double>(sent) : 0;
}

// Of everything.
LoadFigures Total(const DemoResult& result) {
  LoadFigures total;
  for (const DemoStage& stage : result.stages) {
    total.sent += stage.figures.sent;
    total.answered += stage.figures.answered;
    total.timed_out += stage.figures.timed_out;
    total.failed += stage.figures.failed;
    total.seconds += stage.figures.seconds;
    total.latency_ns.Merge(stage.figures.latency_ns);
  }
  return total;
}

void AddStageRow(Table& table, const std::string& name, const LoadFigures& figures) {
  std::vector<std::string> cells = {
      name,
      WithCommas(figures.sent),
      WithCommas(figures.answered),
      WithCommas(figures.timed_out),
      WithCommas(figures.failed),
      FormatReal(figures.seconds, 2) + " s",
  };
  for (const double percent : {50.0, 99.0, 99.9, 99.99}) {
    cells.push_back(FormatNanoseconds(figures.latency_ns.Percentile(percent)));
  }
  table.AddRow(cells);
}

std::string StagesText(const DemoResult& result) {
  Table table({{"stage", kLeft},
               {"requests", kRight},
               {"answers", kRight},
               {"time-outs", kRight},
               {"failed", kRight},
               {"time", kRight},
               {"p50", kRight},
               {"p99", kRight},
               {"p99.9", kRight},
               {"p99.99", kRight}});
  for (const DemoStage& stage : result.stages) {
    AddStageRow(table, stage.name, stage.figures);
  }
  AddStageRow(table, "all", Total(result));
  return table.Text();
}

// The first stage saw the first ring, the last one the last ring.
std::string ProxiesText(const DemoResult& result) {
  Table table({{"proxy", kLeft},
               {"at the end", kLeft},
               {"requests", kRight},
               {"first stage", kRight},
               {"first ring", kRight},
               {"last stage", kRight},
               {"last ring", kRight}});
  if (result.stages.empty()) {
    return {};
  }
  for (const DemoProxy& proxy : result.proxies) {
    table.AddRow(
        {proxy.id + " " + proxy.url, proxy.state, WithCommas(RequestsOf(result, proxy.url)),
         Percent(ShareOf(result.stages.front(), proxy.url)), Percent(proxy.first_ring_share),
         Percent(ShareOf(result.stages.back(), proxy.url)), Percent(proxy.last_ring_share)});
  }
  return table.Text();
}

std::string CountsText(const DemoResult& result) {
  Table table({{"", kLeft}, {"", kRight}});
  table.AddRow({"records", WithCommas(result.records)});
  table.AddRow({"writes acknowledged", WithCommas(result.counts.acknowledged)});
  table.AddRow({"records compared", WithCommas(result.counts.compared)});
  table.AddRow({"of these at the end", WithCommas(result.read_back)});
  table.AddRow({"wrong answers", WithCommas(result.counts.wrong)});
  table.AddRow({"requests repeated", WithCommas(result.counts.repeated)});
  table.AddRow({"answers dropped", WithCommas(result.dropped)});
  const std::string text = table.Text();
  return text.substr(text.find('\n') + 1);  // without the empty titles
}

void AddFigures(JsonWriter& json, const LoadFigures& figures) {
  json.Key("requests").Unsigned(figures.sent).Key("answers").Unsigned(figures.answered);
  json.Key("timed_out").Unsigned(figures.timed_out).Key("failed").Unsigned(figures.failed);
  json.Key("seconds").Real(figures.seconds).Key("latency_us").BeginObject();
  for (const double percent : kReportedPercents) {
    json.Key(PercentName(percent))
        .Real(static_cast<double>(figures.latency_ns.Percentile(percent)) / 1e3, 3);
  }
  json.EndObject();
}

}  // namespace

std::string DemoText(const DemoResult& result) {
  std::string text =
      StagesText(result) + "\n" + ProxiesText(result) + "\n" + CountsText(result) + "\n";
  for (const std::string& fault : result.counts.faults) {
    text += "wrong: " + fault + "\n";
  }
  if (result.faults.empty()) {
    return text + "Every record was read back as it was written, every request had its outcome.\n";
  }
  for (const std::string& fault : result.faults) {
    text += "FAILED: " + fault + "\n";
  }
  return text;
}

std::string DemoJson(const DemoResult& result) {
  JsonWriter json;
  json.BeginObject().Key("passed").Bool(result.faults.empty()).Key("faults").BeginArray();
  for (const std::string& fault : result.faults) {
    json.String(fault);
  }
  json.EndArray();
  json.Key("records").Unsigned(result.records);
  json.Key("acknowledged").Unsigned(result.counts.acknowledged);
  json.Key("compared").Unsigned(result.counts.compared);
  json.Key("read_back").Unsigned(result.read_back);
  json.Key("wrong").Unsigned(result.counts.wrong);
  json.Key("repeated").Unsigned(result.counts.repeated);
  json.Key("dropped").Unsigned(result.dropped);
  json.Key("total").BeginObject();
  AddFigures(json, Total(result));
  json.EndObject().Key("stages").BeginArray();
  for (const DemoStage& stage : result.stages) {
    json.BeginObject().Key("name").String(stage.name);
    AddFigures(json, stage.figures);
    json.EndObject();
  }
  json.EndArray().Key("proxies").BeginArray();
  for (const DemoProxy& proxy : result.proxies) {
    json.BeginObject().Key("id").String(proxy.id).Key("url").String(proxy.url);
    json.Key("state").String(proxy.state);
    json.Key("requests").Unsigned(RequestsOf(result, proxy.url));
    if (!result.stages.empty()) {
      json.Key("first_share").Real(ShareOf(result.stages.front(), proxy.url));
      json.Key("first_ring_share").Real(proxy.first_ring_share);
      json.Key("last_share").Real(ShareOf(result.stages.back(), proxy.url));
      json.Key("last_ring_share").Real(proxy.last_ring_share);
    }
    json.EndObject();
  }
  json.EndArray().EndObject();
  return json.Text() + "\n";
}

}  // namespace OstrandCli
