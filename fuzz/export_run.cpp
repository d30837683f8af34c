#include "export_run.h"

#include <filesystem>

#include "export/picture_module.h"
#include "morva/bag.h"
#include "target.h"
#include "work_place.h"

namespace morva::fuzz {
namespace {

namespace fs = std::filesystem;

/// In the place of the module, which is other people's code in nearly all: it takes pictures by
/// what they begin with, so that every way of an export is gone.
class AnyPictures final : public PictureDecoder {
 public:
  bool decodePayload(std::string_view payload, std::string* jpeg) override {
    if (payload.size() % 3 != 0) return false;
    *jpeg = payload;
    return true;
  }
  PictureResult decode(const std::string& path, std::string* jpeg) override {
    std::string payload = contentsOf(path);
    const auto code = static_cast<PictureCode>(payload.size() % 7);
    if (code == PictureCode::kOk) *jpeg = std::move(payload);
    return {code, code == PictureCode::kOk ? "" : "some %s exception"};
  }
};

void expectPlainFiles(const std::string& dir) {
  for (const auto& entry : fs::recursive_directory_iterator(dir)) {
    expect(!entry.is_symlink() && (entry.is_directory() || entry.is_regular_file()),
           "an output is neither file nor folder");
  }
}

}  // namespace

void exportInput(std::string_view input, const ExportCommand& command) {
  static AnyPictures pictures;
  PictureModule::replace(&pictures);
  WorkPlace& place = WorkPlace::get();
  const RecordingInput recording = RecordingInput::parse(input);
  place.put(recording);

  std::vector<std::string> topics;
  {
    MorvaBag bag;
    if (bag.open(place.bag(), BagMode::kRead) != 0) return;
    for (const TopicInfo& topic : bag.getInfo().topics) topics.push_back(topic.name);
  }
  if (topics.empty()) return;
  const std::string& out = place.freshOut();
  command(place.bag(), topics, out);
  place.expectNothingElse();
  expectPlainFiles(out);
  expect(contentsOf(place.bag()) == recording.bag, "an export changes the bag");
}

}  // namespace morva::fuzz
