#include "real/real_data.h"

#include <cstring>
#include <filesystem>
#include <sstream>
#include <stdexcept>

#include "support/temp_dir.h"

namespace morva::test {
namespace {

// Start of the common clock, inside the span of the vehicle recording.
constexpr std::int64_t kStart = 1533226490000000;
// First time of the lidar and its azimuth encoder, which count from an unknown hour.
constexpr std::int64_t kLidarStart = 2666163099;

constexpr std::size_t kCloudHeaderBytes = 24;
constexpr std::size_t kScanRecordBytes = 16;
constexpr std::size_t kPointRecordBytes = 20;

using Row = std::vector<std::string>;

std::vector<Row> readCsv(const std::string& path) {
  std::istringstream lines(readFile(path));
  std::vector<Row> rows;
  std::string line;
  std::getline(lines, line);  // column names
  while (std::getline(lines, line)) {
    std::istringstream cells(line);
    Row row;
    for (std::string cell; std::getline(cells, cell, ',');) row.push_back(cell);
    rows.push_back(row);
  }
  if (rows.empty()) throw std::runtime_error("no rows in " + path);
  return rows;
}

std::array<double, 6> sixValues(const Row& row) {
  std::array<double, 6> values{};
  for (std::size_t i = 0; i < values.size(); ++i) values[i] = std::stod(row.at(i + 1));
  return values;
}

template <typename T>
T field(const std::string& bytes, std::size_t offset) {
  T value;
  std::memcpy(&value, bytes.data() + offset, sizeof value);
  return value;
}

std::vector<RealData::Scan> readScans(const std::string& path) {
  const std::string bytes = readFile(path);
  const auto scanCount = field<std::uint32_t>(bytes, 12);
  const auto pointCount = field<std::uint32_t>(bytes, 16);
  const std::size_t points = kCloudHeaderBytes + scanCount * kScanRecordBytes;
  if (bytes.substr(0, 4) != "PTS1" || bytes.size() != points + pointCount * kPointRecordBytes) {
    throw std::runtime_error("malformed " + path);
  }
  std::vector<RealData::Scan> scans;
  for (std::size_t i = 0; i < scanCount; ++i) {
    const std::size_t record = kCloudHeaderBytes + i * kScanRecordBytes;
    RealData::Scan scan{field<std::int64_t>(bytes, record) - kLidarStart + kStart, {}};
    const auto first = field<std::uint32_t>(bytes, record + 8);
    const auto count = field<std::uint32_t>(bytes, record + 12);
    for (std::size_t k = first; k < first + count; ++k) {
      const std::size_t at = points + k * kPointRecordBytes;
      scan.points.push_back({field<float>(bytes, at), field<float>(bytes, at + 4),
                             field<float>(bytes, at + 8), field<std::int32_t>(bytes, at + 12),
                             field<std::uint16_t>(bytes, at + 16),
                             field<std::uint16_t>(bytes, at + 18)});
    }
    scans.push_back(std::move(scan));
  }
  return scans;
}

RealData::Camera readStream(const std::string& stem, std::uint32_t width, std::uint32_t height) {
  const std::string stream = readFile(stem + ".h264");
  RealData::Camera camera{width, height, {}};
  for (const Row& row : readCsv(stem + ".idx.csv")) {
    camera.pictures.push_back({std::stoll(row.at(1)) + kStart,
                               stream.substr(std::stoul(row.at(2)), std::stoul(row.at(3)))});
  }
  return camera;
}

std::map<std::string, std::string> readFolder(const std::string& folder,
                                              const std::string& suffix) {
  std::map<std::string, std::string> files;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    if (entry.path().extension() == suffix) {
      files[entry.path().filename().string()] = readFile(entry.path().string());
    }
  }
  return files;
}

}  // namespace

RealData readRealData(const std::string& folder) {
  RealData data;
  for (const Row& row : readCsv(folder + "/imu_mag/comma2k19_imu.csv")) {
    data.imu.push_back({std::stoll(row.at(0)), sixValues(row)});
  }
  for (const Row& row : readCsv(folder + "/imu_mag/comma2k19_mag.csv")) {
    data.magnetic.push_back({std::stoll(row.at(0)), sixValues(row)});
  }
  for (const Row& row : readCsv(folder + "/gnss/comma2k19_gnss.csv")) {
    data.gnss.push_back({std::stoll(row.at(0)), std::stoll(row.at(1)), std::stod(row.at(2)),
                         std::stod(row.at(3)), std::stod(row.at(4))});
  }
  for (const Row& row : readCsv(folder + "/motor/vlp16_azimuth.csv")) {
    data.motor.push_back({std::stoll(row.at(0)) - kLidarStart + kStart, std::stod(row.at(1))});
  }
  data.scans = readScans(folder + "/lidar/vlp16_13frames.pts");
  data.cameras["/camera_left/h264"] =
      readStream(folder + "/camera/road_960x540_allintra", 960, 540);
  data.cameras["/camera_right/h264"] =
      readStream(folder + "/camera/cars_768x432_allintra", 768, 432);
  data.cameras["/camera_center/jpeg"] = {
      960,
      540,
      {{kStart, readFile(folder + "/camera/road_solidWhiteRight.jpg")},
       {kStart + 1000000, readFile(folder + "/camera/road_whiteCarLaneSwitch.jpg")}}};
  data.logs["/raw_gnss_log"] = readFile(folder + "/gnss/m9n_61s.nmea");
  data.logs["/raw_ntrip_log"] = readFile(folder + "/gnss/msm7_257s.rtcm3");
  data.logs["/raw_ppk_log"] = readFile(folder + "/gnss/f9p_rawx_120s.ubx");
  data.configFiles = readFolder(folder + "/calib", ".yaml");
  data.projectFiles = {
      {"ouster_os1_128.json", readFile(folder + "/lidar/ouster_os1_128.json")},
      {"stereo_calib_0_left.jpg", readFile(folder + "/camera/stereo_calib_0_left.jpg")}};
  return data;
}

}  // namespace morva::test
