// The pictures that the data exporter unpacks, decoded by the real module.

#include <array>
#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kbag_msgs.pb.h>

#include "export/data_exporter.h"
#include "export/export_fixture.h"
#include "export/picture_module.h"
#include "kit/simulate/picture_encoder.h"
#include "support/failing_file_calls.h"
#include "support/real_data_dir.h"

namespace morva {
namespace {

namespace fs = std::filesystem;
namespace pb = protix::kbag_msgs;
using test::FailingFileCalls;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr char kTopic[] = "/camera_left/h264";
const std::string kPrefix = "<E>TIME [DataExporter::unpackCameraImage,L0] ";

/// A grey picture; JPEG files of different greys differ.
std::string h264Picture(int width, int height, std::uint8_t grey) {
  const auto encoder = sim::makeH264Encoder(width, height);
  sim::Picture picture(width, height);
  picture.y.assign(picture.y.size(), grey);
  picture.u.assign(picture.u.size(), 128);
  picture.v.assign(picture.v.size(), 128);
  std::string payload;
  EXPECT_TRUE(encoder != nullptr && encoder->encode(picture, &payload));
  return payload;
}

struct Size {
  unsigned width = 0;
  unsigned height = 0;
  bool operator==(const Size&) const = default;
};

/// What the frame header of a baseline JPEG says.
Size sizeOf(const std::string& jpeg) {
  const std::size_t frame = jpeg.find("\xFF\xC0");
  if (frame == std::string::npos || jpeg.size() < frame + 9) return {};
  const auto byte = [&](std::size_t at) {
    return static_cast<unsigned>(static_cast<unsigned char>(jpeg[at]));
  };
  return {byte(frame + 7) << 8 | byte(frame + 8), byte(frame + 5) << 8 | byte(frame + 6)};
}

/// Stands in for the module.
class FakeDecoder final : public PictureDecoder {
 public:
  FakeDecoder() { PictureModule::replace(this); }
  ~FakeDecoder() override { PictureModule::replace(nullptr); }

  bool decodePayload(std::string_view payload, std::string* jpeg) override {
    ++payloadCalls;
    if (throws == 1) throw std::runtime_error("out of luck");
    if (throws == 2) throw 5;
    if (payload != decodable) return false;
    *jpeg = "picture in memory";
    return true;
  }

  PictureResult decode(const std::string& path, std::string* jpeg) override {
    ++calls;
    path_ = path;
    seen = test::readFile(path);
    if (throws == 1) throw std::runtime_error("out of luck");
    if (throws == 2) throw 5;
    *jpeg = "picture";
    return result;
  }

  PictureResult result;
  int throws = 0;
  int calls = 0;
  int payloadCalls = 0;
  std::string decodable;  ///< the payload that decodePayload() takes; none while it is empty
  std::string path_;
  std::string seen;
};

const std::string kStartsRight("\0\0\0\1payload", 11);

}  // namespace

class DataExporterImages : public test::ExportTest {
 protected:
  DataExporterImages() {
    makeDirectory("images/camera_0");
    makeDirectory("images/camera_1");
  }

  void add(std::int64_t timestampUs, const std::string& payload,
           const std::string& topic = kTopic) {
    pb::ImageMsgArray array;
    pb::ImageMsg* const picture = array.add_msgs();
    picture->mutable_header()->set_timestamp(timestampUs);
    picture->set_data(payload);
    recording_.add(topic, array);
  }

