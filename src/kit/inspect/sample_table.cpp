#include "kit/inspect/sample_table.h"

#include <cstddef>
#include <optional>
#include <vector>

#include "messages/msg_converter.h"
#include "platform/date_time.h"

namespace morva::inspect {
namespace {

/// A field and where it stands in a sample.
template <typename Sample>
struct Column {
  Field field;
  Value (*get)(const Sample& sample);
};

template <typename Integer>
Value whole(Integer value) {
  if constexpr (std::is_signed_v<Integer>) {
    return static_cast<std::int64_t>(value);
  } else {
    return static_cast<std::uint64_t>(value);
  }
}

Value sizeOf(const std::string& bytes) { return whole(bytes.size()); }

// ------------------------------------------------------------------------ fields, kind by kind

constexpr Column<ImuFrame> kImu[] = {
    {{"accel_x_m_s2", "m/s^2"}, [](const ImuFrame& s) -> Value { return s.imu->accelX; }},
    {{"accel_y_m_s2", "m/s^2"}, [](const ImuFrame& s) -> Value { return s.imu->accelY; }},
    {{"accel_z_m_s2", "m/s^2"}, [](const ImuFrame& s) -> Value { return s.imu->accelZ; }},
    {{"gyro_x_rad_s", "rad/s"}, [](const ImuFrame& s) -> Value { return s.imu->gyroX; }},
    {{"gyro_y_rad_s", "rad/s"}, [](const ImuFrame& s) -> Value { return s.imu->gyroY; }},
    {{"gyro_z_rad_s", "rad/s"}, [](const ImuFrame& s) -> Value { return s.imu->gyroZ; }},
};

constexpr Column<MagneticFrame> kMagnetic[] = {
    {{"mag_x_ut", "uT"}, [](const MagneticFrame& s) -> Value { return s.magX; }},
    {{"mag_y_ut", "uT"}, [](const MagneticFrame& s) -> Value { return s.magY; }},
    {{"mag_z_ut", "uT"}, [](const MagneticFrame& s) -> Value { return s.magZ; }},
    {{"calib_mag_x_ut", "uT"}, [](const MagneticFrame& s) -> Value { return s.calibMagX; }},
    {{"calib_mag_y_ut", "uT"}, [](const MagneticFrame& s) -> Value { return s.calibMagY; }},
    {{"calib_mag_z_ut", "uT"}, [](const MagneticFrame& s) -> Value { return s.calibMagZ; }},
    {{"declination", ""}, [](const MagneticFrame& s) -> Value { return s.declination; }},
    {{"state", ""}, [](const MagneticFrame& s) { return whole(s.state); }},
};

constexpr Column<MotorFrame> kMotor[] = {
    {{"angle_rad", "rad"}, [](const MotorFrame& s) -> Value { return s.angle; }},
    {{"qx", ""}, [](const MotorFrame& s) -> Value { return s.motor->qx; }},
    {{"qy", ""}, [](const MotorFrame& s) -> Value { return s.motor->qy; }},
    {{"qz", ""}, [](const MotorFrame& s) -> Value { return s.motor->qz; }},
    {{"qw", ""}, [](const MotorFrame& s) -> Value { return s.motor->qw; }},
};

constexpr Column<GnssFrame> kGnss[] = {
    {{"utc_time", ""}, [](const GnssFrame& s) { return whole(s.utcTime); }},
    {{"status", ""},
     [](const GnssFrame& s) { return whole(static_cast<std::int32_t>(s.rawStatus)); }},
    {{"service", ""}, [](const GnssFrame& s) { return whole(s.service); }},
    {{"satellites", ""}, [](const GnssFrame& s) { return whole(s.gnss->satelliteNum); }},
    {{"latitude_deg", "deg"}, [](const GnssFrame& s) -> Value { return s.gnss->latitude; }},
    {{"longitude_deg", "deg"}, [](const GnssFrame& s) -> Value { return s.gnss->longitude; }},
    {{"altitude_m", "m"},
     [](const GnssFrame& s) -> Value { return s.gnss->altitude - s.gnss->undulation; }},
    {{"undulation_m", "m"}, [](const GnssFrame& s) -> Value { return s.gnss->undulation; }},
    {{"pdop", ""}, [](const GnssFrame& s) -> Value { return s.gnss->pdop; }},
    {{"hdop", ""}, [](const GnssFrame& s) -> Value { return s.gnss->hdop; }},
    {{"vdop", ""}, [](const GnssFrame& s) -> Value { return s.gnss->vdop; }},
    {{"lat_sigma_m", "m"}, [](const GnssFrame& s) -> Value { return s.gnss->latSigma; }},
    {{"lon_sigma_m", "m"}, [](const GnssFrame& s) -> Value { return s.gnss->lonSigma; }},
    {{"hgt_sigma_m", "m"}, [](const GnssFrame& s) -> Value { return s.gnss->hgtSigma; }},
    {{"frame", ""}, [](const GnssFrame& s) { return whole(s.gnss->frame); }},
};

constexpr Column<PointCloudFrame> kLidar[] = {
    {{"points", ""}, [](const PointCloudFrame& s) { return whole(s.cloud->cloud->points.size()); }},
};

constexpr Column<PointIRT> kPoint[] = {
    {{"x_m", "m"}, [](const PointIRT& p) -> Value { return p.x; }},
    {{"y_m", "m"}, [](const PointIRT& p) -> Value { return p.y; }},
    {{"z_m", "m"}, [](const PointIRT& p) -> Value { return p.z; }},
    {{"intensity", ""},
     [](const PointIRT& p) { return whole(static_cast<std::uint64_t>(p.intensity)); }},
    {{"ring", ""}, [](const PointIRT& p) { return whole(p.ring); }},
};

constexpr Column<ImageFrame> kPicture[] = {
    {{"width_px", "px"}, [](const ImageFrame& s) { return whole(s.width); }},
    {{"height_px", "px"}, [](const ImageFrame& s) { return whole(s.height); }},
    {{"image_type", ""}, [](const ImageFrame& s) { return whole(s.imageType); }},
    {{"size_bytes", "bytes"}, [](const ImageFrame& s) { return sizeOf(s.data); }},
    {{"data_base64", ""}, [](const ImageFrame& s) -> Value { return Bytes{s.data}; }},
};

constexpr Column<FileFrame> kFile[] = {
    {{"name", ""}, [](const FileFrame& s) -> Value { return std::string_view(s.name); }},
    {{"size_bytes", "bytes"}, [](const FileFrame& s) { return sizeOf(s.content); }},
    {{"data_base64", ""}, [](const FileFrame& s) -> Value { return Bytes{s.content}; }},
};

constexpr Column<RawDataFrame> kLog[] = {
    {{"size_bytes", "bytes"}, [](const RawDataFrame& s) { return sizeOf(s.data); }},
    {{"data_base64", ""}, [](const RawDataFrame& s) -> Value { return Bytes{s.data}; }},
};

constexpr Column<std::string> kUnknown[] = {
    {{"size_bytes", "bytes"}, [](const std::string& payload) { return sizeOf(payload); }},
    {{"data_base64", ""}, [](const std::string& payload) -> Value { return Bytes{payload}; }},
};

// -------------------------------------------------------------------------------------- tables

/// Rows of samples of one type.
template <typename Sample>
class ColumnTable : public SampleTable {
 public:
  /// @param leaveOut  Columns at the end that are not shown.
  ColumnTable(std::string_view name, std::span<const Column<Sample>> columns, std::size_t leaveOut)
      : name_(name), columns_(columns.first(columns.size() - leaveOut)) {
    for (const Column<Sample>& column : columns_) fields_.push_back(column.field);
  }

