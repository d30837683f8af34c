#ifndef MORVA_KIT_BATCH_MANIFEST_H_
#define MORVA_KIT_BATCH_MANIFEST_H_

#include <cstdint>
#include <string>
#include <vector>

namespace morva::batch {

/// How a project ended.
enum class Outcome : std::uint8_t {
  kDone,     ///< everything was unpacked
  kLosses,   ///< unpacked, but the bag is damaged or a topic failed
  kFailed,   ///< no output
  kStopped,  ///< stopped before the end
};

/// What became of one project.
struct ManifestEntry {
  std::string project;  ///< absolute path of the project folder
  std::string output;   ///< output folder, relative to the manifest's
  bool device = false;  ///< with the recorded calibration applied
  std::string bag;      ///< name of the bag file; empty: there is none
  std::uint64_t bagBytes = 0;
  std::int64_t bagTimeUs = 0;  ///< when the bag file was last changed, us since the Unix epoch
  Outcome outcome = Outcome::kFailed;
  int errorCode = 0;                       ///< of the task, BagTool::ErrorCode
  int checkCode = 0;                       ///< of the check of the bag: 0 sound, 7 damaged
  std::vector<std::string> failedTopics;   ///< not unpacked, or not whole
  std::vector<std::string> leftOutTopics;  ///< that have no form in which they could be unpacked
  std::string message;                     ///< what went wrong, in words
  std::uint64_t files = 0;                 ///< in the output folder, log and manifest not counted
  std::uint64_t bytes = 0;                 ///< of these files
  double seconds = 0.0;
};

/// The record of what was done: a JSON file in the output folder, one entry a project, in ascending
/// order of the project paths. docs/batch.md describes the file.
class Manifest {
 public:
  enum class Load : std::uint8_t { kOk, kMissing, kBroken };

  /// Reads the file; the object is empty unless that goes well.
  [[nodiscard]] Load load(const std::string& path);
  /// Replaces the file, whole or not at all. @return False with errno set.
  [[nodiscard]] bool save(const std::string& path) const;

  /// The entry of a project folder; null where there is none.
  [[nodiscard]] const ManifestEntry* find(const std::string& project) const;
  /// Adds an entry, or replaces the project's earlier one.
  void put(ManifestEntry entry);
  [[nodiscard]] const std::vector<ManifestEntry>& entries() const { return entries_; }

 private:
  std::vector<ManifestEntry> entries_;
};

/// Puts one entry into the manifest at `path`, which other programs may be doing too. A manifest
/// that cannot be read is begun anew.
/// @return False after a line on standard error.
[[nodiscard]] bool recordInManifest(const std::string& path, const ManifestEntry& entry);

/// The word that a manifest has for an outcome.
[[nodiscard]] const char* nameOf(Outcome outcome);

}  // namespace morva::batch

#endif  // MORVA_KIT_BATCH_MANIFEST_H_
