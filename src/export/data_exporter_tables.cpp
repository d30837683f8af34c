// The tables of DataExporter: a line of column names after a "#", then one row per sample. The
// first column is the sample's time, in seconds since the Unix epoch.

#include <cstddef>
#include <cstdint>
#include <string>

#include "export/data_exporter.h"
#include "export/frame_table.h"
#include "export/param_reader.h"
#include "messages/msg_converter.h"
#include "platform/new_file.h"

namespace morva {
namespace {

constexpr char kClassName[] = "DataExporter";
constexpr std::size_t kCorrectedImuBufferBytes = 0x400000;

template <typename Frame>
InSeconds timeOf(const Frame& frame) {
  return {static_cast<std::int64_t>(frame.collectTimestamp)};
}

std::int32_t asSigned(std::uint32_t value) { return static_cast<std::int32_t>(value); }

constexpr FrameTable<ImuFrame> kImuTable = {
    .operation = "unpackImuData",
    .header = "#timestamp gyro_x gyro_y gyro_z acc_x acc_y acc_z\n",
    .errorText = "write imu data error: %d!",
    .convert = &MsgConverter::fromImuMsgArray,
    .fillRow =
        [](const ImuFrame& frame, TableRow* row) {
          const ImuMsg& imu = *frame.imu;
          row->set(' ', timeOf(frame), imu.gyroX, imu.gyroY, imu.gyroZ, imu.accelX, imu.accelY,
                   imu.accelZ);
        },
};

constexpr FrameTable<MagneticFrame> kMagneticTable = {
    .operation = "unpackMagneticData",
    .header =
        "#timestamp mag_x mag_y mag_z calib_mag_x calib_mag_y calib_mag_z declination state\n",
    .errorText = "write magnetic data error: %d!",
    .headerErrorText = "write header error: %d!",
    .convert = &MsgConverter::fromMagneticMsgArray,
    .fillRow =
        [](const MagneticFrame& frame, TableRow* row) {
          row->set(' ', timeOf(frame), frame.magX, frame.magY, frame.magZ, frame.calibMagX,
                   frame.calibMagY, frame.calibMagZ, frame.declination, asSigned(frame.state));
        },
};

constexpr FrameTable<MotorFrame> kEncoderTable = {
    .operation = "unpackEncoderData",
    .header = "#timestamp qx qy qz qw\n",
    .errorText = "write encode data error: %d!",
    .convert = &MsgConverter::fromMotorMsgArray,
    .fillRow =
        [](const MotorFrame& frame, TableRow* row) {
          const MotorMsg& motor = *frame.motor;
          row->set(' ', timeOf(frame), motor.qx, motor.qy, motor.qz, motor.qw);
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
    .fillRow =
        [](const GnssFrame& frame, TableRow* row) {
          const GnssMsg& gnss = *frame.gnss;
          row->set(' ', timeOf(frame), asSigned(gnss.status), NineDecimals{gnss.latitude},
                   NineDecimals{gnss.longitude}, gnss.altitude - gnss.undulation,
                   asSigned(gnss.frame), gnss.undulation, gnss.pdop, gnss.hdop, gnss.vdop,
                   gnss.latSigma, gnss.lonSigma, gnss.hgtSigma, asSigned(gnss.satelliteNum));
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
  if (!osmik::openNewFile(path, kCorrectedImuBufferBytes, &file)) {
    log_.error("create file(%s) error!", path);
    return false;
  }
  const auto correctedRow = [&params](const ImuFrame& frame, TableRow* row) {
    ParamReader::correctImuData(params.imu, frame.imu);
    kImuTable.fillRow(frame, row);
  };
  const FrameTable<ImuFrame, decltype(correctedRow)> table = {
      .operation = "exportCorrectedImuData",
      .header = kImuTable.header,
      .errorText = kImuTable.errorText,
      .headerErrorText = kImuTable.errorText,
      .convert = kImuTable.convert,
      .fillRow = correctedRow,
  };
  return writeTable(kClassName, table, *bag_, imuView, &file, reportProgress());
}

}  // namespace morva