  [[nodiscard]] std::string_view name() const override { return name_; }
  [[nodiscard]] std::span<const Field> fields() const override { return fields_; }

 protected:
  [[nodiscard]] bool give(const Sample& sample, std::optional<std::uint32_t> seq,
                          std::optional<std::int64_t> timeUs, const OnRow& onRow,
                          std::vector<Value>* values) const {
    values->clear();
    for (const Column<Sample>& column : columns_) values->push_back(column.get(sample));
    return onRow({seq, timeUs, *values});
  }

 private:
  std::string_view name_;
  std::span<const Column<Sample>> columns_;
  std::vector<Field> fields_;
};

template <typename Frame>
using Convert = MsgConverter::Frames<Frame> (*)(const std::string& payload);

template <typename Frame>
std::int64_t timeOf(const Frame& frame) {
  return static_cast<std::int64_t>(frame.collectTimestamp);
}

/// One row a frame.
template <typename Frame>
class FrameTable final : public ColumnTable<Frame> {
 public:
  FrameTable(std::string_view name, std::span<const Column<Frame>> columns, Convert<Frame> convert,
             std::size_t leaveOut = 0)
      : ColumnTable<Frame>(name, columns, leaveOut), convert_(convert) {}

  [[nodiscard]] SampleTable::Result decode(const std::string& payload,
                                           const SampleTable::OnRow& onRow) const override {
    const auto frames = convert_(payload);
    if (frames.empty()) return SampleTable::Result::kUndecodable;
    std::vector<Value> values;
    for (const auto& frame : frames) {
      if (!this->give(*frame, frame->seq, timeOf(*frame), onRow, &values)) {
        return SampleTable::Result::kStopped;
      }
    }
    return SampleTable::Result::kDone;
  }

