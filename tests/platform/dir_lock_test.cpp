#include "platform/dir_lock.h"

#include <future>
#include <optional>

#include <gtest/gtest.h>

#include "support/temp_dir.h"

namespace morva::test {
namespace {

using osmik::DirLock;

TEST(DirLock, IsHeldByOneAtATime) {
  const TempDir dir;
  std::optional<DirLock> first(std::in_place);
  EXPECT_EQ(first->lock(dir.path(), false), DirLock::Result::kHeld);
  EXPECT_EQ(first->lock(dir.path(), false), DirLock::Result::kHeld);

  DirLock second;
  EXPECT_EQ(second.lock(dir.path(), false), DirLock::Result::kTaken);
  first.reset();
  EXPECT_EQ(second.lock(dir.path(), false), DirLock::Result::kHeld);
}

TEST(DirLock, OtherDirectoriesAreNotConcerned) {
  const TempDir one;
  const TempDir other;
  DirLock first;
  DirLock second;
  EXPECT_EQ(first.lock(one.path(), false), DirLock::Result::kHeld);
  EXPECT_EQ(second.lock(other.path(), false), DirLock::Result::kHeld);
}

TEST(DirLock, WaitsUntilItIsFree) {
  const TempDir dir;
  std::optional<DirLock> first(std::in_place);
  ASSERT_EQ(first->lock(dir.path(), false), DirLock::Result::kHeld);
  std::promise<void> asked;
  auto second = std::async(std::launch::async, [&] {
    DirLock lock;
    asked.set_value();
    return lock.lock(dir.path(), true);
  });
  asked.get_future().wait();
  first.reset();
  EXPECT_EQ(second.get(), DirLock::Result::kHeld);
}

TEST(DirLock, MissingDirectoryHasNone) {
  const TempDir dir;
  DirLock lock;
  EXPECT_EQ(lock.lock(dir / "missing", false), DirLock::Result::kUnavailable);
}

}  // namespace
}  // namespace morva::test
