// Records without end, until it is killed:
// endless_recorder OUT SEED COMPRESSION WRITE_BUFFER BOUND_BYTES FLUSH_EVERY
//
// With a bound, or with a flush every so many messages, it tells in OUT.promised after each message
// how many are promised: a number of 8 bytes, written over the last one.

#include <cstdint>
#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

#include "bag/endless_messages.h"
#include "bag/recording.h"
#include "morva/bag.h"

int main(int argc, char** argv) {
  if (argc != 7) return 2;
  const auto number = [argv](int i) { return std::strtoul(argv[i], nullptr, 10); };
  const morva::test::EndlessMessages messages(number(2));

  morva::MorvaBag bag;
  bag.topics = morva::test::EndlessMessages::topics();
  bag.compressionType = static_cast<morva::CompressionType>(number(3));
  bag.writeBufferSize = static_cast<std::uint32_t>(number(4));
  bag.lossBound.bytes = number(5);
  const std::uint64_t flushEvery = number(6);
  const int promises =
      ::open((std::string(argv[1]) + ".promised").c_str(), O_WRONLY | O_CREAT, 0666);
  if (bag.open(argv[1], morva::BagMode::kWrite) != 0) return 1;
  for (std::uint64_t i = 0; morva::test::write(bag, messages.at(i)); ++i) {
    const std::uint64_t promised = i + 1;
    const bool flushes = flushEvery != 0 && promised % flushEvery == 0;
    if (flushes && !bag.flush()) return 1;
    if (!flushes && bag.lossBound.bytes != 1) continue;
    if (::pwrite(promises, &promised, sizeof promised, 0) != sizeof promised) return 1;
  }
  return 1;
}
