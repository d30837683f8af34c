#include "platform/log.h"

#include <memory>
#include <regex>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "support/log_capture.h"

using morva::Log;
using morva::test::LogCapture;
using osmik::Singleton;
using osmik::Tracer;
using Lines = std::vector<std::string>;

namespace {

struct LastLine final : osmik::TracerSink {
  void write(int /*level*/, std::string_view text) override { line = text; }
  std::string line;
};

class Recorder {
 public:
  void open() const { log_.error("open file(%s) error!", "x.kbag"); }
  void close() const { log_.info("closed after %d", 7); }
  void flush() const { log_.warning("slow"); }

 private:
  Log log_{"Recorder"};
};

void freeFunction() { Log().error("error %d", 1); }

}  // namespace

TEST(LogLine, CarriesLevelTimeClassFunctionAndSourceLine) {
  const auto sink = std::make_shared<LastLine>();
  Singleton<Tracer>::getInstance().addSink(sink);
  Recorder().open();
  Singleton<Tracer>::getInstance().removeSink(sink);
  const std::regex shape(
      R"(<E>\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{6} \[Recorder::open,L\d+\] open file\(x\.kbag\) error!)");
  EXPECT_TRUE(std::regex_match(sink->line, shape)) << sink->line;
}

TEST(LogLine, OfWarningAndInformation) {
  const LogCapture log;
  Recorder().flush();
  Recorder().close();
  EXPECT_EQ(log.lines(), (Lines{"<W>TIME [Recorder::flush,L0] slow",
                                "<I>TIME [Recorder::close] closed after 7"}));
}

TEST(LogLine, OfAFreeFunctionNamesNoClass) {
  const LogCapture log;
  freeFunction();
  EXPECT_EQ(log.lines(), Lines{"<E>TIME [freeFunction,L0] error 1"});
}

TEST(LogLine, NamesTheOperationThatWasGiven) {
  const LogCapture log;
  Log("", "reindex").warning("over write");
  Log("BagReader", "open").error("text");
  EXPECT_EQ(log.lines(),
            (Lines{"<W>TIME [reindex,L0] over write", "<E>TIME [BagReader::open,L0] text"}));
}

TEST(LogLine, PercentSignInAnArgumentIsText) {
  const LogCapture log;
  Log("", "main").error("open(%s)", "100%d%s.kbag");
  EXPECT_EQ(log.lines(), Lines{"<E>TIME [main,L0] open(100%d%s.kbag)"});
}

TEST(LogLine, BelowTheLevelIsDropped) {
  const LogCapture log;
  Singleton<Tracer>::getInstance().setLevel(Tracer::kError);
  Recorder().close();
  Recorder().flush();
  Recorder().open();
  Singleton<Tracer>::getInstance().setLevel(Tracer::kInfo);
  EXPECT_EQ(log.lines(), Lines{"<E>TIME [Recorder::open,L0] open file(x.kbag) error!"});
}
