#include "bench/zobench/report.h"

#include <fmt/format.h>
#include <unistd.h>

#include <ctime>
#include <fstream>
#include <ostream>
#include <thread>

namespace ZoBench {
namespace {

constexpr const char* Columns = "{:<11} {:<50} {:<9} {:<38} {:>10} {:<26} {:>4}  {}\n";

std::string Number(double value) {
  return value != 0 && value < 10 ? fmt::format("{:.3g}", value) : fmt::format("{:.1f}", value);
}

std::string Range(const Summary& summary) {
  return fmt::format("{} [{}..{}]", Number(summary.median), Number(summary.lower), Number(summary.upper));
}

std::string Escaped(const std::string& text) {
  std::string escaped;
  for (const char c : text) {
    if (c == '"' || c == '\\') {
      (escaped += '\\') += c;
    } else if (static_cast<unsigned char>(c) < 0x20) {
      escaped += fmt::format("\\u{:04x}", static_cast<unsigned>(c));
    } else {
      escaped += c;
    }
  }
  return '"' + escaped + '"';
}

std::string Json(const Summary& summary) {
  return fmt::format(
      R"({{"median": {}, "lower_quartile": {}, "upper_quartile": {}, "least": {}, "most": {}, "repetitions": {}}})",
      summary.median, summary.lower, summary.upper, summary.least, summary.most, summary.count);
}

std::string Json(const std::optional<Summary>& summary) {
  return summary ? Json(*summary) : "null";
}

std::string Json(const Row& row) {
  return fmt::format(
      R"({{"case": {}, "variant": {}, "cores": {}, "unit": {}, "value": {}, "reference": {}, "ratio": {}, )"
      R"("budget": {}, "budget_is_least": {}, "keeps_budget": {}, "note": {}}})",
      Escaped(row.caseName), Escaped(row.variant), Escaped(row.placement), Escaped(row.unit),
      row.IsMeasured() ? Json(row.value) : "null", Json(row.reference), Json(row.ratio),
      row.budget ? fmt::format("{}", *row.budget) : "null", row.atLeast,
      row.IsMeasured() && row.budget ? (row.KeepsBudget() ? "true" : "false") : "null", Escaped(row.note));
}

std::string Remark(const Row& row) {
  std::string remark = row.note;
  if (row.IsMeasured() && row.budget) {
    remark += fmt::format("{}{} {} {}", remark.empty() ? "" : "; ", row.KeepsBudget() ? "keeps" : "MISSES",
                          row.atLeast ? ">=" : "<=", *row.budget);
  }
  return remark;
}

std::string Processor() {
  std::ifstream file("/proc/cpuinfo");
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with("model name")) {
      return line.substr(line.find(':') + 2);
    }
  }
  return "unknown";
}

}  // namespace

bool Row::KeepsBudget() const {
  if (!budget || (ofRatio && !ratio)) {
    return true;
  }
  const double figure = ofRatio ? ratio->median : value.median;
  return atLeast ? figure >= *budget : figure <= *budget;
}

void Report::PrintHead() const {
  out << fmt::format(Columns, "CASE", "VARIANT", "CORES", "MEDIAN [QUARTILES]", "REFERENCE",
                     "RATIO [QUARTILES]", "N", "REMARK");
}

void Report::Add(Row row) {
  out << fmt::format(Columns, row.caseName, row.variant, row.placement.empty() ? "-" : row.placement,
                     row.IsMeasured() ? Range(row.value) + " " + row.unit : "refused",
                     row.reference ? Number(row.reference->median) : "-", row.ratio ? Range(*row.ratio) : "-",
                     row.value.count, Remark(row));
  out.flush();
  rows.push_back(std::move(row));
}

bool Report::HasRefusals() const {
  for (const Row& row : rows) {
    if (!row.IsMeasured()) {
      return true;
    }
  }
  return false;
}

std::string Report::Json() const {
  std::string text = "{\"environment\": " + EnvironmentJson() + ",\n \"rows\": [";
  for (std::size_t i = 0; i < rows.size(); ++i) {
    (text += i == 0 ? "\n  " : ",\n  ") += ZoBench::Json(rows[i]);
  }
  return text + "\n]}\n";
}

std::string EnvironmentJson() {
  char date[32] = {};
  const std::time_t now = std::time(nullptr);
  std::tm utc{};
  ::gmtime_r(&now, &utc);
  std::strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%SZ", &utc);
  double load[3] = {};
  std::ifstream("/proc/loadavg") >> load[0] >> load[1] >> load[2];
  return fmt::format(R"({{"date": "{}", "processor": {}, "cores": {}, "compiler": {}, "load_average": {}}})",
                     date, Escaped(Processor()), std::thread::hardware_concurrency(), Escaped(__VERSION__),
                     load[0]);
}

}  // namespace ZoBench
