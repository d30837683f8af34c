#ifndef MORVA_KIT_DOCTOR_PAYLOAD_READER_H_
#define MORVA_KIT_DOCTOR_PAYLOAD_READER_H_

#include <string>

#include "kit/doctor/account.h"
#include "kit/doctor/byte_source.h"
#include "platform/compress.h"

namespace morva::doctor {

/// Reads the payloads of messages that were found.
class PayloadReader {
 public:
  PayloadReader(ByteSource* source, const basalt::Compressor* codec)
      : source_(*source), codec_(codec) {}

  /// @param message  Where nothing confirms its raw size, it gets the one that the payload has.
  /// @param payload  [out] As it was before compression; unspecified on failure.
  /// @return False where it cannot be restored.
  [[nodiscard]] bool read(Message* message, std::string* payload);

 private:
  ByteSource& source_;
  const basalt::Compressor* codec_;  ///< null: nothing is compressed
  std::string stored_;
};

}  // namespace morva::doctor

#endif  // MORVA_KIT_DOCTOR_PAYLOAD_READER_H_
