#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "kit/doctor/examination.h"
#include "kit/doctor/report_json.h"
#include "kit/doctor/report_text.h"
#include "support/bag_builder.h"
#include "support/temp_dir.h"

namespace morva::test {
namespace {

using doctor::Account;
using nlohmann::json;
using testing::HasSubstr;
using testing::Not;

class ReportTest : public testing::Test {
 protected:
  Account examine(const std::string& bytes) {
    writeFile(path_, bytes);
    Account account = doctor::examine(path_, [](double) { return true; });
    account.path = "x.kbag";
    return account;
  }

  static BagBuilder threeMessages(const std::string& name) {
    BagBuilder builder;
    builder.topic(4, name);
    for (int i = 0; i < 3; ++i) {
      builder.message({.topicId = 4,
                       .stored = "message " + std::to_string(i),
                       .firstTimeUs = 1'700'000'000'000'000 + 250'000 * i});
    }
    return builder;
  }

  TempDir dir_;
  std::string path_ = dir_ / "x.kbag";
};

}  // namespace

TEST_F(ReportTest, TextTellsWhatIsDamagedAndWhatIsLeft) {
  const BagBuilder builder = threeMessages("/free");
  std::string bytes = builder.build();
  bytes[builder.chunkOffset(1) + 50] ^= 1;
  EXPECT_EQ(doctor::textOf(examine(bytes)),
            "x.kbag: damaged, 8192 bytes\n"
            "  header     sound, compression none\n"
            "  topics     1 name\n"
            "  index      sound, at 4371\n"
            "  by index   3 messages, 1 not where it says\n"
            "  messages   2 can be read, 1 lost\n"
            "  damage at byte       length  what it hit\n"
            "            4249           61  messages\n"
            "                                 lost: 1 of /free\n"
            "                                 after 1700000000.000000 of /free, before "
            "1700000000.500000 of /free\n"
            "  topic                         messages  unverif.      lost  undecoded\n"
            "  /free                                2         0         1          0\n");
}

TEST_F(ReportTest, TextOfAFileThatCannotBeOpenedSaysWhy) {
  EXPECT_EQ(doctor::textOf(doctor::examine("/missing", [](double) { return true; })),
            "/missing: unreadable: No such file or directory\n");
}

TEST_F(ReportTest, NamesOfAFileCannotSteerTheTerminal) {
  const Account account = examine(threeMessages("/\033[2J\x07").build());
  const std::string text = doctor::textOf(account);
  EXPECT_THAT(text, Not(HasSubstr("\033")));
  EXPECT_THAT(text, HasSubstr("/?[2J?"));
}

TEST_F(ReportTest, JsonHoldsTheAccount) {
  const BagBuilder builder = threeMessages("/free");
  std::string bytes = builder.build();
  bytes[builder.chunkOffset(1) + 50] ^= 1;
  const json document = json::parse(doctor::jsonOf({examine(bytes)}, 3));
  EXPECT_EQ(document.at("format"), "kbagkit doctor");
  EXPECT_EQ(document.at("version"), 1);
  EXPECT_EQ(document.at("exit_status"), 3);
  const json& bag = document.at("bags").at(0);
  EXPECT_EQ(bag.at("verdict"), "damaged");
  EXPECT_EQ(bag.at("header").at("closed"), true);
  EXPECT_EQ(bag.at("index").at("entries"), 3);
  EXPECT_EQ(bag.at("messages").at("confirmed"), 2);
  EXPECT_EQ(bag.at("messages").at("lost"), 1);
  EXPECT_EQ(bag.at("damage"), json::parse(R"([{
      "offset": 4249, "length": 61, "part": "messages", "zeros": false, "unreadable": false,
      "lost": [{"topic": "/free", "messages": 1}], "lost_by_index": true,
      "first_lost_us": 1700000000250000, "last_lost_us": 1700000000250000,
      "before": {"topic": "/free", "time_us": 1700000000000000},
      "behind": {"topic": "/free", "time_us": 1700000000500000}}])"));
  EXPECT_EQ(bag.at("lost_messages"), json::parse(R"([{"topic": "/free",
      "time_us": 1700000000250000, "count": 1, "written_at": 4249}])"));
  EXPECT_EQ(bag.at("unverified_runs"), json::array());
}

TEST_F(ReportTest, JsonListsRunsOfUnverifiedMessages) {
  const BagBuilder builder = threeMessages("/free");
  const json document = json::parse(doctor::jsonOf({examine(builder.buildUnclosed())}, 3));
  const json& bag = document.at("bags").at(0);
  EXPECT_EQ(bag.at("messages").at("lost"), nullptr);
  EXPECT_EQ(bag.at("index").at("state"), "not written");
  EXPECT_EQ(
      bag.at("unverified_runs"),
      (json{{{"from", builder.chunkOffset(0)}, {"to", builder.chunkOffset(2)}, {"messages", 3}}}));
}

TEST_F(ReportTest, JsonTakesAnyBytesForAName) {
  const std::string text = doctor::jsonOf({examine(threeMessages("/\xFF\xFE").build())}, 0);
  EXPECT_EQ(json::parse(text).at("bags").at(0).at("topics").at(0).at("id"), 4);
}

}  // namespace morva::test
