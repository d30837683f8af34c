#ifndef MORVA_TESTS_REAL_MEASURED_TABLE_H_
#define MORVA_TESTS_REAL_MEASURED_TABLE_H_

#include <cstdint>
#include <string>
#include <vector>

namespace morva::test {

/// The cells of one line of a table.
using Row = std::vector<std::string>;

/// The lines of a table after its first.
[[nodiscard]] std::vector<Row> readTable(const std::string& path, char separator);

/// Half a quantum of a recording (`scale` integers per unit), plus what six printed decimals round
/// away.
[[nodiscard]] double doubleTolerance(double scale);
/// The same for a value that passes through single precision.
[[nodiscard]] double singleTolerance(double value, double scale);

/// A time (us since the Unix epoch, positive) as seconds with all its microseconds: "12.000345".
[[nodiscard]] std::string secondsText(std::int64_t timeUs);

}  // namespace morva::test

#endif  // MORVA_TESTS_REAL_MEASURED_TABLE_H_
