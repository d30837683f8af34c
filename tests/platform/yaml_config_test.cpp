#include "platform/yaml_config.h"

#include <cmath>
#include <cstring>
#include <filesystem>
#include <limits>
#include <locale>
#include <random>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <yaml-cpp/yaml.h>

#include "support/failing_file_calls.h"
#include "support/log_capture.h"
#include "support/real_data_dir.h"
#include "support/temp_dir.h"

using basalt::YamlConfig;
using morva::test::FailingFileCalls;
using morva::test::LogCapture;
using morva::test::readFile;
using morva::test::TempDir;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

constexpr float kInfinity = std::numeric_limits<float>::infinity();

template <typename T>
bool get(const YamlConfig& config, const std::string& key, T* out) {
  return config.get(key, out, config.root());
}

template <typename T>
T parsed(const std::string& value, T before) {
  YamlConfig config;
  EXPECT_TRUE(config.fromString("key: " + value));
  EXPECT_TRUE(get(config, "key", &before)) << value;
  return before;
}

template <typename T>
void expectRefused(const std::string& value, T before) {
  LogCapture log;
  YamlConfig config;
  ASSERT_TRUE(config.fromString("key: " + value));
  T out = before;
  EXPECT_FALSE(get(config, "key", &out)) << value;
  EXPECT_EQ(out, before) << value;
  EXPECT_EQ(log.errors().size(), 1U) << value;
}

std::string repeated(const std::string& text, std::size_t times) {
  std::string all;
  for (std::size_t i = 0; i < times; ++i) all += text;
  return all;
}

// A locale in which a comma stands before the decimals and points group the digits.
class CommaLocale {
 public:
  CommaLocale()
      : before_(std::locale::global(std::locale(std::locale::classic(), new Punctuation))) {}
  CommaLocale(const CommaLocale&) = delete;
  CommaLocale& operator=(const CommaLocale&) = delete;
  ~CommaLocale() { std::locale::global(before_); }

 private:
  class Punctuation final : public std::numpunct<char> {
    char do_decimal_point() const override { return ','; }
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\3"; }
  };
  std::locale before_;
};

}  // namespace

TEST(YamlConfigGet, ReadsFloatsAsWritten) {
  EXPECT_EQ(parsed("1.5", 0.0F), 1.5F);
  EXPECT_EQ(parsed("-7", 0.0F), -7.0F);
  EXPECT_EQ(parsed("+2.5e-3", 0.0F), 2.5e-3F);
  EXPECT_EQ(parsed("1.76187114e-05", 0.0F), 1.76187114e-05F);
  EXPECT_EQ(parsed("0.1  # a comment", 0.0F), 0.1F);
  EXPECT_EQ(parsed("'0.25'", 0.0F), 0.25F);
  EXPECT_EQ(parsed("1.", 0.0F), 1.0F);
  EXPECT_EQ(parsed(".5", 0.0F), 0.5F);
  EXPECT_EQ(parsed("-.INF", 0.0F), -kInfinity);
  EXPECT_EQ(parsed(".inf", 0.0F), kInfinity);
  EXPECT_TRUE(std::isnan(parsed(".nan", 0.0F)));
}

TEST(YamlConfigGet, RoundsTinyFloatsToZero) {
  EXPECT_EQ(parsed("1e-60", 1.0F), 0.0F);
  EXPECT_EQ(parsed("-1e-400", 1.0F), 0.0F);
}

TEST(YamlConfigGet, RefusesWhatIsNoFloat) {
  for (const char* value :
       {"", "~", "abc", "1.5 2.5", "1,5", "0x10", "nan", "inf", "infinity", "1e39", "-1e400", "+-1",
        "++1", "1e", "true", "[1.0]", "{a: 1.0}", "1_000"}) {
    expectRefused(value, 3.0F);
  }
}

TEST(YamlConfigGet, ReadsBools) {
  for (const char* value : {"true", "True", "TRUE", "yes", "on"}) EXPECT_TRUE(parsed(value, false));
  for (const char* value : {"false", "False", "no", "off"}) EXPECT_FALSE(parsed(value, true));
}

TEST(YamlConfigGet, RefusesWhatIsNoBool) {
  for (const char* value : {"1", "0", "", "tRuE", "[true]", "{a: true}", "maybe"}) {
    expectRefused(value, true);
  }
}

