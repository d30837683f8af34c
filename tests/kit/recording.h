#ifndef MORVA_TESTS_KIT_RECORDING_H_
#define MORVA_TESTS_KIT_RECORDING_H_

#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "kbag_msgs.pb.h"
#include "kit/simulate/options.h"
#include "kit/simulate/recorder.h"
#include "morva/bag.h"
#include "support/temp_dir.h"

namespace morva::test {

/// A recording made by the simulator in a directory of its own, with its truth file.
class Recording {
 public:
  /// Fails the test when the recording cannot be made. @param options  Without paths.
  explicit Recording(sim::Options options);

  [[nodiscard]] const sim::Options& options() const { return options_; }
  [[nodiscard]] const std::vector<sim::TopicSummary>& summaries() const { return summaries_; }
  [[nodiscard]] const MorvaBag& bag() const { return bag_; }

  [[nodiscard]] std::vector<std::string> payloads(const std::string& topic) const;

  /// The samples of all messages of a topic. @tparam Array  Array message of the schema.
  template <typename Array>
  [[nodiscard]] Array read(const std::string& topic) const {
    Array all;
    for (const std::string& payload : payloads(topic)) {
      Array array;
      if (!array.ParseFromString(payload)) ADD_FAILURE() << topic;
      all.MergeFrom(array);
    }
    return all;
  }

  /// The contents of the files that a topic carries, by name.
  [[nodiscard]] std::map<std::string, std::string> files(const std::string& topic) const;

 private:
  TempDir directory_;
  sim::Options options_;
  std::vector<sim::TopicSummary> summaries_;
  MorvaBag bag_;
};

/// A recording that is small enough to be made in every test: 1 s, 500 points a frame, no cameras,
/// no noise.
[[nodiscard]] sim::Options smallOptions();

}  // namespace morva::test

#endif  // MORVA_TESTS_KIT_RECORDING_H_
