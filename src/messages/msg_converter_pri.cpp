#include "messages/msg_converter_pri.h"

#include <cstdint>
#include <string>

#include "messages/sample_scale.h"
#include "platform/data_crypto.h"
#include "platform/file_path.h"

namespace morva {
namespace {

namespace pb = protix::kbag_msgs;

/// A frame with the two fields that begin every frame.
template <typename Frame>
std::shared_ptr<Frame> makeFrame(const pb::Header& header) {
  auto frame = std::make_shared<Frame>();
  frame->seq = header.seq();
  frame->collectTimestamp = static_cast<std::uint64_t>(header.timestamp());
  return frame;
}

std::uint32_t mapStatus(std::int32_t rawStatus) {
  switch (rawStatus) {
    case 1:
    case 2:
      return 3;
    case 3:
      return 4;
    default:
      return 999;
  }
}

PointIRT toPoint(const pb::LidarPoint& msg, const SampleScale& scale, std::int64_t frameTimeUs) {
  PointIRT point;
  point.x = scale.toFloat(msg.x());
  point.y = scale.toFloat(msg.y());
  point.z = scale.toFloat(msg.z());
  point.intensity = static_cast<float>(msg.intensity() & 0xFFU);
  point.timestamp = toSeconds(addSaturated(frameTimeUs, msg.time_offset()));
  point.ring = static_cast<std::uint16_t>(msg.ring() & 0xFFFFU);
  return point;
}

std::string contentOf(const pb::FileMsg& msg) {
  switch (msg.content_case()) {
    case pb::FileMsg::kPlain:
      return msg.plain();
    case pb::FileMsg::kScrambled:
      return DataCrypto::decrypt(msg.scrambled());
    case pb::FileMsg::CONTENT_NOT_SET:
      break;
  }
  return {};
}

}  // namespace

std::shared_ptr<ImuFrame> MsgConverterPri::fromPBMsg(const pb::ImuMsg& msg) {
  const SampleScale scale(msg.header().scale());
  auto frame = makeFrame<ImuFrame>(msg.header());
  frame->imu = std::make_shared<ImuMsg>();
  frame->imu->time = toSeconds(msg.header().timestamp());
  frame->imu->accelX = scale.toFloat(msg.accel_x());
  frame->imu->accelY = scale.toFloat(msg.accel_y());
  frame->imu->accelZ = scale.toFloat(msg.accel_z());
  frame->imu->gyroX = scale.toFloat(msg.gyro_x());
  frame->imu->gyroY = scale.toFloat(msg.gyro_y());
  frame->imu->gyroZ = scale.toFloat(msg.gyro_z());
  return frame;
}

std::shared_ptr<MagneticFrame> MsgConverterPri::fromPBMsg(const pb::MagneticMsg& msg) {
  const SampleScale scale(msg.header().scale());
  auto frame = makeFrame<MagneticFrame>(msg.header());
  frame->magX = scale.toFloat(msg.mag_x());
  frame->magY = scale.toFloat(msg.mag_y());
  frame->magZ = scale.toFloat(msg.mag_z());
  frame->calibMagX = scale.toFloat(msg.calib_mag_x());
  frame->calibMagY = scale.toFloat(msg.calib_mag_y());
  frame->calibMagZ = scale.toFloat(msg.calib_mag_z());
  frame->declination = scale.toDouble(msg.declination());
  frame->state = msg.state();
  return frame;
}

std::shared_ptr<MotorFrame> MsgConverterPri::fromPBMsg(const pb::OdometryMsg& msg, double* angle) {
  const SampleScale scale(msg.header().scale());
  auto frame = makeFrame<MotorFrame>(msg.header());
  frame->motor = std::make_shared<MotorMsg>();
  frame->motor->time = toSeconds(msg.header().timestamp());
  frame->motor->qx = scale.toFloat(msg.qx());
  frame->motor->qy = scale.toFloat(msg.qy());
  frame->motor->qz = scale.toFloat(msg.qz());
  frame->motor->qw = scale.toFloat(msg.qw());
  if (angle != nullptr) *angle = scale.toDouble(msg.angle());
  return frame;
}

std::shared_ptr<GnssFrame> MsgConverterPri::fromPBMsg(const pb::GnssMsg& msg) {
  const SampleScale scale(msg.header().scale());
  auto frame = makeFrame<GnssFrame>(msg.header());
  frame->utcTime = msg.utc_time();
  frame->service = msg.service();
  frame->rawStatus = static_cast<std::uint32_t>(msg.status());
  frame->gnss = std::make_shared<GnssMsg>();
  frame->gnss->time = toSeconds(msg.header().timestamp());
  frame->gnss->satelliteNum = msg.satellite_num();
  frame->gnss->latitude = msg.latitude();
  frame->gnss->longitude = msg.longitude();
  frame->gnss->altitude = scale.toDouble(msg.altitude());
  frame->gnss->undulation = scale.toDouble(msg.undulation());
  frame->gnss->pdop = scale.toDouble(msg.pdop());
  frame->gnss->hdop = scale.toDouble(msg.hdop());
  frame->gnss->vdop = scale.toDouble(msg.vdop());
  frame->gnss->latSigma = scale.toDouble(msg.lat_sigma());
  frame->gnss->lonSigma = scale.toDouble(msg.lon_sigma());
  frame->gnss->hgtSigma = scale.toDouble(msg.hgt_sigma());
  frame->gnss->frame = msg.frame();
  frame->gnss->status = mapStatus(msg.status());
  return frame;
}

std::shared_ptr<PointCloudFrame> MsgConverterPri::fromPBMsg(const pb::LidarPointMsg& msg) {
  const SampleScale scale(msg.header().scale());
  auto cloud = std::make_shared<PointCloud>();
  cloud->points.reserve(static_cast<std::size_t>(msg.points_size()));
  for (const pb::LidarPoint& point : msg.points()) {
    cloud->points.push_back(toPoint(point, scale, msg.header().timestamp()));
  }
  cloud->width = static_cast<std::uint32_t>(cloud->points.size());
  cloud->height = 1;

  auto frame = makeFrame<PointCloudFrame>(msg.header());
  frame->cloud = std::make_shared<PointCloudMsg>();
  frame->cloud->time = toSeconds(msg.header().timestamp());
  frame->cloud->seq = msg.header().seq();
  frame->cloud->cloud = std::move(cloud);
  return frame;
}

std::shared_ptr<ImageFrame> MsgConverterPri::fromPBMsg(const pb::ImageMsg& msg) {
  auto frame = makeFrame<ImageFrame>(msg.header());
  frame->width = msg.width();
  frame->height = msg.height();
  frame->imageType = msg.image_type();
  frame->data = msg.data();
  return frame;
}

std::shared_ptr<FileFrame> MsgConverterPri::fromPBMsg(const pb::FileMsg& msg) {
  auto frame = makeFrame<FileFrame>(msg.header());
  frame->name = osmik::FilePath(msg.name()).baseName();
  frame->content = contentOf(msg);
  return frame;
}

std::shared_ptr<RawDataFrame> MsgConverterPri::fromPBMsg(const pb::LogMsg& msg) {
  auto frame = makeFrame<RawDataFrame>(msg.header());
  frame->data = msg.data();
  return frame;
}

}  // namespace morva