TEST(YamlConfigGet, ReadsListsInBothStyles) {
  EXPECT_THAT(parsed("[1, 2.5,\n  -3e1]", std::vector<float>{}), ElementsAre(1.0F, 2.5F, -30.0F));
  EXPECT_THAT(parsed("\n- 1\n- 2", std::vector<float>{}), ElementsAre(1.0F, 2.0F));
  EXPECT_THAT(parsed("[]", std::vector<float>{7.0F}), ElementsAre());
}

TEST(YamlConfigGet, RefusesListsWithOtherValues) {
  for (const char* value : {"1.0", "", "[1, a]", "[1, [2]]", "[1, ~]", "{0: 1.0}", "[1,,2]"}) {
    LogCapture log;
    YamlConfig config;
    std::vector<float> out{9.0F};
    const bool read = config.fromString(std::string("key: ") + value) && get(config, "key", &out);
    EXPECT_FALSE(read) << value;
    EXPECT_THAT(out, ElementsAre(9.0F)) << value;
  }
}

TEST(YamlConfigGet, MissingKeyLogsDocumentKeyAndReason) {
  LogCapture log;
  YamlConfig config;
  ASSERT_TRUE(config.fromString("a: 1", "lidar"));
  float out = 4.0F;
  EXPECT_FALSE(get(config, "e", &out));
  EXPECT_EQ(out, 4.0F);
  EXPECT_THAT(log.lines(),
              ElementsAre("<E>TIME [YamlConfig::get,L0] doc(lidar) get key[e] value error: "
                          "invalid node; first invalid key: \"e\"!"));
}

TEST(YamlConfigGet, BadValueLogsItsPlace) {
  LogCapture log;
  YamlConfig config;
  ASSERT_TRUE(config.fromString("a: 1\nb: [1, x]"));
  std::vector<float> out;
  EXPECT_FALSE(get(config, "b", &out));
  EXPECT_THAT(
      log.lines(),
      ElementsAre(
          "<E>TIME [YamlConfig::get,L0] doc(string) get key[b] value error: yaml-cpp: error "
          "at line 2, column 8: bad conversion!"));
}

TEST(YamlConfigGet, RootThatIsNoMapHasNoKeys) {
  for (const char* document : {"", "~", "text", "[1, 2]", "# only a comment"}) {
    LogCapture log;
    YamlConfig config;
    ASSERT_TRUE(config.fromString(document)) << document;
    bool out = true;
    EXPECT_FALSE(get(config, "calibrated", &out)) << document;
    EXPECT_EQ(log.errors().size(), 1U) << document;
  }
}

TEST(YamlConfigGet, LooksUpInNodesBelowTheRoot) {
  YamlConfig config;
  ASSERT_TRUE(config.fromString("T_BS: {cols: 2, data: [1, 2]}"));
  std::vector<float> data;
  EXPECT_TRUE(config.get("data", &data, config.root()["T_BS"]));
  EXPECT_THAT(data, ElementsAre(1.0F, 2.0F));
}

TEST(YamlConfigGet, DoesNotDependOnTheLocale) {
  const CommaLocale locale;
  EXPECT_EQ(parsed("1.5", 0.0F), 1.5F);
  expectRefused("1,5", 0.0F);
}

TEST(YamlConfigFromString, MalformedDocumentLogsPlaceAndLeavesEmptyMap) {
  LogCapture log;
  YamlConfig config;
  EXPECT_FALSE(config.fromString("a: [1, 2", "imu"));
  ASSERT_EQ(log.lines().size(), 1U);
  EXPECT_THAT(log.lines()[0],
              testing::StartsWith("<E>TIME [YamlConfig::fromString,L0] parse doc(imu) "
                                  "error: yaml-cpp: error at line 1, column"));
  EXPECT_TRUE(config.root().IsMap());
  EXPECT_EQ(config.root().size(), 0U);
}

TEST(YamlConfigFromString, RefusesMalformedDocuments) {
  for (const char* document : {"a: b: c", "{", "]", "a: *nobody", "&a &b 1", "a:\n\t- 1\n b", "!<",
                               "@a", "a: 'x", "a: \"\\q\"", "%YAML 3.0\n---\na: 1\n%"}) {
    const LogCapture log;
    YamlConfig config;
    EXPECT_FALSE(config.fromString(document)) << document;
    EXPECT_EQ(log.errors().size(), 1U) << document;
  }
}

TEST(YamlConfigFromString, RefusesDocumentBeyondTheLimit) {
  LogCapture log;
  YamlConfig config;
  std::string document = "a: 1\n";
  document.resize(YamlConfig::kMaxDocumentBytes, '\n');
  EXPECT_TRUE(config.fromString(document));
  document.push_back('\n');
  EXPECT_FALSE(config.fromString(document));
  EXPECT_THAT(log.lines(),
              ElementsAre("<E>TIME [YamlConfig::fromString,L0] doc(string) is too long: 262145 "
                          "> 262144 bytes!"));
}

