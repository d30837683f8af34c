// The parts that make the text of listings: moments, limits of time, JSON, base64, tables.
#include <bit>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>
#include <random>
#include <string>
#include <system_error>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "kit/inspect/base64.h"
#include "kit/inspect/json_writer.h"
#include "kit/inspect/selection.h"
#include "kit/inspect/text_table.h"
#include "kit/inspect/time_limit.h"
#include "kit/inspect/utc_text.h"

namespace morva::test {
namespace {

using inspect::JsonWriter;
using inspect::parseUtc;
using inspect::TimeLimit;
using inspect::utcText;

constexpr std::int64_t kMin = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();
constexpr inspect::TimeSpan kRecording = {.startUs = 1'000'000'000, .endUs = 2'000'000'000};

std::optional<std::int64_t> resolved(const char* text,
                                     const inspect::TimeSpan& recording = kRecording) {
  const auto limit = TimeLimit::parse(text);
  if (!limit) return std::nullopt;
  return limit->resolve(recording);
}

template <typename T>
std::string numberText(T value) {
  std::string text;
  inspect::appendNumber(value, &text);
  return text;
}

template <typename T>
T readBack(const std::string& text) {
  T value{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  EXPECT_EQ(end, text.data() + text.size()) << text;
  EXPECT_EQ(error, std::errc()) << text;
  return value;
}

std::string base64(const std::string& bytes) {
  std::string text;
  inspect::appendBase64(bytes, &text);
  return text;
}

std::string jsonString(const std::string& bytes) {
  std::string text;
  inspect::appendJsonString(bytes, &text);
  return text;
}

}  // namespace

TEST(UtcText, MomentsHaveTheirCalendarText) {
  EXPECT_EQ(utcText(0), "1970-01-01T00:00:00.000000Z");
  EXPECT_EQ(utcText(-1), "1969-12-31T23:59:59.999999Z");
  EXPECT_EQ(utcText(1'700'000'000'123'456), "2023-11-14T22:13:20.123456Z");
  EXPECT_EQ(utcText(951'782'400'000'000), "2000-02-29T00:00:00.000000Z");
  EXPECT_EQ(utcText(253'402'300'799'999'999), "9999-12-31T23:59:59.999999Z");
  EXPECT_EQ(utcText(-62'167'219'200'000'000), "0000-01-01T00:00:00.000000Z");
}

TEST(UtcText, MomentsBeyondTheCalendarHaveNone) {
  for (const std::int64_t timeUs :
       {kMin, std::int64_t{-62'167'219'200'000'001}, std::int64_t{253'402'300'800'000'000}, kMax}) {
    EXPECT_EQ(utcText(timeUs), "");
  }
}

TEST(UtcText, EveryTextReadsBackAsItsMoment) {
  std::mt19937_64 random(7);
  std::uniform_int_distribution<std::int64_t> moments(-62'167'219'200'000'000,
                                                      253'402'300'799'999'999);
  for (int i = 0; i < 20'000; ++i) {
    const std::int64_t timeUs = moments(random);
    ASSERT_EQ(parseUtc(utcText(timeUs)), timeUs);
  }
}

TEST(ParseUtc, FormsOfTheStandardAreRead) {
  EXPECT_EQ(parseUtc("1970-01-01T00:00:01Z"), 1'000'000);
  EXPECT_EQ(parseUtc("1970-01-01 00:00:01.5z"), 1'500'000);
  EXPECT_EQ(parseUtc("1970-01-01t02:00:00.000001+02:00"), 1);
  EXPECT_EQ(parseUtc("1969-12-31T23:29:00-00:31"), 0);
  EXPECT_EQ(parseUtc("1970-01-01T00:00:00.123456789Z"), 123'456);
  EXPECT_EQ(parseUtc("2016-12-31T23:59:60Z"), parseUtc("2017-01-01T00:00:00Z"));
}

TEST(ParseUtc, OtherTextsAreRefused) {
  for (const char* text :
       {"", "1970-01-01", "1970-01-01T00:00:00", "1970-01-01T00:00Z", "1970-1-01T00:00:00Z",
        "1970-02-29T00:00:00Z", "1970-13-01T00:00:00Z", "1970-00-01T00:00:00Z",
        "1970-01-01T24:00:00Z", "1970-01-01T00:60:00Z", "1970-01-01T00:00:61Z",
        "1970-01-01T00:00:00.Z", "1970-01-01T00:00:00.1234567890Z", "1970-01-01T00:00:00+2:00",
        "1970-01-01T00:00:00+24:00", "1970-01-01T00:00:00Z ", "1970/01/01T00:00:00Z",
        "01970-01-01T00:00:00Z", "-970-01-01T00:00:00Z"}) {
    EXPECT_EQ(parseUtc(text), std::nullopt) << text;
  }
}

TEST(TimeLimit, AbsoluteMomentsDoNotDependOnTheRecording) {
  EXPECT_EQ(resolved("1700000000000001"), 1'700'000'000'000'001);
  EXPECT_EQ(resolved("0"), 0);
  EXPECT_EQ(resolved("9223372036854775807"), kMax);
  EXPECT_EQ(resolved("1970-01-01T00:00:00.000007Z"), 7);
}

TEST(TimeLimit, SignedDurationsCountFromStartAndEnd) {
  EXPECT_EQ(resolved("+0s"), kRecording.startUs);
  EXPECT_EQ(resolved("-0s"), kRecording.endUs);
  EXPECT_EQ(resolved("+1.5s"), kRecording.startUs + 1'500'000);
  EXPECT_EQ(resolved("-2s"), kRecording.endUs - 2'000'000);
  EXPECT_EQ(resolved("+7us"), kRecording.startUs + 7);
  EXPECT_EQ(resolved("+1.9us"), kRecording.startUs + 1);
  EXPECT_EQ(resolved("-0.25ms"), kRecording.endUs - 250);
  EXPECT_EQ(resolved("+2min"), kRecording.startUs + 120'000'000);
  EXPECT_EQ(resolved("-0.5h"), kRecording.endUs - 1'800'000'000);
  // 0.1 has no exact binary form; ten of them are a second nevertheless.
  EXPECT_EQ(resolved("+0.1s"), kRecording.startUs + 100'000);
  EXPECT_EQ(resolved("+0.000001000000000000000000000000000000001s"), kRecording.startUs + 1);
}

TEST(TimeLimit, WhatDoesNotFitSaturatesOrIsRefused) {
  EXPECT_EQ(resolved("+1s", {.startUs = kMax - 5, .endUs = kMax}), kMax);
  EXPECT_EQ(resolved("-1s", {.startUs = kMin, .endUs = kMin + 5}), kMin);
  EXPECT_EQ(resolved("+9223372036854s"), kMax);
  EXPECT_EQ(resolved("+9223372036855s"), std::nullopt);
  EXPECT_EQ(resolved("9223372036854775808"), std::nullopt);
}

TEST(TimeLimit, OtherTextsAreRefused) {
  for (const char* text : {"", "+", "-", "+5", "5s", "+s", "+.5s", "+5.5.5s", "+5 s", "+-5s", "+5S",
                           "1e9", "12:00", "+1d", " 5", "5 "}) {
    EXPECT_EQ(resolved(text), std::nullopt) << text;
  }
}

TEST(TimeWindow, TakesItsBeginAndLeavesItsEnd) {
  const inspect::TimeWindow window = {.fromUs = 10, .toUs = 20};
  EXPECT_FALSE(window.contains(9));
  EXPECT_TRUE(window.contains(10));
  EXPECT_TRUE(window.contains(19));
  EXPECT_FALSE(window.contains(20));
  EXPECT_TRUE(inspect::TimeWindow{}.contains(kMin));
  EXPECT_TRUE(window.touches(5, 10));
  EXPECT_TRUE(window.touches(30, 19));  // whichever comes first
  EXPECT_TRUE(window.touches(5, 30));
  EXPECT_FALSE(window.touches(5, 9));
  EXPECT_FALSE(window.touches(20, 30));
}

TEST(AppendNumber, IntegersAreWhole) {
  EXPECT_EQ(numberText(kMin), "-9223372036854775808");
  EXPECT_EQ(numberText(std::numeric_limits<std::uint64_t>::max()), "18446744073709551615");
}

TEST(AppendNumber, RealsAreShortAndNoIntegers) {
  EXPECT_EQ(numberText(0.1), "0.1");
  EXPECT_EQ(numberText(0.1F), "0.1");
  EXPECT_EQ(numberText(static_cast<double>(0.1F)), "0.10000000149011612");
  EXPECT_EQ(numberText(3.0), "3.0");
  EXPECT_EQ(numberText(-0.0), "-0.0");
  EXPECT_EQ(numberText(1e22), "1e+22");
  EXPECT_EQ(numberText(-std::numeric_limits<double>::quiet_NaN()), "nan");
  EXPECT_EQ(numberText(-std::numeric_limits<double>::infinity()), "-inf");
}

TEST(AppendNumber, RealsReadBackAsTheyWere) {
  std::mt19937_64 random(11);
  for (int i = 0; i < 20'000; ++i) {
    const double value = std::bit_cast<double>(random());
    const float single = std::bit_cast<float>(static_cast<std::uint32_t>(random()));
    if (std::isfinite(value)) {
      ASSERT_EQ(readBack<double>(numberText(value)), value);
    }
    if (std::isfinite(single)) {
      ASSERT_EQ(readBack<float>(numberText(single)), single);
    }
  }
}

TEST(AppendJsonString, AnyBytesAreValidJson) {
  EXPECT_EQ(jsonString("/imu"), "\"/imu\"");
  EXPECT_EQ(jsonString("a\"b\\c\n\x01\x7F"), "\"a\\\"b\\\\c\\n\\u0001\x7F\"");
  EXPECT_EQ(jsonString("caf\xC3\xA9"), "\"caf\xC3\xA9\"");
  EXPECT_EQ(jsonString("caf\xE9!"), "\"caf\xEF\xBF\xBD!\"");
  std::mt19937 random(3);
  for (int i = 0; i < 2000; ++i) {
    std::string bytes(random() % 12, '\0');
    for (char& c : bytes) c = static_cast<char>(random());
    EXPECT_TRUE(nlohmann::json::accept(jsonString(bytes)));
  }
}

TEST(JsonWriter, NestsAndSeparates) {
  JsonWriter json;
  json.beginObject().member("a", std::int64_t{-1}).key("b").beginArray();
  json.value("x").value(1.5F).null().beginObject().endObject().endArray();
  json.member("c", std::optional<double>()).member("d", true).member("e", NAN);
  json.moment("t", 0).moment("none", std::nullopt).endObject().endLine();
  json.beginArray().endArray().endLine();
  EXPECT_EQ(json.text(), R"({"a":-1,"b":["x",1.5,null,{}],"c":null,"d":true,"e":null,)"
                         R"("t_us":0,"t":"1970-01-01T00:00:00.000000Z","none_us":null,"none":null})"
                         "\n[]\n");
}

TEST(Base64, VectorsOfTheStandardAreMet) {
  EXPECT_EQ(base64(""), "");
  EXPECT_EQ(base64("f"), "Zg==");
  EXPECT_EQ(base64("fo"), "Zm8=");
  EXPECT_EQ(base64("foo"), "Zm9v");
  EXPECT_EQ(base64("foobar"), "Zm9vYmFy");
  EXPECT_EQ(base64("\xFB\xEF\xBE\xFF"), "++++/w==");
}

TEST(TextTable, ColumnsAreAsWideAsTheyNeed) {
  inspect::TextTable table({"topic", "n"});
  table.add({"/longest", "1"});
  table.add({"/a", "12345"});
  EXPECT_EQ(table.text(),
            "  topic         n\n"
            "  /longest      1\n"
            "  /a        12345\n");
}

}  // namespace morva::test
