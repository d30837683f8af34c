#ifndef MORVA_KIT_DOCTOR_NEW_RECORDING_H_
#define MORVA_KIT_DOCTOR_NEW_RECORDING_H_

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "kit/doctor/account.h"
#include "kit/doctor/chunk_finder.h"
#include "kit/doctor/topic_names.h"
#include "storage/bag_writer.h"

namespace morva::doctor {

/// A recording that gets its name when it is whole: written beside its place under a name of its
/// own, read back, and only then published. What was not published is removed in the end.
///
/// begin() -> add() any number of times -> finish() -> verify() -> publish(), as long as they
/// return true; each that does not leaves the reason in problem().
class NewRecording {
 public:
  explicit NewRecording(std::string path) : path_(std::move(path)) {}
  NewRecording(const NewRecording&) = delete;
  NewRecording& operator=(const NewRecording&) = delete;
  ~NewRecording();

  [[nodiscard]] bool begin(std::uint8_t compression, const std::string& privateData,
                           const TopicNames& names);
  /// @param message  Its topic id is one of `names`.
  [[nodiscard]] bool add(const Message& message, const std::string& payload);
  [[nodiscard]] bool finish();
  /// Reads everything back: each message must be what was added, and the index must know it.
  [[nodiscard]] bool verify(const Progress& progress);
  [[nodiscard]] bool publish(bool replace);

  [[nodiscard]] const std::string& problem() const { return problem_; }

 private:
  /// What must be read back.
  struct Added {
    BagFile::TopicHeader header;
    std::uint32_t crc = 0;  ///< of the payload
  };

  bool fail(const std::string& problem);
  [[nodiscard]] bool createTemporary();
  [[nodiscard]] bool holdsAdded(const BagFile::Chunk& chunk, const Added& added,
                                const std::string& topic) const;
  [[nodiscard]] const std::string& nameOf(const Added& added) const;

  const std::string path_;
  std::string temporary_;  ///< empty: there is none
  std::string problem_;
  TopicNames names_;
  std::unique_ptr<BagWriter> writer_;
  std::vector<Added> added_;
};

}  // namespace morva::doctor

#endif  // MORVA_KIT_DOCTOR_NEW_RECORDING_H_
