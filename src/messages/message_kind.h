#ifndef MORVA_MESSAGES_MESSAGE_KIND_H_
#define MORVA_MESSAGES_MESSAGE_KIND_H_

#include <cstdint>
#include <string_view>

namespace morva {

/// What the payloads of a topic are. Each kind is one array message of the schema.
enum class MessageKind : std::uint8_t {
  kUnknown,   ///< a topic that this software knows nothing of
  kImu,       ///< ImuMsgArray
  kMagnetic,  ///< MagneticMsgArray
  kMotor,     ///< OdometryMsgArray
  kGnss,      ///< GnssMsgArray
  kLidar,     ///< LidarPointMsgArray
  kPicture,   ///< ImageMsgArray
  kFile,      ///< FileMsgArray
  kLog,       ///< LogMsgArray
};

/// The kind of a topic's messages, which its name decides. Cameras may have any name. Threads: any.
[[nodiscard]] MessageKind messageKindOf(std::string_view topic);

}  // namespace morva

#endif  // MORVA_MESSAGES_MESSAGE_KIND_H_
