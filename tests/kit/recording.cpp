#include "kit/recording.h"

#include <utility>

#include <gtest/gtest.h>

#include "kit/simulate/simulate.h"

namespace morva::test {

Recording::Recording(sim::Options options) : options_(std::move(options)) {
  options_.bagPath = directory_ / "simulated.kbag";
  options_.truthPath = directory_ / "truth.json";
  EXPECT_TRUE(sim::simulate(options_, {}, &summaries_));
  EXPECT_EQ(bag_.open(options_.bagPath, BagMode::kRead), MorvaBag::kOpenOk);
}

std::vector<std::string> Recording::payloads(const std::string& topic) const {
  std::vector<std::string> payloads;
  for (const MsgIndex& index : bag_.getView(topic, 0, -1).indexes) {
    std::string payload;
    EXPECT_TRUE(bag_.readMessage(index, &payload));
    payloads.push_back(std::move(payload));
  }
  return payloads;
}

std::map<std::string, std::string> Recording::files(const std::string& topic) const {
  std::map<std::string, std::string> files;
  const auto carried = read<protix::kbag_msgs::FileMsgArray>(topic);
  for (const auto& file : carried.msgs()) {
    files[file.name()] = file.has_scrambled() ? file.scrambled() : file.plain();
  }
  return files;
}

sim::Options smallOptions() {
  sim::Options options;
  options.seconds = 1.0;
  options.pointsPerFrame = 500;
  options.cameras = 0;
  options.rangeNoiseM = 0.0;
  return options;
}

}  // namespace morva::test
