// bench_ros_imu_table BAG TABLE: the IMU table as a user of the ROS bag library would write it.

#include <cstdio>
#include <string>

#include <rosbag/bag.h>
#include <rosbag/view.h>

#include "bench/peers/file_parts.h"
#include "bench/peers/ros_messages.h"

int main(int count, char** arguments) {
  if (count != 3) peers::fail("usage: bench_ros_imu_table BAG TABLE");
  rosbag::Bag bag(arguments[1], rosbag::bagmode::Read);
  std::FILE* const table = std::fopen(arguments[2], "w");
  if (table == nullptr) peers::fail("cannot create the table");
  std::fputs("seq,collect_timestamp,accel_x,accel_y,accel_z,gyro_x,gyro_y,gyro_z\n", table);
  rosbag::View view(bag, rosbag::TopicQuery("/imu"));
  for (const rosbag::MessageInstance& message : view) {
    const auto imu = message.instantiate<peers::Imu>();
    if (imu == nullptr) peers::fail("no IMU message");
    std::fprintf(table, "%u,%lld,%f,%f,%f,%f,%f,%f\n", imu->seq,
                 static_cast<long long>(imu->timeUs), static_cast<double>(imu->accel[0]),
                 static_cast<double>(imu->accel[1]), static_cast<double>(imu->accel[2]),
                 static_cast<double>(imu->gyro[0]), static_cast<double>(imu->gyro[1]),
                 static_cast<double>(imu->gyro[2]));
  }
  return std::fclose(table) == 0 ? 0 : 1;
}
