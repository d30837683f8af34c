// bench_pictures_opencv BAG DIRECTORY: the pictures of a bag of one H.264 camera alone as JPEG
// files, through OpenCV as its documentation has it: a temporary file a payload, VideoCapture,
// imencode.

#include <cstdint>
#include <cstdio>
#include <string>
#include <unistd.h>
#include <vector>

#include <kbag_msgs.pb.h>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/videoio.hpp>

#include "bench/peers/bag_walk.h"

namespace {

void writeFile(const std::string& path, const void* bytes, std::size_t size) {
  std::FILE* const file = std::fopen(path.c_str(), "wb");
  if (file == nullptr) peers::fail("cannot create " + path);
  const bool isWritten = std::fwrite(bytes, 1, size, file) == size;
  if (std::fclose(file) != 0 || !isWritten) peers::fail("cannot write " + path);
}

std::vector<std::uint8_t> jpegOf(const std::string& path) {
  constexpr int kQuality = 95;
  cv::VideoCapture capture;
  cv::Mat picture;
  if (!capture.open(path, cv::CAP_FFMPEG) || !capture.read(picture)) peers::fail("no picture");
  std::vector<std::uint8_t> jpeg;
  if (!cv::imencode(".jpg", picture, jpeg, {cv::IMWRITE_JPEG_QUALITY, kQuality})) {
    peers::fail("no JPEG");
  }
  return jpeg;
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 3) peers::fail("usage: bench_pictures_opencv BAG DIRECTORY");
  const std::string directory = arguments[2];
  const std::string temporary = directory + "/payload.h264";
  peers::Payloads payloads(arguments[1]);
  while (payloads.next()) {
    protix::kbag_msgs::ImageMsgArray array;
    if (!array.ParseFromArray(payloads.data(), static_cast<int>(payloads.size()))) {
      peers::fail("no pictures");
    }
    for (const auto& image : array.msgs()) {
      writeFile(temporary, image.data().data(), image.data().size());
      const std::vector<std::uint8_t> jpeg = jpegOf(temporary);
      ::unlink(temporary.c_str());
      const auto timeUs = static_cast<long long>(image.header().timestamp());
      char name[64];
      std::snprintf(name, sizeof name, "/%lld.%06lld.jpg", timeUs / 1000000, timeUs % 1000000);
      writeFile(directory + name, jpeg.data(), jpeg.size());
    }
  }
  return 0;
}
