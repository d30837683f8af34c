// The CSV tables of FrameExporter: one header line, then one row per frame.

#include <cstdint>
#include <string>

#include "export/frame_exporter.h"
#include "export/frame_loop.h"
#include "messages/msg_converter.h"
#include "platform/str_util.h"

namespace morva {

using osmik::StrUtil;

/// What is particular to one table.
template <typename Frame>
struct FrameExporter::CsvTable {
  const char* handler;    ///< the operation that log lines name
  const char* errorText;  ///< with one "%d": what a write returned
  const char* header;
  MsgConverter::Frames<Frame> (*convert)(const std::string& payload);
  std::string (*formatRow)(const Frame& frame);
};

template <typename Frame>
bool FrameExporter::writeCsv(const CsvTable<Frame>& table, osmik::File* file,
                             const MorvaBag::View& view) const {
  const Log log("FrameExporter", table.handler);
  if (file->write(table.header) < 1) return false;

  const auto writeRow = [&](const Frame& frame) {
    const std::string row = table.formatRow(frame);
    const std::int64_t written = file->write(row);
    if (written == static_cast<std::int64_t>(row.size())) return true;
    log.error(table.errorText, written);
    return false;
  };
  if (!forEachFrameWhile(*bag_, view, table.convert, writeRow)) return false;

  if (file->close()) return true;
  log.error(table.errorText, -1);
  return false;
}

bool FrameExporter::makeImuCsv(osmik::File* file, const MorvaBag::View& view) {
  static constexpr CsvTable<ImuFrame> kTable = {
      .handler = "makeImuCsv",
      .errorText = "write imu frame error: %d!",
      .header = "seq,collect_timestamp,accel_x,accel_y,accel_z,gyro_x,gyro_y,gyro_z\n",
      .convert = &MsgConverter::fromImuMsgArray,
      .formatRow =
          [](const ImuFrame& frame) {
            const ImuMsg& imu = *frame.imu;
            return StrUtil::format("%u,%lld,%f,%f,%f,%f,%f,%f\n", frame.seq, frame.collectTimestamp,
                                   imu.accelX, imu.accelY, imu.accelZ, imu.gyroX, imu.gyroY,
                                   imu.gyroZ);
          },
  };
  return writeCsv(kTable, file, view);
}

bool FrameExporter::makeMagneticCsv(osmik::File* file, const MorvaBag::View& view) {
  static constexpr CsvTable<MagneticFrame> kTable = {
      .handler = "makeMagneticCsv",
      .errorText = "write magnetic frame error: %d!",
      .header = "seq,collect_timestamp,mag_x,mag_y,mag_z\n",
      .convert = &MsgConverter::fromMagneticMsgArray,
      .formatRow =
          [](const MagneticFrame& frame) {
            return StrUtil::format("%u,%lld,%f,%f,%f\n", frame.seq, frame.collectTimestamp,
                                   frame.magX, frame.magY, frame.magZ);
          },
  };
  return writeCsv(kTable, file, view);
}

bool FrameExporter::makeLidarCsv(osmik::File* file, const MorvaBag::View& view) {
  static constexpr CsvTable<PointCloudFrame> kTable = {
      .handler = "makeLidarCsv",
      .errorText = "write lidar frame error: %d!",
      .header = "seq,collect_timestamp,pointnums\n",
      .convert = &MsgConverter::fromPointCloudMsgArray,
      .formatRow =
          [](const PointCloudFrame& frame) {
            return StrUtil::format("%u,%lld,%u\n", frame.seq, frame.collectTimestamp,
                                   frame.cloud->cloud->points.size());
          },
  };
  return writeCsv(kTable, file, view);
}

bool FrameExporter::makeEncoderCsv(osmik::File* file, const MorvaBag::View& view) {
  static constexpr CsvTable<MotorFrame> kTable = {
      .handler = "makeEncoderCsv",
      .errorText = "write encode frame error: %d!",
      .header = "seq,collect_timestamp,angle\n",
      .convert = &MsgConverter::fromMotorMsgArray,
      .formatRow =
          [](const MotorFrame& frame) {
            return StrUtil::format("%u,%lld,%f\n", frame.seq, frame.collectTimestamp, frame.angle);
          },
  };
  return writeCsv(kTable, file, view);
}

bool FrameExporter::makeGnssDataCsv(osmik::File* file, const MorvaBag::View& view) {
  static constexpr CsvTable<GnssFrame> kTable = {
      .handler = "makeGnssDataCsv",
      .errorText = "write gnss frame error: %d!",
      .header =
          "seq,collect_timestamp,navsat_utc_time,navsat_status,navsat_service,satlelite_num,"
          "pdop,hdop,vdop,latitude,longitude,altitude,undulation,frame,"
          "latSigma,lonSigma,hgtSigma\n",
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
  return writeCsv(kTable, file, view);
}

bool FrameExporter::makeCameraImageCsv(osmik::File* file, const MorvaBag::View& view) {
  static constexpr CsvTable<ImageFrame> kTable = {
      .handler = "makeCameraImageCsv",
      .errorText = "write image frame error: %d!",
      .header = "seq,collect_timestamp,width,height,frame_size\n",
      .convert = &MsgConverter::fromImageMsgArray,
      .formatRow =
          [](const ImageFrame& frame) {
            return StrUtil::format("%u,%lld,%u,%u,%u\n", frame.seq, frame.collectTimestamp,
                                   frame.width, frame.height, frame.data.size());
          },
  };
  return writeCsv(kTable, file, view);
}

}  // namespace morva
