// The files that a recording carries: calibration documents and the project's files.
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "kbag_msgs.pb.h"
#include "kit/simulate/calibration_documents.h"
#include "kit/simulate/random.h"
#include "kit/simulate/streams.h"
#include "kit/simulate/time_base.h"
#include "platform/str_util.h"

namespace morva::sim {

namespace {

namespace pb = protix::kbag_msgs;

// One file a message, all written when the recording begins.
class FileStream final : public MessageStream {
 public:
  FileStream(std::string topic, std::vector<Document> documents)
      : MessageStream(std::move(topic)), documents_(std::move(documents)) {}

  State next(StreamMessage* message) override {
    if (next_ >= documents_.size()) return State::kEnd;
    const Document& document = documents_[next_];
    pb::FileMsgArray array;
    pb::FileMsg* file = array.add_msgs();
    file->mutable_header()->set_timestamp(kStartUs);
    file->mutable_header()->set_seq(static_cast<std::uint32_t>(next_));
    file->set_name(document.name);
    (document.scrambled ? *file->mutable_scrambled() : *file->mutable_plain()) = document.content;
    ++next_;
    message->count = 1;
    message->firstTimeUs = message->lastTimeUs = message->writeTimeUs = kStartUs;
    array.SerializeToString(&message->payload);
    return State::kMessage;
  }

 private:
  std::vector<Document> documents_;
  std::size_t next_ = 0;
};

std::vector<Document> projectFiles(const Scene& scene) {
  Random random(scene.options.seed, "project");
  const std::string project = osmik::StrUtil::format(
      "{\n  \"name\": \"simulated room\",\n  \"id\": \"%016llx\",\n  \"operator\": "
      "\"Zo\xC3\xAB\",\n"
      "  \"started\": \"2023-11-14T22:13:20Z\"\n}\n",
      random.below(~std::uint64_t{0}));
  return {
      {"project.json", project},
      {"notes/walk.txt", "Once around the table, lidar on the mast.\r\nDoor was closed.\r\n"},
      {"notes/marks.csv", "name,x,y,z\nM1,0.000,0.000,0.000\nM2,4.800,0.000,0.000\n"},
      {"cache/mask.bin", random.bytes(2500)},
      {"cache/empty.txt", ""},
  };
}

}  // namespace

StreamPtr makeConfigFiles(const Scene& scene) {
  return std::make_unique<FileStream>("/config_file", calibrationDocuments(scene.calibration));
}

StreamPtr makeProjectFiles(const Scene& scene) {
  return std::make_unique<FileStream>("/project_data", projectFiles(scene));
}

}  // namespace morva::sim
