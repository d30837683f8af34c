#ifndef MORVA_MESSAGES_MSG_CONVERTER_PRI_H_
#define MORVA_MESSAGES_MSG_CONVERTER_PRI_H_

#include <memory>

#include <kbag_msgs.pb.h>

#include "messages/frames.h"

namespace morva {

/// One stored sample in, one frame out. MsgConverter converts whole payloads with it.
///
/// Integer-coded values are multiplied, in double precision, by a factor that the sample's header
/// gives, and then narrowed to the width of their field:
///
///   scale > 0: 1 / scale;  scale = 0: 1;  scale < 0: scale itself, a multiplier.
///
/// A missing header or field reads as zero. Every value of every field is allowed: whatever a file
/// says, the result is defined. No result is null. Threads: any.
class MsgConverterPri {
 public:
  [[nodiscard]] static std::shared_ptr<ImuFrame> fromPBMsg(const protix::kbag_msgs::ImuMsg& msg);
  [[nodiscard]] static std::shared_ptr<MagneticFrame> fromPBMsg(
      const protix::kbag_msgs::MagneticMsg& msg);
  /// @param angle  [out, may be null] The scaled angle; the frame's own angle stays 0.
  [[nodiscard]] static std::shared_ptr<MotorFrame> fromPBMsg(
      const protix::kbag_msgs::OdometryMsg& msg, double* angle);
  [[nodiscard]] static std::shared_ptr<GnssFrame> fromPBMsg(const protix::kbag_msgs::GnssMsg& msg);
  /// A point's time is the header's plus its offset, saturated to 64 bits of microseconds. Of the
  /// intensity the low 8 bits count, of the ring the low 16.
  [[nodiscard]] static std::shared_ptr<PointCloudFrame> fromPBMsg(
      const protix::kbag_msgs::LidarPointMsg& msg);
  [[nodiscard]] static std::shared_ptr<ImageFrame> fromPBMsg(
      const protix::kbag_msgs::ImageMsg& msg);
  [[nodiscard]] static std::shared_ptr<FileFrame> fromPBMsg(const protix::kbag_msgs::FileMsg& msg);
  [[nodiscard]] static std::shared_ptr<RawDataFrame> fromPBMsg(
      const protix::kbag_msgs::LogMsg& msg);
};

}  // namespace morva

#endif  // MORVA_MESSAGES_MSG_CONVERTER_PRI_H_
