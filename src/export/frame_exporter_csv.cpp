// The CSV tables of FrameExporter: one header line, then one row per frame.

#include <string>

#include "export/frame_exporter.h"
#include "export/frame_table.h"
#include "messages/msg_converter.h"
#include "platform/str_util.h"

namespace morva {

using osmik::StrUtil;

bool FrameExporter::makeImuCsv(osmik::File* file, const MorvaBag::View& view) {
  static constexpr FrameTable<ImuFrame> kTable = {
      .operation = "makeImuCsv",
      .header = "seq,collect_timestamp,accel_x,accel_y,accel_z,gyro_x,gyro_y,gyro_z\n",
      .errorText = "write imu frame error: %d!",
      .convert = &MsgConverter::fromImuMsgArray,
      .formatRow =
          [](const ImuFrame& frame) {
            const ImuMsg& imu = *frame.imu;
            return StrUtil::format("%u,%lld,%f,%f,%f,%f,%f,%f\n", frame.seq, frame.collectTimestamp,
                                   imu.accelX, imu.accelY, imu.accelZ, imu.gyroX, imu.gyroY,
                                   imu.gyroZ);
          },
  };
  return writeTable("FrameExporter", kTable, *bag_, view, file);
}

bool FrameExporter::makeMagneticCsv(osmik::File* file, const MorvaBag::View& view) {
  static constexpr FrameTable<MagneticFrame> kTable = {
      .operation = "makeMagneticCsv",
      .header = "seq,collect_timestamp,mag_x,mag_y,mag_z\n",
      .errorText = "write magnetic frame error: %d!",
      .convert = &MsgConverter::fromMagneticMsgArray,
      .formatRow =
          [](const MagneticFrame& frame) {
            return StrUtil::format("%u,%lld,%f,%f,%f\n", frame.seq, frame.collectTimestamp,
                                   frame.magX, frame.magY, frame.magZ);
          },
  };
  return writeTable("FrameExporter", kTable, *bag_, view, file);
}

bool FrameExporter::makeLidarCsv(osmik::File* file, const MorvaBag::View& view) {
  static constexpr FrameTable<PointCloudFrame> kTable = {
      .operation = "makeLidarCsv",
      .header = "seq,collect_timestamp,pointnums\n",
      .errorText = "write lidar frame error: %d!",
      .convert = &MsgConverter::fromPointCloudMsgArray,
      .formatRow =
          [](const PointCloudFrame& frame) {
            return StrUtil::format("%u,%lld,%u\n", frame.seq, frame.collectTimestamp,
                                   frame.cloud->cloud->points.size());
          },
  };
  return writeTable("FrameExporter", kTable, *bag_, view, file);
}

bool FrameExporter::makeEncoderCsv(osmik::File* file, const MorvaBag::View& view) {
  static constexpr FrameTable<MotorFrame> kTable = {
      .operation = "makeEncoderCsv",
      .header = "seq,collect_timestamp,angle\n",
      .errorText = "write encode frame error: %d!",
      .convert = &MsgConverter::fromMotorMsgArray,
      .formatRow =
          [](const MotorFrame& frame) {
            return StrUtil::format("%u,%lld,%f\n", frame.seq, frame.collectTimestamp, frame.angle);
          },
  };
  return writeTable("FrameExporter", kTable, *bag_, view, file);
}

bool FrameExporter::makeGnssDataCsv(osmik::File* file, const MorvaBag::View& view) {
  static constexpr FrameTable<GnssFrame> kTable = {
      .operation = "makeGnssDataCsv",
      .header =
          "seq,collect_timestamp,navsat_utc_time,navsat_status,navsat_service,satlelite_num,"
          "pdop,hdop,vdop,latitude,longitude,altitude,undulation,frame,"
          "latSigma,lonSigma,hgtSigma\n",
      .errorText = "write gnss frame error: %d!",
      .convert = &MsgConverter::fromGnssMsgArray,
      .formatRow =
          [](const GnssFrame& frame) {
            const GnssMsg& gnss = *frame.gnss;
            return StrUtil::format("%u,%lld,%lld,%d,%d,%d,%f,%f,%f,%.9f,%.9f,%f,%f,%d,%f,%f,%f\n",
                                   frame.seq, frame.collectTimestamp, frame.utcTime,
                                   frame.rawStatus, frame.service, gnss.satelliteNum, gnss.pdop,
                                   gnss.hdop, gnss.vdop, gnss.latitude, gnss.longitude,
                                   gnss.altitude - gnss.undulation, gnss.undulation, gnss.frame,
                                   gnss.latSigma, gnss.lonSigma, gnss.hgtSigma);
          },
  };
  return writeTable("FrameExporter", kTable, *bag_, view, file);
}

bool FrameExporter::makeCameraImageCsv(osmik::File* file, const MorvaBag::View& view) {
  static constexpr FrameTable<ImageFrame> kTable = {
      .operation = "makeCameraImageCsv",
      .header = "seq,collect_timestamp,width,height,frame_size\n",
      .errorText = "write image frame error: %d!",
      .convert = &MsgConverter::fromImageMsgArray,
      .formatRow =
          [](const ImageFrame& frame) {
            return StrUtil::format("%u,%lld,%u,%u,%u\n", frame.seq, frame.collectTimestamp,
                                   frame.width, frame.height, frame.data.size());
          },
  };
  return writeTable("FrameExporter", kTable, *bag_, view, file);
}

}  // namespace morva