TEST(YamlConfigFromString, RefusesDeepDocuments) {
  for (const char* level : {"[", "{a: ", "- ", "? ", ": ", "{[", "- - a: "}) {
    const LogCapture log;
    YamlConfig config;
    EXPECT_FALSE(config.fromString(repeated(level, 20000))) << level;
  }
}

TEST(YamlConfigFromString, TakesReferencesThatMultiplyOrTurnInCircles) {
  std::string bomb = "a0: &a0 [1, 1, 1, 1, 1, 1, 1, 1, 1]\n";
  for (int i = 1; i < 40; ++i) {
    const std::string item = "*a" + std::to_string(i - 1);
    bomb += "a" + std::to_string(i) + ": &a" + std::to_string(i) + " [" + repeated(item + ", ", 8) +
            item + "]\n";
  }
  for (const std::string& document : {bomb, std::string("a39: &a39 [*a39, *a39]")}) {
    const LogCapture log;
    YamlConfig config;
    ASSERT_TRUE(config.fromString(document));
    std::vector<float> out;
    EXPECT_FALSE(get(config, "a39", &out));
    const TempDir dir;
    ASSERT_TRUE(config.toFile(dir / "out.yaml", -1, -1));
    EXPECT_LT(std::filesystem::file_size(dir / "out.yaml"), 3 * document.size());
  }
}

TEST(YamlConfigFromString, SurvivesRandomDamage) {
  const LogCapture log;
  const std::string document =
      "%YAML:1.0\n# c\nTa: [1, 0.5, -1e-3]\nmap: {a: &x 'q', \"b\": *x}\nblock: |\n  text\nlist:\n "
      " - 1\n"
      "  - ? k\n    : v\nt: !!opencv-matrix\n   rows: 3\n";
  std::mt19937 random(11);
  int read = 0;
  for (int i = 0; i < 3000; ++i) {
    std::string damaged = document;
    for (int change = 0; change < 3; ++change) {
      damaged[random() % damaged.size()] =
          "[]{}&*!|>'\"%@:,-? \n\t#\0\x80\xff"
          "0a"[random() % 25];
    }
    YamlConfig config;
    std::vector<float> out;
    if (config.fromString(damaged) && get(config, "Ta", &out)) ++read;
  }
  EXPECT_GT(read, 100);
  EXPECT_LT(read, 2900);
}

TEST(YamlConfigFromString, ReadsDocumentsOfRealDevices) {
  if (morva::test::realDataDir().empty()) GTEST_SKIP() << "no real sensor data beside the checkout";
  const std::filesystem::path folder = std::filesystem::path(morva::test::realDataDir()) / "calib";
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    YamlConfig config;
    EXPECT_TRUE(config.fromString(readFile(entry.path().string()))) << entry.path();
    EXPECT_TRUE(config.root().IsMap()) << entry.path();
    EXPECT_GT(config.root().size(), 0U) << entry.path();
  }
  YamlConfig config;
  ASSERT_TRUE(config.fromString(readFile((folder / "euroc_cam0.yaml").string())));
  std::vector<float> intrinsics;
  EXPECT_TRUE(get(config, "intrinsics", &intrinsics));
  EXPECT_THAT(intrinsics, ElementsAre(458.654F, 457.296F, 367.215F, 248.375F));
}

TEST(YamlConfigToFile, WritesMapInOrderWithFlowSequences) {
  const TempDir dir;
  YamlConfig config;
  config.set("calibrated", true);
  config.set("transform:", std::vector<float>{1.0F, 0.1F, -1e-5F, 1e20F, kInfinity, -0.0F});
  config.set("e", 0.0175F);
  ASSERT_TRUE(config.toFile(dir / "a.yaml", -1, -1));
  EXPECT_EQ(readFile(dir / "a.yaml"),
            "calibrated: true\n"
            "\"transform:\": [1.0, 0.1, -1.0e-05, 1.0e+20, .inf, -0.0]\n"
            "e: 0.0175\n");
}

