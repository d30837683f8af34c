#include "export/crew.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <latch>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "export/name_turns.h"
#include "platform/log.h"
#include "support/log_capture.h"

namespace morva {
namespace {

using testing::ElementsAre;

/// Helpers that do nothing else.
class Helpers {
 public:
  Helpers(Crew* crew, int count) : crew_(crew) {
    for (int i = 0; i < count; ++i) {
      threads_.emplace_back([this] { crew_->helpUntil([this] { return isOver_.load(); }); });
    }
  }
  Helpers(const Helpers&) = delete;
  Helpers& operator=(const Helpers&) = delete;
  ~Helpers() {
    isOver_ = true;
    crew_->wake();
    for (std::thread& thread : threads_) thread.join();
  }

 private:
  Crew* crew_;
  std::atomic<bool> isOver_ = false;
  std::vector<std::thread> threads_;
};

std::vector<std::size_t> numbersBelow(std::size_t count) {
  std::vector<std::size_t> numbers(count);
  for (std::size_t i = 0; i < count; ++i) numbers[i] = i;
  return numbers;
}

TEST(ForEachInOrder, WithoutACrewNothingIsPreparedAhead) {
  std::vector<std::string> calls;
  EXPECT_FALSE(forEachInOrder(
      nullptr, 5,
      [&](std::size_t i) {
        calls.push_back("prepare " + std::to_string(i));
        return i * 10;
      },
      [&](std::size_t i, std::size_t& result) {
        calls.push_back("finish " + std::to_string(result));
        return i < 1;
      }));
  EXPECT_THAT(calls, ElementsAre("prepare 0", "finish 0", "prepare 1", "finish 10"));
}

TEST(ForEachInOrder, FinishesInOrderOnItsOwnThreadWithAnyNumberOfHelpers) {
  for (const int helpers : {0, 1, 3, 7}) {
    Crew crew(static_cast<std::size_t>(helpers) + 1);
    const Helpers others(&crew, helpers);
    std::atomic<int> prepared = 0;
    std::vector<std::size_t> finished;
    const std::thread::id self = std::this_thread::get_id();
    EXPECT_TRUE(forEachInOrder(
        &crew, 300,
        [&](std::size_t i) {
          ++prepared;
          if (i % 7 == 0) std::this_thread::yield();
          return std::to_string(i);
        },
        [&](std::size_t i, std::string& result) {
          EXPECT_EQ(std::this_thread::get_id(), self);
          EXPECT_EQ(result, std::to_string(i));
          finished.push_back(i);
          return true;
        }));
    EXPECT_EQ(prepared, 300);
    EXPECT_EQ(finished, numbersBelow(300)) << helpers;
  }
}

TEST(ForEachInOrder, HelpersTakePiecesOfSeveralAtTheSameTime) {
  Crew crew(3);
  const Helpers others(&crew, 1);
  // Two pieces of each that meet: none could go on if nobody helped.
  std::latch first(2);
  std::latch second(2);
  const auto run = [&crew](std::latch* meeting) {
    return forEachInOrder(
        &crew, 2,
        [meeting](std::size_t) {
          meeting->arrive_and_wait();
          return 0;
        },
        [](std::size_t, int) { return true; });
  };
  EXPECT_TRUE(run(&first));
  EXPECT_TRUE(run(&second));
}

TEST(ForEachInOrder, StopFinishesNothingMoreAndBeginsFewMore) {
  Crew crew(4);
  const Helpers others(&crew, 3);
  std::atomic<std::size_t> begun = 0;
  std::vector<std::size_t> finished;
  EXPECT_FALSE(forEachInOrder(
      &crew, 1000,
      [&](std::size_t i) {
        ++begun;
        return i;
      },
      [&](std::size_t i, std::size_t&) {
        finished.push_back(i);
        return i < 10;
      }));
  EXPECT_EQ(finished, numbersBelow(11));
  EXPECT_LE(begun, 11U + 2 * 4U);
}

TEST(ForEachInOrder, ExceptionAppearsInItsPlace) {
  Crew crew(3);
  const Helpers others(&crew, 2);
  std::vector<std::size_t> finished;
  const auto run = [&] {
    return forEachInOrder(
        &crew, 20,
        [](std::size_t i) {
          if (i == 5) throw std::runtime_error("five");
          return i;
        },
        [&](std::size_t i, std::size_t&) {
          finished.push_back(i);
          return true;
        });
  };
  EXPECT_THROW(run(), std::runtime_error);
  EXPECT_EQ(finished, numbersBelow(5));
  finished.clear();
  const auto finishThrows = [&] {
    return forEachInOrder(
        &crew, 20, [](std::size_t i) { return i; },
        [](std::size_t, std::size_t&) -> bool { throw std::logic_error("at once"); });
  };
  EXPECT_THROW(finishThrows(), std::logic_error);
}

TEST(ForEachInOrder, LinesOfThePiecesAppearInTheirOrder) {
  test::LogCapture log;
  Crew crew(4);
  const Helpers others(&crew, 3);
  const Log line("CrewTest", "run");
  std::vector<std::string> expected;
  for (int i = 0; i < 50; ++i) {
    expected.push_back("<W>TIME [CrewTest::run,L0] prepare " + std::to_string(i));
    expected.push_back("<E>TIME [CrewTest::run,L0] more of " + std::to_string(i));
    expected.push_back("<E>TIME [CrewTest::run,L0] finish " + std::to_string(i));
  }
  EXPECT_TRUE(forEachInOrder(
      &crew, 50,
      [&](std::size_t i) {
        line.warning("prepare %u", i);
        line.error("more of %u", i);
        return 0;
      },
      [&](std::size_t i, int) {
        line.error("finish %u", i);
        return true;
      }));
  EXPECT_EQ(log.lines(), expected);
}

TEST(ForEachInOrder, NothingToDoIsDone) {
  Crew crew(2);
  EXPECT_TRUE(forEachInOrder(
      &crew, 0, [](std::size_t) { return 0; }, [](std::size_t, int) { return false; }));
}

TEST(NameTurns, PiecesOfOneNameComeInOrderAndOthersAtTheSameTime) {
  Crew crew(4);
  const Helpers others(&crew, 3);
  NameTurns turns;
  std::mutex mutex;
  std::set<std::string> inHand;
  std::vector<std::vector<std::size_t>> writers(3);
  EXPECT_TRUE(forEachInOrder(
      &crew, 200,
      [&](std::size_t i) {
        NameTurns::Turn turn(&turns, i);
        if (i % 5 == 4) return 0;  // writes nothing
        const std::string name = std::to_string(i % 3);
        turn.take({name, name});
        {
          const std::lock_guard lock(mutex);
          EXPECT_TRUE(inHand.insert(name).second) << "never two of one name";
          writers[i % 3].push_back(i);
        }
        std::this_thread::yield();
        const std::lock_guard lock(mutex);
        inHand.erase(name);
        return 0;
      },
      [](std::size_t, int) { return true; }));
  for (const std::vector<std::size_t>& ofOneName : writers) {
    EXPECT_TRUE(std::is_sorted(ofOneName.begin(), ofOneName.end()));
    EXPECT_GT(ofOneName.size(), 40U);
  }
}

}  // namespace
}  // namespace morva
