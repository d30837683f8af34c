// Records without end, until it is killed:  endless_recorder OUT SEED COMPRESSION WRITE_BUFFER

#include <cstdlib>

#include "bag/endless_messages.h"
#include "bag/recording.h"
#include "morva/bag.h"

int main(int argc, char** argv) {
  if (argc != 5) return 2;
  const auto number = [argv](int i) { return std::strtoul(argv[i], nullptr, 10); };
  const morva::test::EndlessMessages messages(number(2));

  morva::MorvaBag bag;
  bag.topics = morva::test::EndlessMessages::topics();
  bag.compressionType = static_cast<morva::CompressionType>(number(3));
  bag.writeBufferSize = static_cast<std::uint32_t>(number(4));
  if (bag.open(argv[1], morva::BagMode::kWrite) != 0) return 1;
  for (std::uint64_t i = 0; morva::test::write(bag, messages.at(i)); ++i) {
  }
  return 1;
}
