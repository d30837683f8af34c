#ifndef MORVA_TESTS_EXPORT_EXPORT_FIXTURE_H_
#define MORVA_TESTS_EXPORT_EXPORT_FIXTURE_H_

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "morva/bag.h"
#include "support/log_capture.h"
#include "support/recording_builder.h"
#include "support/temp_dir.h"

namespace morva::test {

/// A recording, which a test fills, and an empty output directory.
class ExportTest : public testing::Test {
 protected:
  /// Records what was added to recording_ and opens it for reading, if that was not done before.
  MorvaBag& bag();
  /// All messages of a topic.
  MorvaBag::View view(const std::string& topic);

  /// Makes a directory under the output directory.
  void makeDirectory(const std::string& name) const;
  /// Contents of an output file.
  [[nodiscard]] std::string output(const std::string& name) const;
  /// Names of all regular files under the output directory, relative to it, in ascending order.
  [[nodiscard]] std::vector<std::string> outputs() const;
  [[nodiscard]] std::string path(const std::string& name) const { return out_ + "/" + name; }

  /// Log lines of one class.
  [[nodiscard]] std::vector<std::string> linesOf(const std::string& className) const;

  RecordingBuilder recording_;
  LogCapture log_;
  TempDir dir_;
  std::string out_ = makeOut();  ///< the output directory, inside of dir_

 private:
  [[nodiscard]] std::string makeOut() const;

  MorvaBag bag_;
  bool recorded_ = false;
};

}  // namespace morva::test

#endif  // MORVA_TESTS_EXPORT_EXPORT_FIXTURE_H_
