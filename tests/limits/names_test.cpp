// Names in a recording that lead elsewhere: whatever takes a recording writes into its own output
// folder alone.

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "limits/commands.h"
#include "limits/loose_bag.h"
#include "support/temp_dir.h"
#include "task/recordings.h"

namespace morva::test {
namespace {

namespace fs = std::filesystem;

constexpr const char* kVictim = "/kbag-limits-victim";

std::vector<std::string> hostileNames(const std::string& outside) {
  return {"..",
          ".",
          "",
          "/",
          "../../stolen",
          "../../../../../../../../../../../../tmp" + std::string(kVictim),
          outside + "/stolen",
          std::string("stolen\0/../../x", 15),
          std::string("\0", 1),
          std::string(300, 'n'),
          std::string(5000, 'p') + "/" + std::string(256, 'q'),
          "a/",
          "..\\stolen",
          "con\nsole",
          ".gitkeep",
          "camera.yaml/..",
          "imu_camera0.yaml"};
}

/// A topic for each hostile name and place in a topic's name, and carried files under all of them.
std::string hostileBag(const std::string& outside) {
  const std::vector<std::string> names = hostileNames(outside);
  LooseBag::Topics topics = {{0, "/config_file"}, {1, "/project_data"}};
  for (const std::string& name : names) {
    for (const std::string& topic :
         {name, "/" + name, "/camera_" + name + "/h264", "/camera_" + name + "/jpeg"}) {
      // Of 60 bytes in the file.
      topics.emplace_back(static_cast<std::uint32_t>(topics.size()), topic.substr(0, 60));
    }
  }
  LooseBag bag(CompressionType::kNone, topics);
  const auto add = [&bag](std::uint32_t id, const std::string& payload) {
    bag.message({.topicId = id,
                 .stored = payload,
                 .timeUs = kStartUs,
                 .firstTimeUs = kStartUs,
                 .secondTimeUs = kStartUs});
  };
  for (const std::string& name : names) {
    for (std::uint32_t id = 0; id < 2; ++id) add(id, fileMessage("", name, "content").payload);
  }
  for (std::uint32_t id = 2; id < topics.size(); ++id) {
    add(id, imageMessage("", kStartUs, h264Picture()).payload);
  }
  return bag.build();
}

std::set<std::string> namesIn(const std::string& folder) {
  std::set<std::string> names;
  for (const auto& entry : fs::directory_iterator(folder)) names.insert(entry.path().filename());
  return names;
}

TEST(HostileNames, NothingIsWrittenOutsideOfTheOutput) {
  for (const Command& command : commands()) {
    SCOPED_TRACE(command.name);
    const TempDir dir;
    fs::create_directory(dir / "outside");
    static_cast<void>(costOf(command, hostileBag(dir / "outside"), dir / "work"));
    EXPECT_TRUE(fs::is_empty(dir / "outside"));
    EXPECT_EQ(namesIn(dir.path()), (std::set<std::string>{"outside", "work"}));
    EXPECT_EQ(namesIn(dir / "work"), (std::set<std::string>{"out", "p"}));
    const std::set<std::string> beside = namesIn(dir / "work/p");
    EXPECT_EQ(beside, command.name == std::string("reindex")
                          ? (std::set<std::string>{kBagName, std::string(kBagName) + ".index"})
                          : std::set<std::string>{kBagName});
    EXPECT_FALSE(fs::exists(std::string("/tmp") + kVictim));
  }
}

TEST(HostileNames, CarriedFilesGetTheirLastComponentInTheFolderOfTheirTopic) {
  for (const char* name : {"export --images", "unpack -t 8", "batch"}) {
    SCOPED_TRACE(name);
    const TempDir dir;
    static_cast<void>(costOf(command(name), hostileBag(dir / "outside"), dir / "work"));
    EXPECT_EQ(namesIn(dir / "work/out/project_data"),
              (std::set<std::string>{"..\\stolen", ".gitkeep", "con\nsole", "imu_camera0.yaml",
                                     "kbag-limits-victim", "stolen", "x"}));
  }
}

}  // namespace
}  // namespace morva::test
