// The tables of DataExporter: a line of column names after a "#", then one row per sample. The
// first column is the sample's time, in seconds since the Unix epoch.

#include <cstddef>
#include <cstdint>
#include <string>

#include "export/data_exporter.h"
#include "export/frame_table.h"
#include "export/param_reader.h"
#include "export/plain_files.h"
#include "messages/msg_converter.h"
#include "platform/date_time.h"
#include "platform/str_util.h"

namespace morva {
namespace {

using osmik::StrUtil;

constexpr char kClassName[] = "DataExporter";
constexpr std::size_t kCorrectedImuBufferBytes = 0x400000;

template <typename Frame>
std::string timeText(const Frame& frame) {
  return osmik::Time(static_cast<std::int64_t>(frame.collectTimestamp)).toString();
}

constexpr FrameTable<ImuFrame> kImuTable = {
    .operation = "unpackImuData",
    .header = "#timestamp gyro_x gyro_y gyro_z acc_x acc_y acc_z\n",
    .errorText = "write imu data error: %d!",
    .convert = &MsgConverter::fromImuMsgArray,
    .formatRow =
        [](const ImuFrame& frame) {
          const ImuMsg& imu = *frame.imu;
          return StrUtil::format("%s %f %f %f %f %f %f\n", timeText(frame), imu.gyroX, imu.gyroY,
                                 imu.gyroZ, imu.accelX, imu.accelY, imu.accelZ);
        },
};

constexpr FrameTable<MagneticFrame> kMagneticTable = {
    .operation = "unpackMagneticData",
    .header =
        "#timestamp mag_x mag_y mag_z calib_mag_x calib_mag_y calib_mag_z declination state\n",
    .errorText = "write magnetic data error: %d!",
    .headerErrorText = "write header error: %d!",
    .convert = &MsgConverter::fromMagneticMsgArray,
    .formatRow =
        [](const MagneticFrame& frame) {
          return StrUtil::format("%s %f %f %f %f %f %f %llf %d\n", timeText(frame), frame.magX,
                                 frame.magY, frame.magZ, frame.calibMagX, frame.calibMagY,
                                 frame.calibMagZ, frame.declination, frame.state);
        },
};

constexpr FrameTable<MotorFrame> kEncoderTable = {
    .operation = "unpackEncoderData",
    .header = "#timestamp qx qy qz qw\n",
    .errorText = "write encode data error: %d!",
    .convert = &MsgConverter::fromMotorMsgArray,
    .formatRow =
        [](const MotorFrame& frame) {
          const MotorMsg& motor = *frame.motor;
          return StrUtil::format("%s %f %f %f %f\n", timeText(frame), motor.qx, motor.qy, motor.qz,
                                 motor.qw);
        },
};

constexpr FrameTable<GnssFrame> kGnssTable = {
    .operation = "unpackGnssData",
    .header =
        "#timestamp status latitude longitude altitude cord undulation pdop hdop vdop var_x var_y "
        "var_z satellite_num\n",
    .errorText = "write gnss data error: %d!",
    .headerErrorText = "write header error: %d!",
    .convert = &MsgConverter::fromGnssMsgArray,
    .formatRow =
        [](const GnssFrame& frame) {
          const GnssMsg& gnss = *frame.gnss;
          return StrUtil::format("%s %d %.9f %.9f %f %d %f %f %f %f %f %f %f %d\n", timeText(frame),
                                 gnss.status, gnss.latitude, gnss.longitude,
                                 gnss.altitude - gnss.undulation, gnss.frame, gnss.undulation,
                                 gnss.pdop, gnss.hdop, gnss.vdop, gnss.latSigma, gnss.lonSigma,
                                 gnss.hgtSigma, gnss.satelliteNum);
        },
};

}  // namespace

bool DataExporter::unpackImuData(osmik::File* file, const MorvaBag::View& view) {
  return writeTable(kClassName, kImuTable, *bag_, view, file, reportProgress());
}

bool DataExporter::unpackMagneticData(osmik::File* file, const MorvaBag::View& view) {
  return writeTable(kClassName, kMagneticTable, *bag_, view, file, reportProgress());
}

bool DataExporter::unpackEncoderData(osmik::File* file, const MorvaBag::View& view) {
  return writeTable(kClassName, kEncoderTable, *bag_, view, file, reportProgress());
}

bool DataExporter::unpackGnssData(osmik::File* file, const MorvaBag::View& view) {
  return writeTable(kClassName, kGnssTable, *bag_, view, file, reportProgress());
}

bool DataExporter::exportCorrectedImuData(const SensorParameters& params,
                                          const MorvaBag::View& imuView) {
  const std::string path = dir_ + "/imu.csv";
  osmik::File file;
  if (!openNewFile(path, kCorrectedImuBufferBytes, &file)) {
    log_.error("create file(%s) error!", path);
    return false;
  }
  const auto correctedRow = [&params](const ImuFrame& frame) {
    ParamReader::correctImuData(params.imu, frame.imu);
    return kImuTable.formatRow(frame);
  };
  const FrameTable<ImuFrame, decltype(correctedRow)> table = {
      .operation = "exportCorrectedImuData",
      .header = kImuTable.header,
      .errorText = kImuTable.errorText,
      .headerErrorText = kImuTable.errorText,
      .convert = kImuTable.convert,
      .formatRow = correctedRow,
  };
  return writeTable(kClassName, table, *bag_, imuView, &file, reportProgress());
}

}  // namespace morva
