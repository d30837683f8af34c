// The CSV tables of FrameExporter: one header line, then one row per frame.

#include <cstdint>

#include "export/frame_exporter.h"
#include "export/frame_table.h"
#include "messages/msg_converter.h"

namespace morva {

namespace {

/// Time stamps are printed signed, whatever a recording says.
template <typename Frame>
std::int64_t timestampOf(const Frame& frame) {
  return static_cast<std::int64_t>(frame.collectTimestamp);
}

std::int32_t asSigned(std::uint32_t value) { return static_cast<std::int32_t>(value); }

}  // namespace

bool FrameExporter::makeImuCsv(osmik::File* file, const MorvaBag::View& view) {
  static constexpr FrameTable<ImuFrame> kTable = {
      .operation = "makeImuCsv",
      .header = "seq,collect_timestamp,accel_x,accel_y,accel_z,gyro_x,gyro_y,gyro_z\n",
      .errorText = "write imu frame error: %d!",
      .convert = &MsgConverter::fromImuMsgArray,
      .fillRow =
          [](const ImuFrame& frame, TableRow* row) {
            const ImuMsg& imu = *frame.imu;
            row->set(',', frame.seq, timestampOf(frame), imu.accelX, imu.accelY, imu.accelZ,
                     imu.gyroX, imu.gyroY, imu.gyroZ);
          },
  };
  return writeTable("FrameExporter", kTable, *bag_, view, file, reportProgress());
}

bool FrameExporter::makeMagneticCsv(osmik::File* file, const MorvaBag::View& view) {
  static constexpr FrameTable<MagneticFrame> kTable = {
      .operation = "makeMagneticCsv",
      .header = "seq,collect_timestamp,mag_x,mag_y,mag_z\n",
      .errorText = "write magnetic frame error: %d!",
      .convert = &MsgConverter::fromMagneticMsgArray,
      .fillRow =
          [](const MagneticFrame& frame, TableRow* row) {
            row->set(',', frame.seq, timestampOf(frame), frame.magX, frame.magY, frame.magZ);
          },
  };
  return writeTable("FrameExporter", kTable, *bag_, view, file, reportProgress());
}

bool FrameExporter::makeLidarCsv(osmik::File* file, const MorvaBag::View& view) {
  static constexpr FrameTable<PointCloudFrame> kTable = {
      .operation = "makeLidarCsv",
      .header = "seq,collect_timestamp,pointnums\n",
      .errorText = "write lidar frame error: %d!",
      .convert = &MsgConverter::fromPointCloudMsgArray,
      .fillRow =
          [](const PointCloudFrame& frame, TableRow* row) {
            row->set(',', frame.seq, timestampOf(frame), frame.cloud->cloud->points.size());
          },
  };
  return writeTable("FrameExporter", kTable, *bag_, view, file, reportProgress());
}

bool FrameExporter::makeEncoderCsv(osmik::File* file, const MorvaBag::View& view) {
  static constexpr FrameTable<MotorFrame> kTable = {
      .operation = "makeEncoderCsv",
      .header = "seq,collect_timestamp,angle\n",
      .errorText = "write encode frame error: %d!",
      .convert = &MsgConverter::fromMotorMsgArray,
      .fillRow = [](const MotorFrame& frame,
                    TableRow* row) { row->set(',', frame.seq, timestampOf(frame), frame.angle); },
  };
  return writeTable("FrameExporter", kTable, *bag_, view, file, reportProgress());
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
      .fillRow =
          [](const GnssFrame& frame, TableRow* row) {
            const GnssMsg& gnss = *frame.gnss;
            row->set(',', frame.seq, timestampOf(frame), frame.utcTime, asSigned(frame.rawStatus),
                     asSigned(frame.service), asSigned(gnss.satelliteNum), gnss.pdop, gnss.hdop,
                     gnss.vdop, NineDecimals{gnss.latitude}, NineDecimals{gnss.longitude},
                     gnss.altitude - gnss.undulation, gnss.undulation, asSigned(gnss.frame),
                     gnss.latSigma, gnss.lonSigma, gnss.hgtSigma);
          },
  };
  return writeTable("FrameExporter", kTable, *bag_, view, file, reportProgress());
}

bool FrameExporter::makeCameraImageCsv(osmik::File* file, const MorvaBag::View& view) {
  static constexpr FrameTable<ImageFrame> kTable = {
      .operation = "makeCameraImageCsv",
      .header = "seq,collect_timestamp,width,height,frame_size\n",
      .errorText = "write image frame error: %d!",
      .convert = &MsgConverter::fromImageMsgArray,
      .fillRow =
          [](const ImageFrame& frame, TableRow* row) {
            row->set(',', frame.seq, timestampOf(frame), frame.width, frame.height,
                     frame.data.size());
          },
  };
  return writeTable("FrameExporter", kTable, *bag_, view, file, reportProgress());
}

}  // namespace morva
