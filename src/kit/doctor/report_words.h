#ifndef MORVA_KIT_DOCTOR_REPORT_WORDS_H_
#define MORVA_KIT_DOCTOR_REPORT_WORDS_H_

#include <string>
#include <string_view>

#include "kit/doctor/account.h"
#include "kit/doctor/salvage.h"

/// The words that stand for what an account says, in the text and in the JSON report alike.
namespace morva::doctor {

[[nodiscard]] std::string_view wordFor(Verdict verdict);
[[nodiscard]] std::string_view wordFor(HeaderState state);
[[nodiscard]] std::string_view wordFor(IndexState state);
[[nodiscard]] std::string_view wordFor(SideState state);
[[nodiscard]] std::string_view wordFor(Part part);
[[nodiscard]] std::string_view wordFor(DeviceSource source);
[[nodiscard]] std::string compressionName(std::uint8_t compression);

/// The name of a topic, or its number where the name is lost.
[[nodiscard]] std::string topicLabel(const Account& account, std::int64_t topicId);

/// Sums over all topics.
struct MessageCounts {
  std::uint64_t readable = 0, confirmed = 0, restored = 0, unverified = 0, lost = 0,
                unrestorable = 0, undecodable = 0;
};
[[nodiscard]] MessageCounts countsOf(const Account& account);

}  // namespace morva::doctor

#endif  // MORVA_KIT_DOCTOR_REPORT_WORDS_H_
