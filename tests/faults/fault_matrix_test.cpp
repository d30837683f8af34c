// Every call that concerns a file fails once, in turn, in everything the project does with files.
//
// Run it whole for the table of what was tried and what came of it:
// build/debug/bin/test_faults_slow

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <iterator>
#include <limits>
#include <map>
#include <string>
#include <string_view>
#include <unistd.h>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "faults/file_call_faults.h"
#include "faults/operations.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace morva::test {
namespace {

namespace fs = std::filesystem;
using enum CallKind;

/// A way for calls to go wrong.
struct FaultKind {
  const char* name;
  CallKinds kinds;
  int error;        ///< 0: cut short
  bool goesOn;      ///< from the n-th call on, all fail
  bool isHarmless;  ///< the result must be that of an undisturbed run
};

constexpr CallKinds kGrowing = bit(kCreate) | bit(kWrite) | bit(kTruncate) | bit(kSync) |
                               bit(kCloseWrite) | bit(kMakeDir) | bit(kRename);
constexpr CallKinds kInterruptible = bit(kOpen) | bit(kCreate) | bit(kRead) | bit(kWrite) |
                                     bit(kTruncate) | bit(kSync) | bit(kCloseRead) |
                                     bit(kCloseWrite) | bit(kLock);
constexpr CallKinds kTransfers = bit(kRead) | bit(kWrite);

constexpr FaultKind kFaultKinds[] = {
    {"EIO", kAllCalls, EIO, false, false},
    {"EIO, all from there on", kAllCalls, EIO, true, false},
    {"ENOSPC", kGrowing, ENOSPC, false, false},
    {"ENOSPC, all from there on", kGrowing, ENOSPC, true, false},
    {"EINTR", kInterruptible, EINTR, false, true},
    {"short", kTransfers, 0, false, true},
    {"short, all from there on", kTransfers, 0, true, true},
};

/// Calls whose failure may go by without a word, as long as the result is the right one.
struct Allowance {
  CallKind kind;
  std::string_view operation;  ///< what its name contains
  const char* why;
};

constexpr Allowance kAllowances[] = {
    {kStat, "", "it asked whether something is there, and what it did next told"},
    {kRemove, "", "what was to be removed was not there, or was replaced next"},
    {kMakeDir, "", "it was there"},
    {kOpenDir, "", "a folder to be synced, emptied or listed: as for those"},
    {kSyncDir, "", "a folder that cannot be synced is no reason to lose what was written"},
    {kCloseRead, "", "nothing is lost with a file that was only read"},
    {kList, "", "nothing was left to list"},
    {kRead, "", "more was read ahead than was needed"},
    {kCreate, "unpack", "the picture was made in another way next"},
    {kWrite, "unpack", "as above"},
    {kCloseWrite, "unpack", "as above"},
    {kRename, "unpack", "as above"},
    {kCreate, "BagTool", "as above"},
    {kWrite, "BagTool", "as above, or the task's own log"},
    {kCloseWrite, "BagTool", "as above, or the task's own log"},
    {kRename, "BagTool", "as above"},
};

bool mayBeSilent(CallKind kind, const std::string& operation) {
  return std::ranges::any_of(kAllowances, [&](const Allowance& allowance) {
    return allowance.kind == kind && operation.find(allowance.operation) != std::string::npos;
  });
}

/// What came of the faults of one kind in one operation.
struct Row {
  int injected = 0;
  int failed = 0;    ///< the operation said that it failed
  int warned = 0;    ///< it went on, with a warning or an error line
  int harmless = 0;  ///< no word, and the result of an undisturbed run
};

using Table = std::map<std::string, std::map<std::size_t, Row>>;

Table& table() {
  static Table rows;
  return rows;
}

/// Where the tests work, and the table when all have run.
class MatrixFrame final : public testing::Environment {
 public:
  // In memory a fault takes as long as its calls, on a disk ten times that.
  void SetUp() override {
    if (access("/dev/shm", W_OK) == 0) setenv("TMPDIR", "/dev/shm", 0);
  }
  void TearDown() override {
    std::printf("\n| Operation |");
    for (const FaultKind& kind : kFaultKinds) std::printf(" %s |", kind.name);
    std::printf(" Said that it failed | Went on with a line | Same result |\n|---|");
    for (std::size_t i = 0; i < std::size(kFaultKinds) + 3; ++i) std::printf("---|");
    std::printf("\n");
    std::map<std::size_t, Row> all;
    for (const auto& [name, kinds] : table()) {
      print(name, kinds);
      for (const auto& [kind, row] : kinds) add(row, &all[kind]);
    }
    print("all", all);
  }

 private:
  static void add(const Row& row, Row* sum) {
    sum->injected += row.injected;
    sum->failed += row.failed;
    sum->warned += row.warned;
    sum->harmless += row.harmless;
  }
  static void print(const std::string& name, const std::map<std::size_t, Row>& kinds) {
    Row sum;
    std::printf("| %s |", name.c_str());
    for (const auto& [kind, row] : kinds) {
      std::printf(" %d |", row.injected);
      add(row, &sum);
    }
    std::printf(" %d | %d | %d |\n", sum.failed, sum.warned, sum.harmless);
  }
};

[[maybe_unused]] const testing::Environment* const kFrame =
    testing::AddGlobalTestEnvironment(new MatrixFrame);  // owned by the framework

std::size_t openDescriptors() {
  return static_cast<std::size_t>(
      std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator()));
}

/// What a run came to.
struct Result {
  bool isDone = false;
  std::vector<std::string> told;  ///< warnings and errors
  Products products;
  int calls = 0;
  int hits = 0;
  CallKind kind = kOpen;
  std::string firstHit;
};

