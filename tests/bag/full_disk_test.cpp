#include <cerrno>
#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "bag/recording.h"
#include "morva/bag.h"
#include "platform/ignore_result.h"
#include "support/failing_file_calls.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace morva::test {
namespace {

using Call = FailingFileCalls::Call;
using testing::IsEmpty;
using testing::Not;
using testing::UnorderedElementsAreArray;

/// What a recorder was told about its recording.
struct Told {
  int openCode = 0;
  std::vector<std::string> accepted;  ///< payloads whose write returned true
  std::size_t refused = 0;
  bool isClosed = false;
  std::vector<std::string> complaints;  ///< log lines of level warning and error

  [[nodiscard]] bool isSuccess() const { return openCode == 0 && refused == 0 && isClosed; }
};

class Recording : public testing::TestWithParam<std::uint32_t> {
 protected:
  /// Records ten messages of up to 400 bytes, whatever goes wrong.
  Told recordAll() {
    std::filesystem::remove(path_);
    const LogCapture log;
    Told told;
    MorvaBag bag;
    bag.topics = {"/a", "/b"};
    bag.writeBufferSize = GetParam();
    told.openCode = bag.open(path_, BagMode::kWrite);
    for (int i = 0; i < 10 && told.openCode == 0; ++i) {
      const std::string data =
          std::to_string(i) + std::string(static_cast<std::size_t>(i * 43), 'x');
      const Message message{.topic = i % 3 == 0 ? "/b" : "/a", .firstTimeUs = i + 1, .data = data};
      if (write(bag, message)) {
        told.accepted.push_back(data);
      } else {
        ++told.refused;
      }
    }
    told.isClosed = bag.close();
    told.complaints = log.lines();
    std::erase_if(told.complaints, [](const std::string& line) { return line.starts_with("<I>"); });
    return told;
  }

  /// Calls of a recording that meets no failure.
  int countWrites() {
    const FailingFileCalls calls;
    EXPECT_TRUE(recordAll().isSuccess());
    return calls.count(Call::kPwrite);
  }

  std::vector<std::string> readBack() {
    MorvaBag bag;
    EXPECT_EQ(bag.open(path_, BagMode::kRead), 0);
    return readAll(bag, bag.getView(std::vector<std::string>{"/a", "/b"}, 0, 0));
  }

  const TempDir dir_;
  const std::string path_ = dir_ / "a.kbag";
};

TEST_P(Recording, FullDiskIsReportedAndLosesNothingThatWasAccepted) {
  ASSERT_TRUE(recordAll().isSuccess());
  const auto size = static_cast<std::int64_t>(std::filesystem::file_size(path_));
  FailingFileCalls calls;
  for (std::int64_t limit = 0; limit < size; limit += limit < 4000 ? 400 : 29) {
    calls.limitFileBytes(limit);
    const Told told = recordAll();
    ASSERT_FALSE(told.isSuccess()) << limit;
    ASSERT_THAT(told.complaints, Not(IsEmpty())) << limit;

    calls.limitFileBytes(-1);
    const bool isBuffered = GetParam() != 0;
    if (told.openCode != 0 || isBuffered) continue;
    ASSERT_EQ(MorvaBag::reindex(path_), 0) << limit;
    ASSERT_THAT(readBack(), UnorderedElementsAreArray(told.accepted)) << limit;
    std::filesystem::remove(path_ + ".index");
  }
}

TEST_P(Recording, AnyWriteThatFailsOnceIsReported) {
  const int writes = countWrites();
  for (int n = 1; n <= writes; ++n) {
    FailingFileCalls calls;
    calls.fail(Call::kPwrite, n, 1, EIO);
    const Told told = recordAll();
    ASSERT_THAT(told.complaints, Not(IsEmpty())) << n;
    const bool isKept = told.openCode == 0 && told.isClosed;
    if (isKept) {
      // The bag is whole and says so; the messages that were refused are not in it.
      ASSERT_EQ(MorvaBag::checkAll(path_), 0) << n;
      ASSERT_THAT(readBack(), UnorderedElementsAreArray(told.accepted)) << n;
    }
  }
}

TEST_P(Recording, FailedCloseIsReported) {
  FailingFileCalls calls;
  calls.fail(Call::kClose, 1, 1, EIO);
  const Told told = recordAll();
  EXPECT_EQ(told.openCode, 0);
  EXPECT_EQ(told.refused, 0U);
  EXPECT_FALSE(told.isClosed);
  EXPECT_THAT(told.complaints, Not(IsEmpty()));
}

INSTANTIATE_TEST_SUITE_P(WriteBuffer, Recording, testing::Values(0U, 200U, 1U << 20U));

TEST(RecordingOpen, RefusedTopicListLeavesTheBagOpenForTheCallerToClose) {
  const TempDir dir;
  FailingFileCalls calls;
  calls.fail(Call::kPwrite, 2, 1);  // the header is the first write
  MorvaBag bag;
  bag.topics = {"/a"};
  EXPECT_EQ(bag.open(dir / "a.kbag", BagMode::kWrite), MorvaBag::kOpenMalformed);
  EXPECT_FALSE(write(bag, {.topic = "/a"}));
  EXPECT_EQ(calls.count(Call::kClose), 0);

  ignoreResult(bag.close());  // whatever can be said of a bag without topics
  EXPECT_EQ(calls.count(Call::kClose), 1);
}

}  // namespace
}  // namespace morva::test
