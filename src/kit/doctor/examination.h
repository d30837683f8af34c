#ifndef MORVA_KIT_DOCTOR_EXAMINATION_H_
#define MORVA_KIT_DOCTOR_EXAMINATION_H_

#include <cstdint>
#include <functional>
#include <map>
#include <string>

#include "kit/doctor/account.h"
#include "kit/doctor/byte_source.h"
#include "kit/doctor/chunk_finder.h"

namespace morva::doctor {

/// Looks through a recording, past every damage. Only ever reads.
///
/// look(), then readPayloads(), then conclude(); account() shows more after each. Memory: some 450
/// bytes a message, and the largest message.
class Examination {
 public:
  /// Takes a message and its payload, before compression. @return False to end.
  using Sink = std::function<bool(const Message& message, const std::string& payload)>;

  explicit Examination(std::string path);

  /// Finds what there is, but does not look into payloads.
  /// @return False where the file cannot be opened, or `progress` ended it.
  [[nodiscard]] bool look(const Progress& progress);

  /// Names for the topics of a recording whose own names are lost; call it before readPayloads().
  void nameTopics(const std::map<std::uint32_t, std::string>& names);

  /// Restores every message, in the order in which they were written, and looks whether it is of
  /// its topic's kind. Those that cannot be restored are taken off the account's list.
  /// @param sink  May be empty.
  /// @return False where `sink` or `progress` ended it.
  [[nodiscard]] bool readPayloads(const Sink& sink, const Progress& progress);

  /// Looks at the times, and comes to the verdict.
  void conclude();

  [[nodiscard]] const Account& account() const { return account_; }

 private:
  void describeDamage();
  void countLost();
  [[nodiscard]] bool isSound() const;

  ByteSource source_;
  Account account_;
};

/// All of it. An interrupted account is not complete, and says so.
[[nodiscard]] Account examine(const std::string& path, const Progress& progress);

}  // namespace morva::doctor

#endif  // MORVA_KIT_DOCTOR_EXAMINATION_H_
