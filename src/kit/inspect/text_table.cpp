#include "kit/inspect/text_table.h"

#include <algorithm>
#include <cstddef>

#include "kit/console.h"

namespace morva::inspect {

std::string TextTable::text() const {
  std::vector<std::size_t> widths(rows_[0].size(), 0);
  for (const std::vector<std::string>& row : rows_) {
    for (std::size_t i = 0; i < widths.size(); ++i) widths[i] = std::max(widths[i], row[i].size());
  }
  std::string text;
  for (const std::vector<std::string>& row : rows_) {
    std::string line = "  " + row[0] + std::string(widths[0] - row[0].size(), ' ');
    for (std::size_t i = 1; i < widths.size(); ++i) {
      line += std::string(2 + widths[i] - row[i].size(), ' ') + row[i];
    }
    text += (&row == rows_.data() ? kit::heading(line) : line) + "\n";
  }
  return text;
}

}  // namespace morva::inspect
