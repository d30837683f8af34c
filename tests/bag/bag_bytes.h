#ifndef MORVA_TESTS_BAG_BAG_BYTES_H_
#define MORVA_TESTS_BAG_BAG_BYTES_H_

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

/// The bytes of a bag, put together from chunks and taken apart again without the reader.
namespace morva::test {

using Topics = std::vector<std::pair<std::uint32_t, std::string>>;

[[nodiscard]] std::string definitionChunk(const Topics& topics);

/// An index chunk whose data is `data`, stored as it stands.
[[nodiscard]] std::string indexChunk(const std::string& data);

/// A bag as a recorder that was killed leaves it: header, definition chunk, the given chunks.
[[nodiscard]] std::string unclosedBag(const Topics& topics, const std::vector<std::string>& chunks,
                                      std::uint8_t compression = 0);

/// Takes the index away from a bag that was closed: what a kill just before the close leaves.
[[nodiscard]] std::string withoutClose(std::string bag);

/// A chunk that lies whole in the file.
struct RawChunk {
  std::size_t offset = 0;
  std::uint16_t type = 0;
  std::string header;
  std::string data;      ///< as stored
  bool isSound = false;  ///< size word and checksum fit
  [[nodiscard]] std::size_t end() const { return offset + 16 + header.size() + data.size(); }
};

/// The whole chunks from the definition chunk up to the index chunk or the first that is cut short.
[[nodiscard]] std::vector<RawChunk> walkBytes(const std::string& bag);

}  // namespace morva::test

#endif  // MORVA_TESTS_BAG_BAG_BYTES_H_
