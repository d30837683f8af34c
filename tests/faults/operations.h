#ifndef MORVA_TESTS_FAULTS_OPERATIONS_H_
#define MORVA_TESTS_FAULTS_OPERATIONS_H_

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace morva::test {

/// What an operation has made: names, with contents.
using Products = std::map<std::string, std::string>;

/// One thing that the project does with files, in a folder of its own.
struct Operation {
  std::string name;   ///< the row of the table that it belongs to
  std::string topic;  ///< of those that are tried topic by topic; else empty
  /// Fills the empty folder.
  std::function<void(const std::string& folder)> prepare;
  /// @return Whether it says that all went well. What it logs is looked at as well.
  std::function<bool(const std::string& folder)> run;
  std::function<Products(const std::string& folder)> products;
  /// Lines that it has put elsewhere than into the log; may be empty.
  std::function<std::vector<std::string>(const std::string& folder)> lines{};
};

/// All of them.
[[nodiscard]] const std::vector<Operation>& operations();

}  // namespace morva::test

#endif  // MORVA_TESTS_FAULTS_OPERATIONS_H_