  bool unpack(const std::string& topic = kTopic) {
    const MorvaBag::View messages = view(topic);
    log_.clear();
    return DataExporter(&bag(), out_, {}).exportData(topic, messages);
  }
  [[nodiscard]] Size sizeOfOutput(const std::string& name) const { return sizeOf(output(name)); }
};

TEST_F(DataExporterImages, EveryPayloadBecomesAPicture) {
  add(1'700'000'000'000'001, h264Picture(64, 48, 40));
  add(1'700'000'000'100'000, h264Picture(64, 48, 200));
  EXPECT_TRUE(unpack());
  EXPECT_THAT(outputs(),
              ElementsAre("images/camera_0/.gitkeep", "images/camera_0/1700000000.000001.jpg",
                          "images/camera_0/1700000000.100000.jpg"));
  EXPECT_EQ(sizeOfOutput("images/camera_0/1700000000.000001.jpg"), (Size{64, 48}));
  EXPECT_NE(output("images/camera_0/1700000000.000001.jpg"),
            output("images/camera_0/1700000000.100000.jpg"));
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(DataExporterImages, PicturesHaveTheQuantisationOfQuality95) {
  // The luminance table of the JPEG standard (its annex K) in zigzag order, scaled as every encoder
  // does: (200 - 2 * 95) percent.
  constexpr std::array kStandard = {16,  11, 12, 14,  12,  10,  16,  14,  13, 14,  18,  17,  16,
                                    19,  24, 40, 26,  24,  22,  22,  24,  49, 35,  37,  29,  40,
                                    58,  51, 61, 60,  57,  51,  56,  55,  64, 72,  92,  78,  64,
                                    68,  87, 69, 55,  56,  80,  109, 81,  87, 95,  98,  103, 104,
                                    103, 62, 77, 113, 121, 112, 100, 120, 92, 101, 103, 99};
  std::string table;
  for (const int value : kStandard) table += static_cast<char>((value * 10 + 50) / 100);
  add(1'000'000, h264Picture(64, 48, 100));
  EXPECT_TRUE(unpack());
  const std::string jpeg = output("images/camera_0/1.000000.jpg");
  const std::size_t segment = jpeg.find("\xFF\xDB");
  ASSERT_NE(segment, std::string::npos);
  EXPECT_EQ(jpeg.substr(segment + 5, table.size()), table);
}

TEST_F(DataExporterImages, CamerasLandInTheirDirectories) {
  const std::string payload = h264Picture(64, 48, 100);
  for (const char* const topic : {"/camera_left/h264", "/camera_right/h264",
                                  "/camera_left_main/h264", "/camera_right_main/h264"}) {
    add(1'000'000 * static_cast<std::int64_t>(std::string(topic).size()), payload, topic);
    EXPECT_EQ(DataExporter::dataFile(topic),
              std::string("images/camera_") + (std::string(topic).find("left") < 20 ? "0" : "1") +
                  "/.gitkeep");
  }
  for (const char* const topic : {"/camera_left/h264", "/camera_right/h264",
                                  "/camera_left_main/h264", "/camera_right_main/h264"}) {
    EXPECT_TRUE(unpack(topic));
  }
  EXPECT_THAT(outputs(),
              ElementsAre("images/camera_0/.gitkeep", "images/camera_0/17.000000.jpg",
                          "images/camera_0/22.000000.jpg", "images/camera_1/.gitkeep",
                          "images/camera_1/18.000000.jpg", "images/camera_1/23.000000.jpg"));
}

TEST_F(DataExporterImages, PicturesOfChangingSizeAreDecodedEachByItself) {
  add(1'000'000, h264Picture(64, 48, 100));
  add(2'000'000, h264Picture(160, 96, 100));
  add(3'000'000, h264Picture(32, 32, 100));
  EXPECT_TRUE(unpack());
  EXPECT_EQ(sizeOfOutput("images/camera_0/1.000000.jpg"), (Size{64, 48}));
  EXPECT_EQ(sizeOfOutput("images/camera_0/2.000000.jpg"), (Size{160, 96}));
  EXPECT_EQ(sizeOfOutput("images/camera_0/3.000000.jpg"), (Size{32, 32}));
}

TEST_F(DataExporterImages, LaterOfTwoPicturesOfOneTimeRemains) {
  add(1'000'000, h264Picture(64, 48, 100));
  add(1'000'000, h264Picture(96, 64, 100));
  add(1'000'000, h264Picture(32, 32, 100), "/camera_left_main/h264");
  EXPECT_TRUE(unpack());
  EXPECT_EQ(sizeOfOutput("images/camera_0/1.000000.jpg"), (Size{96, 64}));
  EXPECT_TRUE(unpack("/camera_left_main/h264"));
  EXPECT_EQ(sizeOfOutput("images/camera_0/1.000000.jpg"), (Size{32, 32}));
}

TEST_F(DataExporterImages, PayloadThatIsNoVideoEndsTheTopic) {
  int number = 0;
  for (const std::string& payload :
       {std::string("not a video at all"), std::string(), std::string("\0\0\0\0", 4),
        std::string("#EXTM3U\n#EXTINF:1,\nfile:///etc/passwd\n"),
        std::string("ffconcat version 1.0\nfile /etc/passwd\n"),
        std::string("\xFF\xD8\xFF\xE0jpeg")}) {
    test::RecordingBuilder empty;
    std::swap(recording_, empty);
    add(1'000'000, payload);
    add(2'000'000, h264Picture(64, 48, 100));
    const std::string path = recording_.write(dir_ / (std::to_string(++number) + ".kbag"));
    MorvaBag one;
    ASSERT_EQ(one.open(path, MorvaBag::BagMode::kRead), 0);
    log_.clear();
    EXPECT_FALSE(DataExporter(&one, out_, {}).exportData(kTopic, one.getView(kTopic, 0, -1)));
    EXPECT_THAT(log_.lines(), ElementsAre(kPrefix + "VideoCapture open error!",
                                          kPrefix + "unpack images error!"));
    EXPECT_THAT(outputs(), ElementsAre("images/camera_0/.gitkeep"));
  }
}

TEST_F(DataExporterImages, DamagedVideoEndsTheTopicWithoutTraces) {
  const std::string whole = h264Picture(64, 48, 100);
  std::vector<std::string> payloads{kStartsRight, whole.substr(0, 8),
                                    whole.substr(0, whole.size() / 3),
                                    std::string("\0\0\1\x65", 4)};
  for (std::size_t i = 0; i < payloads.size(); ++i) {
    test::RecordingBuilder fresh;
    std::swap(recording_, fresh);
    add(1'000'000, payloads[i]);
    const std::string path = recording_.write(dir_ / (std::to_string(i) + ".kbag"));
    MorvaBag one;
    ASSERT_EQ(one.open(path, MorvaBag::BagMode::kRead), 0);
    log_.clear();
    testing::internal::CaptureStderr();
    EXPECT_FALSE(DataExporter(&one, out_, {}).exportData(kTopic, one.getView(kTopic, 0, -1))) << i;
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "") << "the libraries keep quiet";
    ASSERT_THAT(log_.lines(), SizeIs(2)) << i;
    EXPECT_THAT(log_.lines()[0], testing::AnyOf(kPrefix + "VideoCapture open error!",
                                                kPrefix + "VideoCapture read error!"));
    EXPECT_EQ(log_.lines()[1], kPrefix + "unpack images error!");
    EXPECT_THAT(outputs(), ElementsAre("images/camera_0/.gitkeep"));
  }
}

TEST_F(DataExporterImages, SurvivesRandomDamage) {
  const std::string whole = h264Picture(64, 48, 100);
  for (unsigned seed = 1; seed <= 12; ++seed) {
    std::string damaged = whole;
    unsigned state = seed;
    for (int i = 0; i < 6; ++i) {
      state = state * 1664525U + 1013904223U;
      damaged[5 + state % (damaged.size() - 5)] = static_cast<char>(state >> 24);
    }
    add(1'000'000 * seed, damaged, "/camera_right/h264");
  }
  for (const MorvaBag::View::MsgIndex& index : view("/camera_right/h264").indexes) {
    testing::internal::CaptureStderr();
    static_cast<void>(DataExporter(&bag(), out_, {}).exportData("/camera_right/h264", {{index}}));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    for (const std::string& name : outputs()) {
      EXPECT_TRUE(name.ends_with(".jpg") || name.ends_with(".gitkeep")) << name;
    }
  }
}

TEST_F(DataExporterImages, RealCameraStreamIsUnpacked) {
  if (test::realDataDir().empty()) GTEST_SKIP() << "no real sensor data beside the checkout";
  const std::string stream =
      test::readFile(test::realDataDir() + "/camera/road_960x540_allintra.h264");
  const std::size_t end = stream.find(std::string("\0\0\0\1\x09", 5), 10);
  add(1'000'000, stream.substr(0, end));
  EXPECT_TRUE(unpack());
  EXPECT_EQ(sizeOfOutput("images/camera_0/1.000000.jpg"), (Size{960, 540}));
}

TEST_F(DataExporterImages, NamesWithSpacesColonsAndOtherAlphabetsWork) {
  out_ = dir_ / "out/http:x %d ä 日";
  fs::create_directories(out_ + "/images/camera_0");
  add(1'000'000, h264Picture(64, 48, 100));
  EXPECT_TRUE(unpack());
  EXPECT_THAT(outputs(), ElementsAre("images/camera_0/.gitkeep", "images/camera_0/1.000000.jpg"));
}

TEST_F(DataExporterImages, EmptyViewMakesThePlaceholderAlone) {
  recording_.addTopic(kTopic);
  FakeDecoder decoder;
  EXPECT_TRUE(unpack());
  EXPECT_THAT(outputs(), ElementsAre("images/camera_0/.gitkeep"));
  EXPECT_EQ(decoder.calls, 0);
}

TEST_F(DataExporterImages, DecoderSeesTheWholePayloadUnderAnAbsolutePath) {
  FakeDecoder decoder;
  add(1'500'000, kStartsRight);
  EXPECT_TRUE(unpack());
  EXPECT_EQ(decoder.path_, path("images/camera_0/1.500000.h264"));
  EXPECT_EQ(decoder.seen, kStartsRight);
  EXPECT_EQ(output("images/camera_0/1.500000.jpg"), "picture");
  EXPECT_THAT(outputs(), ElementsAre("images/camera_0/.gitkeep", "images/camera_0/1.500000.jpg"));
}

TEST_F(DataExporterImages, PictureDecodedInMemoryNeedsNoStream) {
  FakeDecoder decoder;
  decoder.decodable = kStartsRight;
  add(1'000'000, kStartsRight);
  add(2'000'000, kStartsRight + " and more");
  EXPECT_TRUE(unpack());
  EXPECT_EQ(output("images/camera_0/1.000000.jpg"), "picture in memory");
  EXPECT_EQ(output("images/camera_0/2.000000.jpg"), "picture");
  EXPECT_EQ(decoder.calls, 1);
  EXPECT_EQ(decoder.seen, kStartsRight + " and more");
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(DataExporterImages, FileUnderTheNameOfTheStreamIsRemovedAllTheSame) {
  FakeDecoder decoder;
  decoder.decodable = kStartsRight;
  add(1'000'000, kStartsRight);
  test::writeFile(path("images/camera_0/1.000000.h264"), "of somebody else");
  EXPECT_TRUE(unpack());
  EXPECT_EQ(decoder.calls, 1);
  EXPECT_THAT(outputs(), ElementsAre("images/camera_0/.gitkeep", "images/camera_0/1.000000.jpg"));
}

TEST_F(DataExporterImages, PayloadThatIsNoVideoIsNeverDecoded) {
  FakeDecoder decoder;
  add(1'000'000, "not a video at all");
  EXPECT_FALSE(unpack());
  EXPECT_EQ(decoder.payloadCalls, 0);
  EXPECT_EQ(decoder.calls, 0);
}

TEST_F(DataExporterImages, EveryFailureOfTheDecoderHasItsLine) {
  add(1'000'000, kStartsRight);
  add(2'000'000, kStartsRight);
  const std::vector<std::pair<PictureCode, std::string>> failures = {
      {PictureCode::kNotOpened, "VideoCapture open error!"},
      {PictureCode::kNotRead, "VideoCapture read error!"},
      {PictureCode::kNotEncoded, "encode " + path("images/camera_0/1.000000.jpg") + " error!"},
      {PictureCode::kLibraryException, "opencv exception: why!"},
      {PictureCode::kStandardException, "standard exception: why!"},
      {PictureCode::kUnknownException, "unknown exception!"}};
  for (const auto& [code, line] : failures) {
    FakeDecoder decoder;
    decoder.result = {code, "why"};
    EXPECT_FALSE(unpack());
    EXPECT_EQ(decoder.calls, 1) << "the rest of the topic is not unpacked";
    EXPECT_THAT(log_.lines(), ElementsAre(kPrefix + line, kPrefix + "unpack images error!"));
    EXPECT_THAT(outputs(), ElementsAre("images/camera_0/.gitkeep"));
  }
}

TEST_F(DataExporterImages, ExceptionsLeaveNoTraces) {
  add(1'000'000, kStartsRight);
  for (const int kind : {1, 2}) {
    FakeDecoder decoder;
    decoder.throws = kind;
    EXPECT_FALSE(unpack());
    EXPECT_THAT(log_.lines(), ElementsAre(kPrefix + (kind == 1 ? "standard exception: out of luck!"
                                                               : "unknown exception!"),
                                          kPrefix + "unpack images error!"));
    EXPECT_THAT(outputs(), ElementsAre("images/camera_0/.gitkeep"));
  }
}

TEST_F(DataExporterImages, StreamThatCannotBeCreatedIsSkipped) {
  FakeDecoder decoder;
  add(1'000'000, kStartsRight);
  add(2'000'000, kStartsRight);
  fs::create_directories(path("images/camera_0/1.000000.h264/x"));
  EXPECT_TRUE(unpack());
  EXPECT_THAT(log_.lines(),
              ElementsAre("<W>TIME [DataExporter::unpackCameraImage,L0] create file(" +
                          path("images/camera_0/1.000000.h264") + ") error!"));
  EXPECT_EQ(decoder.calls, 1);
}

TEST_F(DataExporterImages, StreamThatIsNotWrittenWholeIsAWarning) {
  FakeDecoder decoder;
  decoder.result.code = PictureCode::kNotRead;
  add(1'000'000, kStartsRight);
  static_cast<void>(view(kTopic));
  FailingFileCalls calls;
  calls.onlyFilesThatEndIn(".h264");
  calls.fillDiskAfter(5);
  EXPECT_FALSE(unpack());
  EXPECT_THAT(log_.lines(),
              ElementsAre("<W>TIME [DataExporter::unpackCameraImage,L0] write file content "
                          "error: 5!",
                          kPrefix + "VideoCapture read error!", kPrefix + "unpack images error!"));
  EXPECT_THAT(outputs(), ElementsAre("images/camera_0/.gitkeep"));
}

TEST_F(DataExporterImages, PictureThatIsNotWrittenWholeIsAbsent) {
  using Call = FailingFileCalls::Call;
  FakeDecoder decoder;
  add(1'000'000, kStartsRight);
  static_cast<void>(view(kTopic));
  for (const Call call : {Call::kOpen, Call::kPwrite, Call::kClose, Call::kOpen, Call::kPwrite}) {
    decoder.decodable = decoder.calls < 3 ? "" : kStartsRight;
    FailingFileCalls calls;
    calls.onlyFilesThatEndIn(".part");
    calls.fail(call);
    EXPECT_FALSE(unpack());
    EXPECT_THAT(log_.lines(),
                ElementsAre(kPrefix + "write file(" + path("images/camera_0/1.000000.jpg") +
                                ") error: No space left on device!",
                            kPrefix + "unpack images error!"));
    EXPECT_THAT(outputs(), ElementsAre("images/camera_0/.gitkeep"));
  }
}

TEST_F(DataExporterImages, LinksUnderItsNamesAreReplacedAndNotFollowed) {
  const FakeDecoder decoder;
  add(1'000'000, kStartsRight);
  test::writeFile(dir_ / "victim", "untouched");
  for (const char* const name :
       {"1.000000.h264", "1.000000.jpg", "1.000000.jpg.part", ".gitkeep"}) {
    fs::create_symlink(dir_ / "victim", path(std::string("images/camera_0/") + name));
  }
  EXPECT_TRUE(unpack());
  EXPECT_EQ(test::readFile(dir_ / "victim"), "untouched");
  EXPECT_THAT(outputs(), ElementsAre("images/camera_0/.gitkeep", "images/camera_0/1.000000.jpg"));
  EXPECT_FALSE(fs::is_symlink(path("images/camera_0/1.000000.jpg")));
}

TEST_F(DataExporterImages, StopLeavesNoTraces) {
  const FakeDecoder decoder;
  add(1'000'000, kStartsRight);
  add(2'000'000, kStartsRight);
  std::vector<unsigned long> totals;
  const auto stop = [&](unsigned long total) {
    totals.push_back(total);
    return false;
  };
  EXPECT_TRUE(DataExporter(&bag(), out_, stop).exportData(kTopic, view(kTopic)));
  EXPECT_THAT(totals, SizeIs(1));
  EXPECT_THAT(outputs(), ElementsAre("images/camera_0/.gitkeep", "images/camera_0/1.000000.jpg"));
}

TEST(PictureModule, IsSoughtUnderAbsolutePathsBesideTheProgram) {
  const std::vector<std::string> places = PictureModule::places();
  const std::string folder = fs::read_symlink("/proc/self/exe").parent_path();
  ASSERT_FALSE(places.empty());
  EXPECT_EQ(places[0], folder + "/kbag_pictures.so");
  for (const std::string& place : places) EXPECT_TRUE(place.starts_with(folder + "/")) << place;
  EXPECT_THAT(places, testing::Contains(folder + "/../lib/kbag/kbag_pictures.so"));
}

TEST(PictureModule, GivesItsReasonsWhereItCannotBeLoaded) {
  const test::TempDir dir;
  std::string reason;
  EXPECT_EQ(PictureModule::load(dir / "kbag_pictures.so", &reason), nullptr);
  EXPECT_THAT(reason, testing::HasSubstr("No such file or directory"));
  test::writeFile(dir / "kbag_pictures.so", "no library");
  EXPECT_EQ(PictureModule::load(dir / "kbag_pictures.so", &reason), nullptr);
  EXPECT_THAT(reason, testing::HasSubstr("file too short"));
  EXPECT_EQ(PictureModule::load("kbag_pictures.so", &reason), nullptr);
  EXPECT_THAT(reason, testing::HasSubstr("not an absolute path"));
}

}  // namespace morva
