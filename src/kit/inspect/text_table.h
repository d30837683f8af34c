#ifndef MORVA_KIT_INSPECT_TEXT_TABLE_H_
#define MORVA_KIT_INSPECT_TEXT_TABLE_H_

#include <string>
#include <utility>
#include <vector>

namespace morva::inspect {

/// Rows of cells under a heading, in columns as wide as they need: the first one's cells begin
/// together, the others' end together.
class TextTable {
 public:
  explicit TextTable(std::vector<std::string> heading) { add(std::move(heading)); }

  /// @param cells  As many as the heading has.
  void add(std::vector<std::string> cells) { rows_.push_back(std::move(cells)); }
  /// All lines, indented by two blanks. The heading is bold where standard output shows that.
  [[nodiscard]] std::string text() const;

 private:
  std::vector<std::vector<std::string>> rows_;
};

}  // namespace morva::inspect

#endif  // MORVA_KIT_INSPECT_TEXT_TABLE_H_
