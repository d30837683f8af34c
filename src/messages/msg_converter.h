#ifndef MORVA_MESSAGES_MSG_CONVERTER_H_
#define MORVA_MESSAGES_MSG_CONVERTER_H_

#include <memory>
#include <string>
#include <vector>

#include "messages/frames.h"

namespace morva {

/// Payload in, frames out: one function per kind of topic.
///
/// @param payload  One serialized array message.
/// @return The frames in recorded order, none of them null; empty, without a log line, when the
///         payload cannot be parsed.
/// Threads: any.
class MsgConverter {
 public:
  template <typename Frame>
  using Frames = std::vector<std::shared_ptr<Frame>>;

  [[nodiscard]] static Frames<ImuFrame> fromImuMsgArray(const std::string& payload);
  [[nodiscard]] static Frames<MagneticFrame> fromMagneticMsgArray(const std::string& payload);
  [[nodiscard]] static Frames<MotorFrame> fromMotorMsgArray(const std::string& payload);
  [[nodiscard]] static Frames<GnssFrame> fromGnssMsgArray(const std::string& payload);
  [[nodiscard]] static Frames<PointCloudFrame> fromPointCloudMsgArray(const std::string& payload);
  [[nodiscard]] static Frames<ImageFrame> fromImageMsgArray(const std::string& payload);
  [[nodiscard]] static Frames<FileFrame> fromFileMsgArray(const std::string& payload);
  [[nodiscard]] static Frames<RawDataFrame> fromRawDataMsgArray(const std::string& payload);
};

}  // namespace morva

#endif  // MORVA_MESSAGES_MSG_CONVERTER_H_