 private:
  Convert<Frame> convert_;
};

/// One row a lidar point; its sequence number is its scan's.
class PointTable final : public ColumnTable<PointIRT> {
 public:
  PointTable() : ColumnTable("point", kPoint, 0) {}

  [[nodiscard]] Result decode(const std::string& payload, const OnRow& onRow) const override {
    const auto frames = MsgConverter::fromPointCloudMsgArray(payload);
    if (frames.empty()) return Result::kUndecodable;
    std::vector<Value> values;
    for (const auto& frame : frames) {
      for (const PointIRT& point : frame->cloud->cloud->points) {
        const std::int64_t timeUs = osmik::Time(point.timestamp).toMicroSec();
        if (!give(point, frame->seq, timeUs, onRow, &values)) return Result::kStopped;
      }
    }
    return Result::kDone;
  }
};

/// One row a message.
class PayloadTable final : public ColumnTable<std::string> {
 public:
  PayloadTable() : ColumnTable("unknown", kUnknown, 0) {}

  [[nodiscard]] Result decode(const std::string& payload, const OnRow& onRow) const override {
    std::vector<Value> values;
    return give(payload, {}, {}, onRow, &values) ? Result::kDone : Result::kStopped;
  }
};

}  // namespace

std::unique_ptr<SampleTable> makeSampleTable(MessageKind kind, const Detail& detail) {
  const std::size_t leaveOut = detail.data ? 0 : 1;  // the bytes stand last
  const std::string_view name = wordFor(kind);
  switch (kind) {
    case MessageKind::kImu:
      return std::make_unique<FrameTable<ImuFrame>>(name, kImu, MsgConverter::fromImuMsgArray);
    case MessageKind::kMagnetic:
      return std::make_unique<FrameTable<MagneticFrame>>(name, kMagnetic,
                                                         MsgConverter::fromMagneticMsgArray);
    case MessageKind::kMotor:
      return std::make_unique<FrameTable<MotorFrame>>(name, kMotor,
                                                      MsgConverter::fromMotorMsgArray);
    case MessageKind::kGnss:
      return std::make_unique<FrameTable<GnssFrame>>(name, kGnss, MsgConverter::fromGnssMsgArray);
    case MessageKind::kLidar:
      if (detail.points) return std::make_unique<PointTable>();
      return std::make_unique<FrameTable<PointCloudFrame>>(name, kLidar,
                                                           MsgConverter::fromPointCloudMsgArray);
    case MessageKind::kPicture:
      return std::make_unique<FrameTable<ImageFrame>>(name, kPicture,
                                                      MsgConverter::fromImageMsgArray, leaveOut);
    case MessageKind::kFile:
      return std::make_unique<FrameTable<FileFrame>>(name, kFile, MsgConverter::fromFileMsgArray,
                                                     leaveOut);
    case MessageKind::kLog:
      return std::make_unique<FrameTable<RawDataFrame>>(name, kLog,
                                                        MsgConverter::fromRawDataMsgArray);
    case MessageKind::kUnknown:
      break;
  }
  return std::make_unique<PayloadTable>();
}

std::string_view wordFor(MessageKind kind) {
  switch (kind) {
    case MessageKind::kImu:
      return "imu";
    case MessageKind::kMagnetic:
      return "magnetic";
    case MessageKind::kMotor:
      return "motor";
    case MessageKind::kGnss:
      return "gnss";
    case MessageKind::kLidar:
      return "lidar";
    case MessageKind::kPicture:
      return "picture";
    case MessageKind::kFile:
      return "file";
    case MessageKind::kLog:
      return "log";
    case MessageKind::kUnknown:
      break;
  }
  return "unknown";
}

}  // namespace morva::inspect
