#ifndef MORVA_TESTS_LIMITS_LOOSE_BAG_H_
#define MORVA_TESTS_LIMITS_LOOSE_BAG_H_

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "morva/records.h"
#include "support/bag_builder.h"

namespace morva::test {

/// The bytes of a recording with right checksums whose sizes, counts and index may be lies. Large
/// ones are made quickly.
class LooseBag {
 public:
  using Topics = std::vector<std::pair<std::uint32_t, std::string>>;

  LooseBag(CompressionType compression, const Topics& topics, std::string privateData = {});

  /// Appends a message's chunk and its entry of the index. @return The chunk's offset.
  std::uint64_t message(const BuiltMessage& message);
  /// An entry of the index alone.
  void entry(const BuiltMessage& message, std::uint64_t chunkOffset);
  /// Appends bytes as they stand.
  void raw(const std::string& bytes) { bytes_ += bytes; }

  /// Puts an index chunk of these bytes, with this raw size, in the place of the recording's own.
  void replaceIndex(const std::string& stored, std::uint32_t rawSize);
  /// The same for the definition chunk of a recording without messages.
  void replaceDefinition(const std::string& stored, std::uint32_t rawSize);

  [[nodiscard]] std::string build() const;

 private:
  HeaderFields header_;
  std::string bytes_;  ///< behind the file's header
  std::uint64_t dataStart_ = 0;
  std::map<std::uint32_t, BuiltIndex> index_;
  std::string indexChunk_;
};

}  // namespace morva::test

#endif  // MORVA_TESTS_LIMITS_LOOSE_BAG_H_
