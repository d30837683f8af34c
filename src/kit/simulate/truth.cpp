#include "kit/simulate/truth.h"

#include <string>
#include <string_view>

#include <Eigen/Geometry>
#include <nlohmann/json.hpp>

#include "kit/simulate/gnss_receiver.h"
#include "kit/simulate/time_base.h"
#include "platform/log.h"

namespace morva::sim {

namespace {

using nlohmann::ordered_json;

// A list, row by row.
template <typename Matrix>
ordered_json listOf(const Matrix& matrix) {
  ordered_json list = ordered_json::array();
  for (Eigen::Index row = 0; row < matrix.rows(); ++row) {
    for (Eigen::Index column = 0; column < matrix.cols(); ++column) {
      list.push_back(static_cast<double>(matrix(row, column)));
    }
  }
  return list;
}

ordered_json optionsJson(const Options& options) {
  return {{"seconds", options.seconds},       {"seed", options.seed},
          {"points", options.pointsPerFrame}, {"cameras", options.cameras},
          {"noise_m", options.rangeNoiseM},   {"elevation_rad", options.elevationErrorRad},
          {"still", options.still},           {"calibrated", options.calibrated}};
}

ordered_json worldJson(const World& world) {
  ordered_json planes = ordered_json::array();
  for (std::size_t i = 0; i < world.planeCount(); ++i) {
    const Surface& plane = world.surfaces()[i];
    planes.push_back(
        {{"name", plane.name}, {"normal", listOf(plane.normal)}, {"offset", plane.offset}});
  }
  ordered_json boxes = ordered_json::array();
  for (const Box& box : world.boxes()) {
    boxes.push_back({{"name", box.name},
                     {"center", listOf(box.center)},
                     {"half_size", listOf(box.halfSize)},
                     {"world_from_box", listOf(box.worldFromBox)}});
  }
  return {{"note", "metres; x east, y north, z up; the room lies where normal . p >= offset"},
          {"planes", planes},
          {"boxes", boxes}};
}

ordered_json inertialJson(const InertialModel& model) {
  return {{"T", listOf(model.misalignment)}, {"K", listOf(model.scale)}, {"B", listOf(model.bias)}};
}

ordered_json calibrationJson(const Calibration& calibration) {
  ordered_json cameras = ordered_json::array();
  for (const Camera& camera : calibration.cameras) {
    cameras.push_back({{"topic", camera.topic()},
                       {"width", camera.width},
                       {"height", camera.height},
                       {"focal_pixels", camera.focalPixels},
                       {"imu_from_camera", listOf(camera.imuFromCamera.matrix())}});
  }
  return {{"note", "lists are row by row; true = T * K * (measured - B)"},
          {"calibrated", calibration.calibrated},
          {"accelerometer", inertialJson(calibration.accelerometer)},
          {"gyroscope", inertialJson(calibration.gyroscope)},
          {"motor_from_lidar", listOf(calibration.motorFromLidar.matrix())},
          {"imu_from_motor", listOf(calibration.imuFromMotor.matrix())},
          {"imu_from_camera0", listOf(calibration.imuFromCamera0.matrix())},
          {"elevation_offset_rad", calibration.elevationOffsetRad},
          {"antenna_in_imu", listOf(calibration.antennaInImu)},
          {"cameras", cameras}};
}

ordered_json originJson(const GeoOrigin& origin) {
  return {{"latitude_deg", origin.latitudeDeg},
          {"longitude_deg", origin.longitudeDeg},
          {"altitude_m", origin.altitudeM},
          {"undulation_m", origin.undulationM}};
}

ordered_json topicsJson(const std::vector<TopicSummary>& topics) {
  ordered_json all = ordered_json::object();
  for (const TopicSummary& topic : topics) {
    all[topic.topic] = {
        {"messages", topic.messages}, {"samples", topic.samples}, {"bytes", topic.bytes}};
  }
  return all;
}

ordered_json pathRow(const Scene& scene, std::int64_t timeUs) {
  const Motion motion = scene.path.motionAt(sinceStartS(timeUs));
  const Eigen::Quaterniond q(motion.worldFromImu.linear());
  ordered_json row = {timeUs};
  const auto append = [&row](const Eigen::Vector3d& v) {
    row.insert(row.end(), {v.x(), v.y(), v.z()});
  };
  append(motion.worldFromImu.translation());
  row.insert(row.end(), {q.x(), q.y(), q.z(), q.w()});
  append(motion.velocity);
  append(motion.specificForce);
  append(motion.angularRate);
  row.push_back(scene.motor.angleAt(sinceStartS(timeUs)));
  return row;
}

const ordered_json& pathColumns() {
  static const ordered_json kColumns = {"time_us", "x",  "y",  "z",  "qx", "qy",
                                        "qz",      "qw", "vx", "vy", "vz", "ax",
                                        "ay",      "az", "gx", "gy", "gz", "motor_angle_rad"};
  return kColumns;
}

// A file that text goes to piece by piece, until the first piece that it does not take.
class TextOutput {
 public:
  explicit TextOutput(osmik::File* file) : file_(file) {}

  void write(std::string_view text) {
    ok_ = ok_ && file_->write(text) == static_cast<std::int64_t>(text.size());
  }
  [[nodiscard]] bool finish() { return ok_ && file_->flush(); }
  [[nodiscard]] bool ok() const { return ok_; }

 private:
  osmik::File* file_;
  bool ok_ = true;
};

void writePath(const Scene& scene, TextOutput* output) {
  output->write(
      "  \"path\": {\n    \"note\": \"pose of the IMU in the world; a: specific force and g: "
      "angular rate, IMU frame, SI units\",\n    \"columns\": ");
  output->write(pathColumns().dump());
  output->write(",\n    \"rows\": [");
  const std::int64_t endUs = kStartUs + durationUs(scene.options.seconds);
  const char* separator = "\n      ";
  for (std::int64_t timeUs = kStartUs; timeUs <= endUs && output->ok(); timeUs += kImuPeriodUs) {
    output->write(separator + pathRow(scene, timeUs).dump());
    separator = ",\n      ";
  }
  output->write("\n    ]\n  }\n");
}

}  // namespace

bool writeTruth(const Scene& scene, const std::vector<TopicSummary>& topics, osmik::File* file) {
  const ordered_json head = {
      {"format", "kbag simulation truth"},
      {"version", 1},
      {"start_us", kStartUs},
      {"duration_us", durationUs(scene.options.seconds)},
      {"options", optionsJson(scene.options)},
      {"world", worldJson(scene.world)},
      {"calibration", calibrationJson(scene.calibration)},
      {"geographic_origin", originJson(GnssReceiver(scene).origin())},
      {"topics", topicsJson(topics)},
  };
  TextOutput output(file);
  output.write("{\n");
  for (const auto& [key, value] : head.items()) {
    output.write("  " + ordered_json(key).dump() + ": " + value.dump() + ",\n");
  }
  writePath(scene, &output);
  output.write("}\n");
  if (output.finish()) return true;
  Log().error("write truth file(%s) error!", file->path());
  return false;
}

}  // namespace morva::sim
