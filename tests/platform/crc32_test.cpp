#include "platform/crc32.h"

#include <random>
#include <string>

#include <gtest/gtest.h>

#include "support/bag_builder.h"

using morva::test::referenceCrc32;

TEST(Crc32, GivesCheckValueOfTheVariant) {
  EXPECT_EQ(Crc32("123456789", 9), 0xCBF43926U);
  EXPECT_EQ(referenceCrc32("123456789"), 0xCBF43926U);
}

TEST(Crc32, GivesZeroForNoBytes) {
  EXPECT_EQ(Crc32("", 0), 0U);
  EXPECT_EQ(Crc32(nullptr, 0), 0U);
}

TEST(Crc32, AgreesWithBitwiseReferenceAtEveryLengthAndAlignment) {
  std::mt19937 random(1);
  std::string bytes(700, '\0');
  for (char& byte : bytes) byte = static_cast<char>(random());
  for (std::size_t start = 0; start < 16; ++start) {
    for (std::size_t length = 0; length + start <= bytes.size(); length += 1 + length / 16) {
      const std::string_view range = std::string_view(bytes).substr(start, length);
      ASSERT_EQ(Crc32(range.data(), range.size()), referenceCrc32(range)) << start << " " << length;
    }
  }
}

TEST(Crc32, ContinuesAChecksum) {
  const std::string bytes = "123456789";
  for (std::size_t cut = 0; cut <= bytes.size(); ++cut) {
    const std::uint32_t first = Crc32(bytes.data(), cut);
    EXPECT_EQ(Crc32(first, bytes.data() + cut, bytes.size() - cut), 0xCBF43926U) << cut;
  }
  EXPECT_EQ(Crc32(0xCBF43926U, nullptr, 0), 0xCBF43926U);
}

TEST(Crc32, OfTheTailFollowsFromWholeAndHead) {
  std::mt19937 random(2);
  std::string bytes(70'000, '\0');
  for (char& byte : bytes) byte = static_cast<char>(random());
  const std::uint32_t whole = Crc32(bytes.data(), bytes.size());
  for (const std::size_t head : {0U, 1U, 255U, 256U, 257U, 4464U, 69'999U, 70'000U}) {
    const std::uint32_t before = Crc32(bytes.data(), head);
    const std::size_t length = bytes.size() - head;
    EXPECT_EQ(Crc32OfTail(whole, before, length), Crc32(bytes.data() + head, length)) << head;
  }
}

TEST(Crc32, PatchMakesAnyChecksumOfAnyOther) {
  std::mt19937 random(3);
  for (int i = 0; i < 100; ++i) {
    const auto before = static_cast<std::uint32_t>(random());
    const auto wanted = static_cast<std::uint32_t>(random());
    const std::uint32_t patch = Crc32Patch(before, wanted);
    std::string bytes;
    for (const unsigned shift : {0U, 8U, 16U, 24U}) bytes += static_cast<char>(patch >> shift);
    EXPECT_EQ(Crc32(before, bytes.data(), bytes.size()), wanted);
  }
}

TEST(Crc32, OfATailOfMoreThanFourGigabytesAgreesWithSmallerSteps) {
  // With a whole of 0 the operation moves a checksum past bytes, which can be done in steps.
  const auto past = [](std::uint32_t before, std::uint64_t length) {
    return Crc32OfTail(0, before, length);
  };
  const std::uint64_t half = std::uint64_t{1} << 31U;
  EXPECT_EQ(past(0x12345678, 2 * half + 5), past(past(past(0x12345678, half), half), 5));
}