TEST(YamlConfigToFile, NumbersReadBackToTheSameBits) {
  const TempDir dir;
  std::mt19937 random(5);
  std::vector<float> values{std::numeric_limits<float>::max(),
                            std::numeric_limits<float>::denorm_min()};
  while (values.size() < 2000) {
    const auto bits = static_cast<std::uint32_t>(random());
    float value = 0.0F;
    std::memcpy(&value, &bits, sizeof value);
    if (std::isfinite(value)) values.push_back(value);
  }
  YamlConfig config;
  config.set("values", values);
  ASSERT_TRUE(config.toFile(dir / "a.yaml", -1, -1));
  YamlConfig again;
  ASSERT_TRUE(again.fromString(readFile(dir / "a.yaml")));
  std::vector<float> read;
  ASSERT_TRUE(get(again, "values", &read));
  EXPECT_EQ(std::memcmp(read.data(), values.data(), values.size() * sizeof(float)), 0);
}

TEST(YamlConfigToFile, RoundsNumbersToTheGivenDigits) {
  const TempDir dir;
  YamlConfig config;
  ASSERT_TRUE(config.fromString("b: 3.14159\nc: [2.0, 1e-7, 12345]\nd: '3.14159'\nv: 1.2.3\n"));
  config.set("e", std::vector<float>{1234.5F, 0.1F});
  ASSERT_TRUE(config.toFile(dir / "a.yaml", -1, 3));
  EXPECT_EQ(readFile(dir / "a.yaml"),
            "b: 3.14\nc: [2.0, 1.0e-07, 12345]\nd: 3.14159\nv: 1.2.3\ne: [1.23e+03, 0.1]\n");
  ASSERT_TRUE(config.toFile(dir / "a.yaml", -1, -1));
  EXPECT_THAT(readFile(dir / "a.yaml"), HasSubstr("b: 3.14159\nc: [2.0, 1e-7, 12345]\n"));
}

TEST(YamlConfigToFile, IndentsByTheGivenSpaces) {
  const TempDir dir;
  YamlConfig config;
  ASSERT_TRUE(config.fromString("a:\n  b:\n    - 1\n"));
  ASSERT_TRUE(config.toFile(dir / "a.yaml", 4, -1));
  EXPECT_EQ(readFile(dir / "a.yaml"), "a:\n    b:\n        -   1\n");
}

TEST(YamlConfigToFile, ReplacesAFileAndASetKey) {
  const TempDir dir;
  morva::test::writeFile(dir / "a.yaml", repeated("old\n", 100));
  YamlConfig config;
  ASSERT_TRUE(config.fromString("[not, a, map]"));
  config.set("a", 1.0F);
  config.set("a", 2.0F);
  ASSERT_TRUE(config.toFile(dir / "a.yaml", -1, -1));
  EXPECT_EQ(readFile(dir / "a.yaml"), "a: 2.0\n");
}

TEST(YamlConfigToFile, DoesNotDependOnTheLocale) {
  const CommaLocale locale;
  const TempDir dir;
  YamlConfig config;
  config.set("a", 12345.5F);
  ASSERT_TRUE(config.toFile(dir / "a.yaml", -1, -1));
  EXPECT_EQ(readFile(dir / "a.yaml"), "a: 12345.5\n");
}

TEST(YamlConfigToFile, MissingFolderLogsAndFails) {
  LogCapture log;
  const TempDir dir;
  const YamlConfig config;
  EXPECT_FALSE(config.toFile(dir / "none/a.yaml", -1, -1));
  EXPECT_THAT(log.lines(),
              ElementsAre("<E>TIME [YamlConfig::toFile,L0] write file(" + (dir / "none/a.yaml") +
                          ") error: No such file or directory!"));
}

TEST(YamlConfigToFile, FailedWriteOrCloseLeavesNoFile) {
  for (const auto call : {FailingFileCalls::Call::kPwrite, FailingFileCalls::Call::kClose}) {
    LogCapture log;
    const TempDir dir;
    YamlConfig config;
    config.set("a", 1.0F);
    FailingFileCalls calls;
    calls.fail(call);
    EXPECT_FALSE(config.toFile(dir / "a.yaml", -1, -1));
    EXPECT_FALSE(std::filesystem::exists(dir / "a.yaml"));
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_THAT(log.lines()[0], HasSubstr("No space left on device"));
  }
}

TEST(YamlConfigToFile, IndentThatYamlDoesNotKnowFails) {
  LogCapture log;
  const TempDir dir;
  const YamlConfig config;
  EXPECT_FALSE(config.toFile(dir / "a.yaml", 1, -1));
  EXPECT_EQ(log.errors().size(), 1U);
  EXPECT_FALSE(std::filesystem::exists(dir / "a.yaml"));
}
