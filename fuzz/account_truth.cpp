#include "account_truth.h"

#include <set>

#include "platform/byte_order.h"
#include "platform/crc32.h"
#include "storage/bag_layout.h"
#include "target.h"

namespace morva::fuzz {
namespace {

void expectHeld(const doctor::Message& message, std::string_view bag) {
  const std::uint64_t begin = message.offset + layout::kTopicDataOffset;
  expect(begin <= bag.size() && bag.size() - begin >= std::uint64_t{message.header.storedSize} + 4,
         "an account has a message that the file does not hold");
  const std::string_view stored = bag.substr(begin, message.header.storedSize);
  const auto crc = loadLe<std::uint32_t>(&bag[begin + message.header.storedSize]);
  expect(crc == message.crc && Crc32(stored.data(), stored.size()) == crc,
         "an account has a message whose checksum is wrong");
}

}  // namespace

void expectTrue(const doctor::Account& account, std::string_view bag) {
  expect(account.isComplete, "an account is not complete, and nobody interrupted it");
  expect(account.fileBytes == bag.size(), "an account is of a file of another size");
  std::set<std::uint64_t> offsets;
  for (const doctor::Message& message : account.messages) {
    expectHeld(message, bag);
    expect(offsets.insert(message.offset).second, "an account has a message twice");
  }
  for (const doctor::Damage& damage : account.damage) {
    expect(damage.range.begin <= damage.range.end && damage.range.end <= bag.size(),
           "damage lies outside of the file");
  }
  std::uint64_t readable = 0;
  for (const auto& [id, topic] : account.topics) readable += topic.readable();
  expect(readable == account.messages.size(), "the topics' messages are not all messages");
  if (account.verdict == doctor::Verdict::kSound) {
    expect(account.damage.empty() && account.lost.empty(), "a damaged recording is called sound");
  }
  if (account.verdict == doctor::Verdict::kDamaged) {
    expect(!account.messages.empty(), "a recording without messages is called readable");
  }
}

}  // namespace morva::fuzz
