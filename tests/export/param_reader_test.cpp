#include "export/param_reader.h"

#include <cmath>
#include <filesystem>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/log_capture.h"

namespace morva {
namespace {

using test::LogCapture;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

using TransformReader = bool (*)(const std::string&, SensorParameters::ExtrinsicParam*);

struct NamedReader {
  const char* operation;
  TransformReader read;
};

const std::vector<NamedReader> kExtrinsicReaders = {
    {"readImuMotorExtrinsicParam", &ParamReader::readImuMotorExtrinsicParam},
    {"readCamera0MotorExtrinsicParam", &ParamReader::readCamera0MotorExtrinsicParam},
    {"readImuLidarExtrinsicParam", &ParamReader::readImuLidarExtrinsicParam},
    {"readCamera0LidarExtrinsicParam", &ParamReader::readCamera0LidarExtrinsicParam}};

const std::string kTurnAboutZ = "transform: [0, -1, 0, 1,  1, 0, 0, 2,  0, 0, 1, 3,  0, 0, 0, 1]";

Eigen::Matrix4f turnAboutZ() {
  Eigen::Matrix4f transform;
  transform << 0, -1, 0, 1, 1, 0, 0, 2, 0, 0, 1, 3, 0, 0, 0, 1;
  return transform;
}

Eigen::Matrix4f translation(float x, float y, float z) {
  Eigen::Matrix4f transform = Eigen::Matrix4f::Identity();
  transform.topRightCorner<3, 1>() << x, y, z;
  return transform;
}

std::shared_ptr<ImuMsg> sample() {
  auto record = std::make_shared<ImuMsg>();
  record->time = 5.0;
  record->accelX = 1.0F;
  record->accelY = 2.0F;
  record->accelZ = 3.0F;
  record->gyroX = 0.1F;
  record->gyroY = 0.2F;
  record->gyroZ = 0.3F;
  return record;
}

std::vector<float> valuesOf(const ImuMsg& record) {
  return {record.accelX, record.accelY, record.accelZ, record.gyroX, record.gyroY, record.gyroZ};
}

const std::vector<std::string> kNoDocuments = {"transform: [", "{", "a: b: c", "a: *nobody",
                                               std::string(100000, '[')};

}  // namespace

TEST(ParamReaderImu, ReadsEveryKeyRowByRow) {
  LogCapture log;
  SensorParameters::ImuParam param;
  ASSERT_TRUE(
      ParamReader::readImuParam("Ta: [1, 2, 3, 4, 5, 6, 7, 8, 9]\n"
                                "Ka: [11, 12, 13, 14, 15, 16, 17, 18, 19]\n"
                                "Ba: [0.1, 0.2, 0.3]\n"
                                "Tg: [21, 22, 23, 24, 25, 26, 27, 28, 29]\n"
                                "Kg:\n- 31\n- 32\n- 33\n- 34\n- 35\n- 36\n- 37\n- 38\n- 39\n"
                                "Bg: [-0.1, -0.2, -0.3]\ncalibrated: true\n",
                                &param));
  EXPECT_THAT(log.lines(), IsEmpty());
  const Eigen::Matrix3f counted = (Eigen::Matrix3f() << 1, 2, 3, 4, 5, 6, 7, 8, 9).finished();
  EXPECT_EQ(param.Ta, counted);
  EXPECT_EQ(param.Ka, counted + Eigen::Matrix3f::Constant(10));
  EXPECT_EQ(param.Tg, counted + Eigen::Matrix3f::Constant(20));
  EXPECT_EQ(param.Kg, counted + Eigen::Matrix3f::Constant(30));
  EXPECT_EQ(param.Ba, Eigen::Vector3f(0.1F, 0.2F, 0.3F));
  EXPECT_EQ(param.Bg, Eigen::Vector3f(-0.1F, -0.2F, -0.3F));
  EXPECT_TRUE(param.calibrated);
}

TEST(ParamReaderImu, MissingListsAreIdentityAndZeroWhateverWasThere) {
  LogCapture log;
  SensorParameters::ImuParam param;
  param.Ta.setConstant(7.0F);
  param.Kg.setConstant(7.0F);
  param.Ba.setConstant(7.0F);
  ASSERT_TRUE(ParamReader::readImuParam("calibrated: true", &param));
  EXPECT_EQ(param.Ta, Eigen::Matrix3f::Identity());
  EXPECT_EQ(param.Kg, Eigen::Matrix3f::Identity());
  EXPECT_EQ(param.Ba, Eigen::Vector3f::Zero());

  const auto record = sample();
  ParamReader::correctImuData(param, record);
  EXPECT_EQ(valuesOf(*record), valuesOf(*sample()));
}

TEST(ParamReaderImu, MissingListsAreLoggedByTheLookUpAlone) {
  LogCapture log;
  SensorParameters::ImuParam param;
  ASSERT_TRUE(ParamReader::readImuParam("calibrated: true", &param));
  ASSERT_EQ(log.lines().size(), 6U);
  std::size_t line = 0;
  for (const char* key : {"Ta", "Ka", "Ba", "Tg", "Kg", "Bg"}) {
    EXPECT_THAT(log.lines()[line++],
                testing::StartsWith("<E>TIME [YamlConfig::get,L0] doc(imu) get key[" +
                                    std::string(key) + "] value error: "));
  }
}

TEST(ParamReaderImu, ListOfWrongLengthKeepsTheFieldWithWarning) {
  LogCapture log;
  SensorParameters::ImuParam param;
  param.Ta.setConstant(7.0F);
  ASSERT_TRUE(ParamReader::readImuParam(
      "Ta: [1, 2]\nKa: [1, 0, 0, 0, 1, 0, 0, 0, 1]\nBa: [1, 1, 1, 1]\nTg: []\n"
      "Kg: [1, 0, 0, 0, 1, 0, 0, 0, 1]\nBg: [1, 2, 3]\ncalibrated: false",
      &param));
  EXPECT_EQ(param.Ta, Eigen::Matrix3f::Constant(7.0F));
  EXPECT_EQ(param.Ba, Eigen::Vector3f::Zero());
  EXPECT_EQ(param.Tg, Eigen::Matrix3f::Identity());
  EXPECT_EQ(param.Bg, Eigen::Vector3f(1, 2, 3));
  const std::string warning =
      "<W>TIME [VectToEigenMatrix,L0] Read matrix failed because dim mismatch.";
  EXPECT_THAT(log.lines(), ElementsAre(warning, warning, warning));
}

TEST(ParamReaderImu, UnreadableCalibratedStaysAsItWas) {
  for (const bool before : {false, true}) {
    const LogCapture log;
    SensorParameters::ImuParam param;
    param.calibrated = before;
    ASSERT_TRUE(ParamReader::readImuParam("calibrated: perhaps", &param));
    EXPECT_EQ(param.calibrated, before);
  }
}

TEST(ParamReaderImu, NoDocumentLogsAndFails) {
  for (const std::string& text : kNoDocuments) {
    LogCapture log;
    SensorParameters::ImuParam param;
    EXPECT_FALSE(ParamReader::readImuParam(text, &param));
    ASSERT_EQ(log.lines().size(), 2U);
    EXPECT_EQ(log.lines()[1], "<E>TIME [ParamReader::readImuParam,L0] load config error!");
  }
}

TEST(ParamReaderLidar, ReadsEveryKey) {
  LogCapture log;
  SensorParameters::LidarParam param;
  ASSERT_TRUE(ParamReader::readLidarParam("s: [0.5, -2]\ne: 0.0174\ncalibrated: yes", &param));
  EXPECT_EQ(param.s, Eigen::Vector2f(0.5F, -2.0F));
  EXPECT_EQ(param.e, 0.0174F);
  EXPECT_TRUE(param.calibrated);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(ParamReaderLidar, MissingScaleEndsTheReading) {
  LogCapture log;
  SensorParameters::LidarParam param;
  EXPECT_FALSE(ParamReader::readLidarParam("e: 0.01\ncalibrated: true", &param));
  EXPECT_EQ(param.e, 0.0F);
  EXPECT_FALSE(param.calibrated);
  ASSERT_EQ(log.lines().size(), 2U);
  EXPECT_EQ(log.lines()[1], "<W>TIME [ParamReader::readLidarParam,L0] get s param error!");
}

TEST(ParamReaderLidar, ScaleOfWrongLengthIsAWarning) {
  LogCapture log;
  SensorParameters::LidarParam param;
  EXPECT_TRUE(ParamReader::readLidarParam("s: [1, 2, 3]\ne: 0.01\ncalibrated: true", &param));
  EXPECT_EQ(param.s, Eigen::Vector2f::Zero());
  EXPECT_EQ(param.e, 0.01F);
  EXPECT_TRUE(param.calibrated);
  EXPECT_EQ(log.lines().size(), 1U);
}

TEST(ParamReaderLidar, MissingElevationKeepsTheDefaultWithWarning) {
  for (const char* document :
       {"s: [1, 1]\ncalibrated: true", "s: [1, 1]\ne: a\ncalibrated: true"}) {
    LogCapture log;
    SensorParameters::LidarParam param;
    EXPECT_TRUE(ParamReader::readLidarParam(document, &param));
    EXPECT_EQ(param.e, 0.0F);
    EXPECT_TRUE(param.calibrated);
    ASSERT_EQ(log.lines().size(), 2U);
    EXPECT_EQ(log.lines()[1],
              "<W>TIME [ParamReader::readLidarParam,L0] get e param error, use default!");
  }
}

TEST(ParamReaderLidar, ElevationAboveOneDegreeIsKeptWithWarning) {
  LogCapture log;
  SensorParameters::LidarParam param;
  EXPECT_TRUE(ParamReader::readLidarParam("s: [1, 1]\ne: 0.0175\ncalibrated: true", &param));
  EXPECT_EQ(param.e, 0.0175F);
  EXPECT_THAT(log.lines(), ElementsAre("<W>TIME [ParamReader::readLidarParam,L0] elevation_offset "
                                       "invalid: larger than 1.0 deg!"));
  log.clear();
  EXPECT_TRUE(ParamReader::readLidarParam("s: [1, 1]\ne: 0.01745\ncalibrated: true", &param));
  EXPECT_TRUE(ParamReader::readLidarParam("s: [1, 1]\ne: -0.0175\ncalibrated: true", &param));
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(ParamReaderLidar, NoDocumentLogsAndFails) {
  LogCapture log;
  SensorParameters::LidarParam param;
  EXPECT_FALSE(ParamReader::readLidarParam("s: [", &param));
  EXPECT_THAT(log.lines(), Contains("<E>TIME [ParamReader::readLidarParam,L0] load config error!"));
}

TEST(ParamReaderTransform, ReadsSixteenNumbersRowByRow) {
  LogCapture log;
  SensorParameters::MotorParam motor;
  EXPECT_FALSE(motor.given);
  ASSERT_TRUE(ParamReader::readMotorParam(kTurnAboutZ, &motor));
  EXPECT_EQ(motor.transform, turnAboutZ());
  EXPECT_TRUE(motor.given);
  for (const NamedReader& reader : kExtrinsicReaders) {
    SensorParameters::ExtrinsicParam param;
    EXPECT_FALSE(param.given);
    ASSERT_TRUE(reader.read(kTurnAboutZ, &param)) << reader.operation;
    EXPECT_EQ(param.transform, turnAboutZ()) << reader.operation;
    EXPECT_TRUE(param.given) << reader.operation;
  }
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(ParamReaderTransform, MissingTransformIsAWarningOfItsReader) {
  for (const NamedReader& reader : kExtrinsicReaders) {
    for (const char* document : {"", "calibrated: true", "transform: 5", "transform: [a]"}) {
      LogCapture log;
      SensorParameters::ExtrinsicParam param;
      EXPECT_TRUE(reader.read(document, &param));
      EXPECT_FALSE(param.given);
      EXPECT_EQ(param.transform, Eigen::Matrix4f::Identity());
      ASSERT_EQ(log.lines().size(), 2U);
      EXPECT_EQ(log.lines()[1], "<W>TIME [ParamReader::" + std::string(reader.operation) +
                                    ",L0] get transform param error!");
    }
  }
  LogCapture log;
  SensorParameters::MotorParam motor;
  EXPECT_TRUE(ParamReader::readMotorParam("{}", &motor));
  EXPECT_THAT(log.lines(),
              Contains("<W>TIME [ParamReader::readMotorParam,L0] get transform param error!"));
}

TEST(ParamReaderTransform, FifteenNumbersKeepTheMatrixWithWarning) {
  LogCapture log;
  SensorParameters::MotorParam motor;
  motor.transform = turnAboutZ();
  ASSERT_TRUE(
      ParamReader::readMotorParam("transform: [1,2,3,4,5,6,7,8,9,10,11,12,13,14,15]", &motor));
  EXPECT_EQ(motor.transform, turnAboutZ());
  EXPECT_FALSE(motor.given);
  EXPECT_THAT(log.lines(), ElementsAre("<W>TIME [VectToEigenMatrix,L0] Read matrix failed because "
                                       "dim mismatch."));
}

TEST(ParamReaderTransform, MatrixThatIsNotRigidIsKeptWithWarning) {
  for (const char* scale : {"1.01", "-1", "0", ".nan", ".inf"}) {
    LogCapture log;
    SensorParameters::ExtrinsicParam param;
    ASSERT_TRUE(ParamReader::readImuMotorExtrinsicParam(
        "transform: [" + std::string(scale) + ", 0,0,0, 0,1,0,0, 0,0,1,0, 0,0,0,1]", &param));
    EXPECT_TRUE(param.given);
    EXPECT_NE(param.transform(0, 0), 1.0F);
    EXPECT_THAT(log.lines(), ElementsAre("<W>TIME [VectToEigenMatrix,L0] The matrix is not a rigid "
                                         "transform matrix."))
        << scale;
  }
}

TEST(ParamReaderTransform, DeterminantWithinAThousandthIsRigid) {
  LogCapture log;
  SensorParameters::ExtrinsicParam param;
  ASSERT_TRUE(ParamReader::readImuMotorExtrinsicParam(
      "transform: [1.0009,0,0,0, 0,1,0,0, 0,0,1,0, 0,0,0,1]", &param));
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(ParamReaderTransform, NoDocumentLogsAndFails) {
  for (const NamedReader& reader : kExtrinsicReaders) {
    LogCapture log;
    SensorParameters::ExtrinsicParam param;
    EXPECT_FALSE(reader.read("transform: [1, 2", &param));
    EXPECT_THAT(log.lines(), Contains("<E>TIME [ParamReader::" + std::string(reader.operation) +
                                      ",L0] load config error!"));
  }
}

TEST(VectToEigenMatrix, ChecksOnlyWhereAsked) {
  LogCapture log;
  Eigen::Matrix3f matrix = Eigen::Matrix3f::Identity();
  const std::vector<float> doubled{2, 0, 0, 0, 2, 0, 0, 0, 2};
  EXPECT_TRUE(VectToEigenMatrix(doubled, matrix, false));
  EXPECT_THAT(log.lines(), IsEmpty());
  EXPECT_TRUE(VectToEigenMatrix(doubled, matrix, true));
  EXPECT_EQ(matrix, 2 * Eigen::Matrix3f::Identity());
  EXPECT_EQ(log.lines().size(), 1U);
}

TEST(VectToEigenMatrix, FillsVectors) {
  Eigen::Vector2f two;
  Eigen::Vector3f three;
  EXPECT_TRUE(VectToEigenMatrix({1, 2}, two, true));
  EXPECT_TRUE(VectToEigenMatrix({1, 2, 3}, three, true));
  EXPECT_EQ(two, Eigen::Vector2f(1, 2));
  EXPECT_EQ(three, Eigen::Vector3f(1, 2, 3));
}

TEST(ParamReaderCorrectImu, AppliesScaleBeforeMisalignment) {
  SensorParameters::ImuParam param;
  param.calibrated = true;
  param.Ba << 0.5F, 0.0F, -1.0F;
  param.Ka << 2, 0, 0, 0, 1, 0, 0, 0, 1;
  param.Ta << 1, 0, 0, 10, 1, 0, 0, 0, 1;
  param.Bg << 0.0F, 0.1F, 0.0F;
  param.Kg << 1, 0, 0, 0, 3, 0, 0, 0, 1;
  param.Tg << 1, 0, 0, 0, 1, 0, 0, 10, 1;
  const auto record = sample();
  ParamReader::correctImuData(param, record);
  // By hand: a - Ba = (0.5, 2, 4); Ka makes it (1, 2, 4); Ta adds ten times x to y.
  EXPECT_FLOAT_EQ(record->accelX, 1.0F);
  EXPECT_FLOAT_EQ(record->accelY, 12.0F);
  EXPECT_FLOAT_EQ(record->accelZ, 4.0F);
  // g - Bg = (0.1, 0.1, 0.3); Kg makes it (0.1, 0.3, 0.3); Tg adds ten times y to z.
  EXPECT_FLOAT_EQ(record->gyroX, 0.1F);
  EXPECT_FLOAT_EQ(record->gyroY, 0.3F);
  EXPECT_FLOAT_EQ(record->gyroZ, 3.3F);
  EXPECT_EQ(record->time, 5.0);
}

TEST(ParamReaderCorrectImu, LeavesSamplesOfAnUncalibratedModelAlone) {
  SensorParameters::ImuParam param;
  param.Ka.setConstant(9.0F);
  param.Ba.setConstant(std::numeric_limits<float>::quiet_NaN());
  const auto record = sample();
  ParamReader::correctImuData(param, record);
  EXPECT_EQ(valuesOf(*record), valuesOf(*sample()));
  ParamReader::correctImuData(param, nullptr);
}

class ImuCamera0 : public testing::Test {
 protected:
  SensorParameters params;
  Eigen::Matrix4f out = Eigen::Matrix4f::Constant(5.0F);
  LogCapture log;

  void giveMotorPair() {
    // IMU to motor turns a quarter about z and adds (1, 2, 3); camera to motor adds (10, 20, 30).
    params.imuMotor = {turnAboutZ(), true};
    params.camera0Motor = {translation(10, 20, 30), true};
  }
  void giveLidarPair() {
    params.imuLidar = {translation(1, 1, 1), true};
    params.camera0Lidar = {turnAboutZ(), true};
  }
};

TEST_F(ImuCamera0, ComesFromTheMotorPairFirst) {
  giveMotorPair();
  giveLidarPair();
  ASSERT_TRUE(ParamReader::getImuCamera0ExtrinsicParam(params, out));
  // (x, y, z) of the IMU is (-y + 1, x + 2, z + 3) of the motor and (-y - 9, x - 18, z - 27) of the
  // camera.
  const Eigen::Vector4f camera = out * Eigen::Vector4f(1, 2, 3, 1);
  EXPECT_TRUE(camera.isApprox(Eigen::Vector4f(-11, -17, -24, 1), 1e-6F)) << camera;
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(ImuCamera0, ComesFromTheLidarPairWhereTheOtherIsNotWhole) {
  giveMotorPair();
  giveLidarPair();
  params.camera0Motor.given = false;
  ASSERT_TRUE(ParamReader::getImuCamera0ExtrinsicParam(params, out));
  // (1, 2, 3) of the IMU is (2, 3, 4) of the lidar; camera (a, b, c) is (-b + 1, a + 2, c + 3) of
  // it.
  const Eigen::Vector4f camera = out * Eigen::Vector4f(1, 2, 3, 1);
  EXPECT_TRUE(camera.isApprox(Eigen::Vector4f(1, -1, 1, 1), 1e-6F)) << camera;
}

TEST_F(ImuCamera0, IsRefusedWithoutAWholePair) {
  giveMotorPair();
  giveLidarPair();
  params.imuMotor.given = false;
  params.camera0Lidar.given = false;
  EXPECT_FALSE(ParamReader::getImuCamera0ExtrinsicParam(params, out));
  EXPECT_EQ(out, Eigen::Matrix4f::Constant(5.0F));
  EXPECT_EQ(log.lines().size(), 1U);
}

TEST_F(ImuCamera0, IsRefusedWithoutFiniteInverse) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const std::vector<Eigen::Matrix4f> unusable = {
      Eigen::Matrix4f::Zero(), Eigen::Matrix4f::Ones(), Eigen::Matrix4f::Constant(nan),
      Eigen::Matrix4f::Identity() * std::numeric_limits<float>::infinity(),
      // Two rows alike but for rounding in the last place.
      (Eigen::Matrix4f() << 0.1F, 0.2F, 0.3F, 0, 0.3F, 0.6F, 0.9F, 0, 0, 0, 1, 0, 0, 0, 0, 1)
          .finished()};
  for (const Eigen::Matrix4f& matrix : unusable) {
    for (const bool camera : {false, true}) {
      giveMotorPair();
      (camera ? params.camera0Motor : params.imuMotor).transform = matrix;
      EXPECT_FALSE(ParamReader::getImuCamera0ExtrinsicParam(params, out)) << matrix;
      EXPECT_EQ(out, Eigen::Matrix4f::Constant(5.0F));
    }
  }
}

TEST_F(ImuCamera0, ThatIsNotRigidIsGivenWithWarning) {
  giveMotorPair();
  params.imuMotor.transform(2, 2) = 1.5F;
  EXPECT_TRUE(ParamReader::getImuCamera0ExtrinsicParam(params, out));
  EXPECT_EQ(out(2, 2), 1.5F);
  EXPECT_THAT(log.lines(), ElementsAre("<W>TIME [ParamReader::getImuCamera0ExtrinsicParam,L0] The "
                                       "extrinsic matrix is not a rigid transform matrix."));
}

TEST_F(ImuCamera0, KeepsTheAccuracyOfItsInputs) {
  // Lever arms of a kilometre: an inverse in single precision would be off by a tenth of a
  // millimetre.
  params.imuMotor = {turnAboutZ(), true};
  params.camera0Motor = {turnAboutZ(), true};
  params.imuMotor.transform(0, 3) = params.camera0Motor.transform(0, 3) = 1000.125F;
  ASSERT_TRUE(ParamReader::getImuCamera0ExtrinsicParam(params, out));
  EXPECT_TRUE(out.isApprox(Eigen::Matrix4f::Identity(), 1e-7F)) << out;
}

}  // namespace morva
