#include "cli/bench_report.h"

#include <cstdio>

#include "cli/output.h"
#include "cli/record_request.h"
#include "client/error_text.h"

namespace OstrandCli {
namespace {

double Ratio(double part, uint64_t whole) {
  return whole != 0 ? part / static_cast<double>(whole) : 0;
}

double Throughput(const LoadFigures& figures) {
  return figures.seconds > 0 ? static_cast<double>(figures.answered) / figures.seconds : 0;
}

std::string Line(const char* name, const std::string& value) {
  std::string line(name);
  line.resize(24, ' ');
  return line + value + "\n";
}

std::string CountsText(const BenchReport& report) {
  const LoadFigures& figures = report.figures;
  return Line("sent", WithCommas(figures.sent) + " (" + WithCommas(report.reads) + " reads, " +
                          WithCommas(report.writes) + " writes)") +
         Line("answered", WithCommas(figures.answered) + " (" + WithCommas(figures.refused) +
                              " of them refused)") +
         Line("timed out", WithCommas(figures.timed_out)) +
         Line("failed", WithCommas(figures.failed));
}

std::string CostText(const LoadFigures& figures) {
  const double to_us = 1e6;
  return Line("time", FormatReal(figures.seconds, 3) + " s") +
         Line("throughput",
              WithCommas(static_cast<uint64_t>(Throughput(figures))) + " answers a second") +
         Line("client CPU a request",
              FormatReal(Ratio(to_us * figures.user_cpu_seconds, figures.sent), 2) + " us user, " +
                  FormatReal(Ratio(to_us * figures.system_cpu_seconds, figures.sent), 2) +
                  " us system") +
         Line("system calls a request",
              FormatReal(Ratio(static_cast<double>(figures.system_calls), figures.sent), 3));
}

std::string LatencyText(const LatencyHistogram& latency) {
  Table table({{"latency", Table::Align::kLeft}, {"", Table::Align::kRight}});
  for (const double percent : kReportedPercents) {
    table.AddRow({PercentName(percent), FormatNanoseconds(latency.Percentile(percent))});
  }
  table.AddRow({"max", FormatNanoseconds(latency.Max())});
  table.AddRow({"mean", FormatNanoseconds(static_cast<uint64_t>(latency.Mean()))});
  return table.Text();
}

std::string ProxiesText(const LoadFigures& figures) {
  Table table({{"proxy", Table::Align::kLeft},
               {"requests", Table::Align::kRight},
               {"share", Table::Align::kRight}});
  for (const auto& [url, requests] : figures.by_proxy) {
    table.AddRow(
        {url, WithCommas(requests),
         FormatReal(100 * Ratio(static_cast<double>(requests), figures.sent - figures.failed), 2) +
             "%"});
  }
  return table.Text();
}

std::string CodesText(const LoadFigures& figures) {
  if (figures.codes.empty()) {
    return {};
  }
  Table table({{"times", Table::Align::kRight}, {"error", Table::Align::kLeft}});
  for (const auto& [code, times] : figures.codes) {
    table.AddRow({WithCommas(times), CodeWithText(code)});
  }
  return "\n" + table.Text();
}

void AddLoad(JsonWriter& json, const BenchReport& report) {
  const MixedLoadOptions& options = report.options;
  const bool is_zipfian = options.distribution == KeyDistribution::kZipfian;
  json.Key("load").BeginObject().Key("window").Unsigned(report.window);
  json.Key("read_share").Real(options.read_share);
  json.Key("distribution").String(is_zipfian ? "zipfian" : "uniform");
  if (is_zipfian) {
    json.Key("zipf_theta").Real(options.zipf_theta);
  }
  json.Key("keys").Unsigned(options.keys).Key("value_size").Unsigned(options.value_size);
  json.Key("seed").Unsigned(options.seed).EndObject();
}

void AddLatency(JsonWriter& json, const LatencyHistogram& latency) {
  json.Key("latency_us").BeginObject();
  json.Key("min").Real(static_cast<double>(latency.Min()) / 1e3, 3);
  json.Key("mean").Real(latency.Mean() / 1e3, 3);
  for (const double percent : kReportedPercents) {
    json.Key(PercentName(percent)).Real(static_cast<double>(latency.Percentile(percent)) / 1e3, 3);
  }
  json.Key("max").Real(static_cast<double>(latency.Max()) / 1e3, 3).EndObject();
}

}  // namespace

const std::vector<double> kReportedPercents = {50, 75, 90, 95, 99, 99.9, 99.99};

std::string PercentName(double percent) {
  char text[32];
  std::snprintf(text, sizeof(text), "p%g", percent);
  return text;
}

std::string FormatNanoseconds(uint64_t ns) {
  const auto value = static_cast<double>(ns);
  return ns < 1000000 ? FormatReal(value / 1e3, 1) + " us" : FormatReal(value / 1e6, 3) + " ms";
}

std::string BenchText(const BenchReport& report) {
  return CountsText(report) + CostText(report.figures) + "\n" +
         LatencyText(report.figures.latency_ns) + "\n" + ProxiesText(report.figures) +
         CodesText(report.figures);
}

std::string BenchJson(const BenchReport& report) {
  const LoadFigures& figures = report.figures;
  JsonWriter json;
  json.BeginObject();
  AddLoad(json, report);
  json.Key("sent").Unsigned(figures.sent);
  json.Key("reads").Unsigned(report.reads).Key("writes").Unsigned(report.writes);
  json.Key("answered").Unsigned(figures.answered).Key("refused").Unsigned(figures.refused);
  json.Key("timed_out").Unsigned(figures.timed_out).Key("failed").Unsigned(figures.failed);
  json.Key("seconds").Real(figures.seconds).Key("answers_per_second").Real(Throughput(figures), 1);
  AddLatency(json, figures.latency_ns);
  json.Key("cpu_us_per_request").BeginObject();
  json.Key("user").Real(Ratio(1e6 * figures.user_cpu_seconds, figures.sent), 3);
  json.Key("system").Real(Ratio(1e6 * figures.system_cpu_seconds, figures.sent), 3).EndObject();
  json.Key("system_calls_per_request")
      .Real(Ratio(static_cast<double>(figures.system_calls), figures.sent), 4);
  json.Key("proxies").BeginArray();
  for (const auto& [url, requests] : figures.by_proxy) {
    json.BeginObject().Key("url").String(url).Key("requests").Unsigned(requests);
    json.Key("share").Real(Ratio(static_cast<double>(requests), figures.sent - figures.failed));
    json.EndObject();
  }
  json.EndArray().Key("errors").BeginArray();
  for (const auto& [code, times] : figures.codes) {
    json.BeginObject().Key("code").Integer(code).Key("text").String(
        OstrandService::ErrorText(code));
    json.Key("times").Unsigned(times).EndObject();
  }
  json.EndArray().EndObject();
  return json.Text() + "\n";
}

}  // namespace OstrandCli
