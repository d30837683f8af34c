#ifndef MORVA_FUZZ_WORK_PLACE_H_
#define MORVA_FUZZ_WORK_PLACE_H_

#include <string>
#include <string_view>

#include "recording_input.h"
#include "storage/bag_reader.h"

namespace morva::fuzz {

/// The process's folder for files of a run, in memory where the system has such a file system. It
/// holds the recording of the input at hand, and whatever the target makes of it.
class WorkPlace {
 public:
  /// Made at the first call, removed when the process ends well.
  static WorkPlace& get();
  WorkPlace(const WorkPlace&) = delete;
  WorkPlace& operator=(const WorkPlace&) = delete;
  ~WorkPlace();

  /// Writes an input's bag and side file, in the place of those of the input before.
  void put(const RecordingInput& input);
  /// put(), and opens the bag. @return Whether chunks can be read.
  [[nodiscard]] bool open(const RecordingInput& input, BagReader* reader);
  /// put() for a bag alone, under another name.
  void putBag(const std::string& path, std::string_view bytes);
  void removeSide();

  [[nodiscard]] const std::string& dir() const { return dir_; }
  [[nodiscard]] const std::string& bag() const { return bag_; }
  [[nodiscard]] const std::string& side() const { return side_; }
  /// A folder that exists and is empty.
  [[nodiscard]] const std::string& freshOut();

  /// Ends the process where there is anything in the folder but the recording, and the output
  /// folder.
  void expectNothingElse() const;

 private:
  WorkPlace();

  std::string dir_, bag_, side_, out_;
};

/// The whole contents of a file that exists; ends the process where it cannot be read.
[[nodiscard]] std::string contentsOf(const std::string& path);

}  // namespace morva::fuzz

#endif  // MORVA_FUZZ_WORK_PLACE_H_