std::string differenceOf(const Products& a, const Products& b) {
  std::string text;
  for (const auto& [name, content] : a) {
    const auto other = b.find(name);
    if (other == b.end()) text += " lacks " + name;
    if (other != b.end() && other->second != content) {
      text += " " + name + " differs (" + std::to_string(content.size()) + " -> " +
              std::to_string(other->second.size()) + " bytes)";
    }
  }
  for (const auto& [name, content] : b) {
    if (!a.contains(name)) text += " has " + name;
  }
  return text;
}

}  // namespace

class FaultMatrix : public testing::TestWithParam<std::size_t> {
 protected:
  [[nodiscard]] const Operation& operation() const { return operations()[GetParam()]; }

  [[nodiscard]] Result run(const Fault& fault) const {
    Result result;
    fs::remove_all(folder_);
    fs::create_directory(folder_);
    operation().prepare(folder_);
    const std::size_t before = openDescriptors();
    {
      const LogCapture log;
      const FileCallFaults faults(folder_, fault);
      try {
        result.isDone = operation().run(folder_);
      } catch (const std::exception& exception) {
        ADD_FAILURE() << "an exception came out: " << exception.what();
      }
      result.calls = faults.calls();
      result.hits = faults.hits();
      result.kind = faults.firstKind();
      result.firstHit = faults.firstHit();
      result.told = log.lines();
    }
    EXPECT_LE(openDescriptors(), before) << "descriptors leak";
    const LogCapture quiet;
    result.products = operation().products(folder_);
    if (operation().lines)
      std::ranges::copy(operation().lines(folder_), std::back_inserter(result.told));
    std::erase_if(result.told, [](const std::string& line) {
      return !line.starts_with("<E>") && !line.starts_with("<W>");
    });
    return result;
  }

  void expectNoTrace(const FaultKind& kind, const Result& result) const {
    EXPECT_EQ(result.isDone, undisturbed_.isDone);
    EXPECT_EQ(result.told, undisturbed_.told);
    EXPECT_EQ(differenceOf(undisturbed_.products, result.products), "") << kind.name;
  }

  /// Nothing is there that the operation does not make, but for what could not be removed.
  void expectNothingLeft(const FaultKind& kind, const Result& result) const {
    if (result.kind == kRemove || (kind.goesOn && (kind.kinds & bit(kRemove)) != 0)) return;
    for (const auto& [name, content] : result.products) {
      if (undisturbed_.products.contains(name)) continue;
      EXPECT_FALSE(name.ends_with(".part") || name.ends_with(".tmp") || name.ends_with(".h264"))
          << name << " was left";
    }
  }

  static bool isErrorTold(const Result& result) {
    return std::ranges::any_of(result.told,
                               [](const std::string& line) { return line.starts_with("<E>"); });
  }

  /// Whether a file has its final name and not its content.
  [[nodiscard]] bool hasChangedFile(const Result& result) const {
    return std::ranges::any_of(result.products, [this](const auto& product) {
      const auto whole = undisturbed_.products.find(product.first);
      return whole != undisturbed_.products.end() && whole->second != product.second;
    });
  }

  void judge(const FaultKind& kind, const Result& result, Row* row) const {
    ++row->injected;
    const bool isSame = differenceOf(undisturbed_.products, result.products).empty();
    if (kind.isHarmless) {
      expectNoTrace(kind, result);
      row->harmless += isSame ? 1 : 0;
      return;
    }
    expectNothingLeft(kind, result);
    const bool isTold = result.told.size() > undisturbed_.told.size();
    if (!result.isDone && undisturbed_.isDone) {
      ++row->failed;
    } else if (isTold) {
      ++row->warned;
      EXPECT_TRUE(isErrorTold(result) || !hasChangedFile(result));
    } else {
      ++row->harmless;
      EXPECT_EQ(differenceOf(undisturbed_.products, result.products), "");
      EXPECT_TRUE(mayBeSilent(result.kind, operation().name));
    }
  }

  const TempDir dir_;
  const std::string folder_ = dir_ / "work";                    // always the same: messages name it
  Result undisturbed_ = (static_cast<void>(run({})), run({}));  // the first may load libraries
};

TEST_P(FaultMatrix, EveryFailingCallIsToldOrHarmless) {
  EXPECT_TRUE(undisturbed_.isDone);
  for (std::size_t number = 0; number < std::size(kFaultKinds); ++number) {
    const FaultKind& kind = kFaultKinds[number];
    Row& row = table()[operation().name][number];
    for (int nth = 1;; ++nth) {
      const Result result =
          run({.kinds = kind.kinds, .error = kind.error, .first = nth, .goesOn = kind.goesOn});
      if (result.hits == 0) break;
      SCOPED_TRACE(std::string(kind.name) + " at call " + std::to_string(nth) + ": " +
                   result.firstHit + differenceOf(undisturbed_.products, result.products) +
                   (result.isDone ? "; done" : "; failed") +
                   (result.told.empty() ? "" : "; " + result.told.front()));
      judge(kind, result, &row);
    }
    const Fault count{.kinds = kind.kinds, .error = EIO, .first = std::numeric_limits<int>::max()};
    EXPECT_GE(row.injected, run(count).calls) << kind.name;
  }
}

INSTANTIATE_TEST_SUITE_P(Operations, FaultMatrix,
                         testing::Range(std::size_t{0}, operations().size()),
                         [](const testing::TestParamInfo<std::size_t>& parameter) {
                           const Operation& operation = operations()[parameter.param];
                           std::string name =
                               std::to_string(parameter.param) + operation.name + operation.topic;
                           std::erase_if(name,
                                         [](unsigned char c) { return std::isalnum(c) == 0; });
                           return name;
                         });

}  // namespace morva::test
