#include "export/pcd_writer.h"

#include <array>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <limits>
#include <locale>
#include <random>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/str_util.h"
#include "support/failing_file_calls.h"
#include "support/log_capture.h"
#include "support/pcd_file.h"
#include "support/temp_dir.h"

namespace morva {
namespace {

using test::FailingFileCalls;
using test::LogCapture;
using test::readFile;
using test::TempDir;
using testing::ElementsAre;
using testing::IsEmpty;

const std::string kHeaderOfTwo = test::pcdHeader(2);

PointIRT somePoint() {
  PointIRT point;
  point.x = 1.5F;
  point.y = -0.1F;
  point.z = 1e-7F;
  point.normal_x = 0.5F;
  point.intensity = 255.0F;
  point.timestamp = 1700000000.123456;
  point.ring = 65535;
  return point;
}

PointCloud cloudOf(std::size_t points) {
  PointCloud cloud;
  cloud.points.assign(points, somePoint());
  cloud.width = static_cast<std::uint32_t>(points);
  return cloud;
}

std::string rowOf(const PointIRT& point) {
  std::array<char, kPcdRowBytes> row;
  return {row.data(), putPcdRow(point, row.data())};
}

std::string printfRow(const PointIRT& p) {
  return osmik::StrUtil::format("%f %f %f %f %f %f %f %.6f %u\n", p.x, p.y, p.z, 0.0, 0.0, 0.0,
                                p.intensity, p.timestamp, p.ring);
}

}  // namespace

TEST(PcdHeader, IsThatOfAnUnorganisedCloud) { EXPECT_EQ(makePcdHeader(2), kHeaderOfTwo); }

TEST(PcdHeader, OfAnEmptyCloudHasHeightOne) {
  EXPECT_THAT(makePcdHeader(0), testing::HasSubstr("WIDTH 0\nHEIGHT 1\n"));
  EXPECT_THAT(makePcdHeader(0), testing::HasSubstr("POINTS 0\n"));
}

TEST(PcdRow, HasFixedDecimalsAndZeroNormals) {
  EXPECT_EQ(rowOf(somePoint()),
            "1.500000 -0.100000 0.000000 0.000000 0.000000 0.000000 255.000000 "
            "1700000000.123456 65535\n");
}

TEST(PcdRow, EqualsPrintfForFloatsOfEveryKind) {
  std::mt19937 random(23);
  PointIRT point = somePoint();
  for (int i = 0; i < 8000; ++i) {
    const auto bits = static_cast<std::uint32_t>(random());
    std::memcpy(&point.x, &bits, sizeof bits);  // every exponent, infinities and not-a-number
    point.y = static_cast<float>(static_cast<std::int32_t>(random())) * 1e-7F;
    // Ties: multiples of 2^-7 have a seventh decimal of 5 and nothing after it.
    point.z = static_cast<float>(static_cast<std::int32_t>(random() % 2000000) - 1000000) / 128.0F;
    point.timestamp = 1.7e9 + static_cast<double>(random()) * 1e-3;
    point.ring = static_cast<std::uint16_t>(random());
    ASSERT_EQ(rowOf(point), printfRow(point));
  }
}

TEST(PcdRow, EqualsPrintfForSpecialValues) {
  constexpr float kInfinity = std::numeric_limits<float>::infinity();
  constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
  for (const float value :
       {0.0F, -0.0F, -1e-9F, 4.9999997e-7F, 5e-7F, 1.5e-6F, 9e9F, 8.99e9F, -9.1e9F,
        std::numeric_limits<float>::max(), -std::numeric_limits<float>::max(),
        std::numeric_limits<float>::denorm_min(), kInfinity, -kInfinity, kNan, -kNan, 0.9999995F,
        999999.9F, 16777215.0F}) {
    PointIRT point = somePoint();
    point.x = point.intensity = value;
    point.timestamp = static_cast<double>(value) * 1e200;
    EXPECT_EQ(rowOf(point), printfRow(point));
  }
}

TEST(SavePcd, WritesHeaderAndRows) {
  LogCapture log;
  const TempDir dir;
  test::writeFile(dir / "a.pcd", std::string(10000, 'x'));
  EXPECT_TRUE(savePcd(Log("DataExporter", "unpackLidarData"), dir / "a.pcd", cloudOf(2)));
  const std::string row = rowOf(somePoint());
  EXPECT_EQ(readFile(dir / "a.pcd"), kHeaderOfTwo + row + row);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(SavePcd, ReplacesALinkAndLeavesItsTargetAlone) {
  const TempDir dir;
  test::writeFile(dir / "target", "kept");
  std::filesystem::create_symlink(dir / "target", dir / "a.pcd");
  EXPECT_TRUE(savePcd(Log("DataExporter"), dir / "a.pcd", cloudOf(1)));
  EXPECT_EQ(readFile(dir / "target"), "kept");
  EXPECT_EQ(readFile(dir / "a.pcd"), makePcdHeader(1) + rowOf(somePoint()));
}

TEST(SavePcd, WritesCloudsOfManyBlocks) {
  const TempDir dir;
  PointCloud cloud = cloudOf(30'000);  // 2.6 MB
  std::string expected = makePcdHeader(cloud.points.size());
  for (std::size_t i = 0; i < cloud.points.size(); ++i) {
    cloud.points[i].x = static_cast<float>(i);
    expected += rowOf(cloud.points[i]);
  }
  EXPECT_TRUE(savePcd(Log("DataExporter"), dir / "a.pcd", cloud));
  EXPECT_TRUE(readFile(dir / "a.pcd") == expected);
}

TEST(SavePcd, WritesEmptyCloudAsHeaderAlone) {
  const TempDir dir;
  EXPECT_TRUE(savePcd(Log("DataExporter"), dir / "a.pcd", PointCloud()));
  EXPECT_EQ(readFile(dir / "a.pcd"), makePcdHeader(0));
}

TEST(SavePcd, FileThatCannotBeCreatedIsAWarning) {
  LogCapture log;
  const TempDir dir;
  EXPECT_FALSE(savePcd(Log("DataExporter", "unpackLidarData"), dir / "no/a.pcd", cloudOf(1)));
  EXPECT_THAT(log.lines(), ElementsAre("<W>TIME [DataExporter::unpackLidarData,L0] create file(" +
                                       (dir / "no/a.pcd") + ") error!"));
}

TEST(SavePcd, CloudThatIsNotWrittenWholeIsRemoved) {
  // The cloud takes 1.7 MB, the buffer 1 MiB: the disk is full at the first, at a middle and at the
  // last write, which happens when the file is closed.
  for (const std::int64_t bytes : {0L, 100L, 1100000L, 1700000L}) {
    LogCapture log;
    const TempDir dir;
    FailingFileCalls calls;
    calls.fillDiskAfter(bytes);
    EXPECT_FALSE(savePcd(Log("DataExporter", "unpackLidarData"), dir / "a.pcd", cloudOf(20000)));
    EXPECT_FALSE(std::filesystem::exists(dir / "a.pcd")) << bytes;
    EXPECT_THAT(log.lines(),
                ElementsAre("<E>TIME [DataExporter::unpackLidarData,L0] save pcd error: " +
                            (dir / "a.pcd") + "(No space left on device)!"))
        << bytes;
  }
}

TEST(SavePcd, FailedCloseIsNoticed) {
  LogCapture log;
  const TempDir dir;
  FailingFileCalls calls;
  calls.fail(FailingFileCalls::Call::kClose, 1, 1, EIO);
  EXPECT_FALSE(savePcd(Log("DataExporter"), dir / "a.pcd", cloudOf(1)));
  EXPECT_FALSE(std::filesystem::exists(dir / "a.pcd"));
  EXPECT_EQ(log.errors().size(), 1U);
}

}  // namespace morva
