#include "real/measured_table.h"

#include <cmath>
#include <sstream>

#include "support/temp_dir.h"

namespace morva::test {

std::vector<Row> readTable(const std::string& path, char separator) {
  std::istringstream lines(readFile(path));
  std::vector<Row> rows;
  std::string line;
  std::getline(lines, line);
  while (std::getline(lines, line)) {
    std::istringstream cells(line);
    Row row;
    for (std::string cell; std::getline(cells, cell, separator);) row.push_back(cell);
    rows.push_back(row);
  }
  return rows;
}

double doubleTolerance(double scale) {
  constexpr double kHalfPrintedDigit = 0.5e-6;
  return 0.5 / scale + kHalfPrintedDigit;
}

double singleTolerance(double value, double scale) {
  return doubleTolerance(scale) + std::ldexp(std::abs(value), -24);
}

std::string secondsText(std::int64_t timeUs) {
  constexpr std::int64_t kUsPerSecond = 1000000;
  const std::string us = std::to_string(timeUs % kUsPerSecond);
  return std::to_string(timeUs / kUsPerSecond) + "." + std::string(6 - us.size(), '0') + us;
}

}  // namespace morva::test
