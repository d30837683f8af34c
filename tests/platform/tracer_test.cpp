#include "platform/tracer.h"

#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

using osmik::STDSink;
using osmik::Tracer;
using osmik::TracerSink;
using Lines = std::vector<std::pair<int, std::string>>;

namespace {

struct Collector final : TracerSink {
  void write(int level, std::string_view line) override { lines.emplace_back(level, line); }
  Lines lines;
};

}  // namespace

TEST(TracerLevel, LinesBelowItAreDropped) {
  Tracer tracer;
  const auto sink = std::make_shared<Collector>();
  tracer.addSink(sink);
  tracer.setLevel(Tracer::kWarning);
  tracer.print(Tracer::kInfo, "information");
  tracer.print(Tracer::kWarning, "warning %d", 1);
  tracer.print(Tracer::kError, "error %s", "text");
  EXPECT_EQ(sink->lines, (Lines{{Tracer::kWarning, "warning 1"}, {Tracer::kError, "error text"}}));
}

TEST(TracerLevel, IsInformationAtFirst) {
  Tracer tracer;
  const auto sink = std::make_shared<Collector>();
  tracer.addSink(sink);
  tracer.print(0, "below");
  tracer.print(Tracer::kInfo, "information");
  EXPECT_EQ(sink->lines, (Lines{{Tracer::kInfo, "information"}}));
}

TEST(TracerSinks, EachOneGetsEveryLine) {
  Tracer tracer;
  const auto first = std::make_shared<Collector>();
  const auto second = std::make_shared<Collector>();
  tracer.addSink(first);
  tracer.addSink(second);
  tracer.print(Tracer::kError, "line");
  EXPECT_EQ(first->lines, (Lines{{Tracer::kError, "line"}}));
  EXPECT_EQ(second->lines, first->lines);
}

TEST(TracerSinks, WithoutOneNothingIsEnabled) {
  Tracer tracer;
  EXPECT_FALSE(tracer.isEnabled(Tracer::kError));
  const auto sink = std::make_shared<Collector>();
  tracer.addSink(sink);
  EXPECT_TRUE(tracer.isEnabled(Tracer::kError));
  EXPECT_TRUE(tracer.removeSink(sink));
  EXPECT_FALSE(tracer.removeSink(sink));
  EXPECT_FALSE(tracer.isEnabled(Tracer::kError));
  tracer.print(Tracer::kError, "line");
  EXPECT_TRUE(sink->lines.empty());
}

TEST(TracerSinks, LinesOfManyThreadsArriveWhole) {
  constexpr int kThreads = 4;
  constexpr int kLines = 500;
  Tracer tracer;
  const auto sink = std::make_shared<Collector>();
  tracer.addSink(sink);
  {
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
      threads.emplace_back([&tracer] {
        for (int i = 0; i < kLines; ++i) tracer.print(Tracer::kInfo, "%s", "a whole line");
      });
    }
  }
  EXPECT_EQ(sink->lines, Lines(kThreads * kLines, {Tracer::kInfo, "a whole line"}));
}

TEST(TracerStart, TouchesNothing) {
  Tracer tracer;
  const auto sink = std::make_shared<Collector>();
  tracer.addSink(sink);
  tracer.start("/no/such/file");
  EXPECT_TRUE(sink->lines.empty());
  EXPECT_TRUE(tracer.isEnabled(Tracer::kInfo));
}

TEST(StdSink, WritesTextAndLineFeedToStandardError) {
  STDSink sink;
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  sink.write(Tracer::kError, "<E>first");
  sink.write(Tracer::kInfo, "");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "<E>first\n\n");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}
