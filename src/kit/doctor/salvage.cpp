#include "kit/doctor/salvage.h"

#include <filesystem>
#include <system_error>
#include <utility>

#include "kbag_msgs.pb.h"
#include "kit/doctor/examination.h"
#include "kit/doctor/new_recording.h"
#include "platform/data_crypto.h"
#include "platform/file.h"
#include "platform/str_util.h"
#include "storage/bag_reader.h"

namespace morva::doctor {
namespace {

namespace fs = std::filesystem;
using osmik::StrUtil;

std::string sidePathOf(const std::string& bagPath) {
  return bagPath + std::string(layout::kSideFileSuffix);
}

bool isThere(const std::string& path) {
  std::error_code error;
  return fs::exists(fs::symlink_status(path, error));
}

bool isSameFile(const std::string& a, const std::string& b) {
  std::error_code error;
  return fs::equivalent(a, b, error) && !error;
}

/// What speaks against writing there; empty where nothing does.
std::string objectionTo(const SalvageOptions& options) {
  const std::string& out = options.outPath;
  const std::string sidePath = sidePathOf(options.inPath);
  // Its side file would be put over the other's, too.
  const bool isInput = isSameFile(out, options.inPath) || isSameFile(out, sidePath) ||
                       isSameFile(sidePathOf(out), options.inPath) ||
                       isSameFile(sidePathOf(out), sidePath);
  if (isInput) return out + " is the recording itself";
  std::error_code error;
  if (fs::is_directory(out, error)) return out + " is a folder";
  if (options.force) return {};
  // A reader would take the old side file for the new recording's.
  for (const std::string& path : {out, sidePathOf(out)}) {
    if (isThere(path)) return path + " exists (--force replaces it)";
  }
  return {};
}

std::string privateDataOf(const BagFile::Header& header) {
  if (header.version() == layout::kVersion) return header.privateData();
  return DataCrypto::decrypt(header.privateData());
}

bool isDeviceRecord(const std::string& bytes) {
  protix::kbag_msgs::DeviceInfo record;
  return !bytes.empty() && record.ParseFromString(bytes);
}

/// One run of salvage().
class Run {
 public:
  Run(const SalvageOptions& options, const Progress& progress)
      : options_(options),
        progress_(progress),
        examination_(options.inPath),
        recording_(options.outPath) {}

  SalvageResult run() {
    result_.isDone = checkOutput() && look() && findNames() && write() && verify() && publish();
    result_.account = examination_.account();
    return std::move(result_);
  }

 private:
  bool fail(const std::string& problem) {
    result_.problem = problem;
    return false;
  }

  /// Part of the whole that a step makes up; notes an interruption.
  Progress part(double from, double to) {
    return [this, from, to](double done) {
      result_.isInterrupted = !progress_(from + (to - from) * done);
      return !result_.isInterrupted;
    };
  }

  bool checkOutput() {
    const std::string objection = objectionTo(options_);
    return objection.empty() || fail(objection);
  }

  bool look() {
    if (!examination_.look(part(0.0, 0.3))) {
      if (result_.isInterrupted) return fail("interrupted");
      return fail(StrUtil::format("%s: %s", options_.inPath, examination_.account().problem));
    }
    const Account& account = examination_.account();
    if (account.messages.empty() && !account.isDefinitionSound) {
      return fail("no message can be read");
    }
    return openLike();
  }

  bool openLike() {
    if (options_.likePath.empty()) return true;
    const int code = like_.open(options_.likePath);
    if (code == BagFile::kOpenOk || code == BagFile::kOpenNoIndex) return true;
    return fail(options_.likePath + " cannot be read");
  }

  bool findNames() {
    names_ = examination_.account().topicNames;
    if (examination_.account().isDefinitionSound) return true;
    result_.areNamesGiven = true;
    names_ = options_.names;
    if (names_.empty() && !options_.likePath.empty()) names_ = like_.topicNames();
    if (names_.empty())
      return fail("the topics' names are lost: give them with --topics or --like");
    examination_.nameTopics(names_);
    return true;
  }

  std::string deviceRecord() {
    const Account& account = examination_.account();
    const auto from = [this](DeviceSource source, const BagFile::Header& header) {
      std::string data = privateDataOf(header);
      if (!data.empty()) result_.device = source;
      return data;
    };
    if (account.headerState == HeaderState::kSound) {
      return from(DeviceSource::kHeader, account.header);
    }
    if (account.sideHeader) return from(DeviceSource::kSideFile, *account.sideHeader);
    if (account.headerState == HeaderState::kDamaged &&
        account.header.privateSize() <= layout::kMaxPrivateBytes &&
        isDeviceRecord(privateDataOf(account.header))) {
      return from(DeviceSource::kDamagedHeader, account.header);
    }
    if (options_.likePath.empty()) return {};
    return from(DeviceSource::kOtherRecording, like_.header());
  }

  bool write() {
    if (!recording_.begin(examination_.account().compression, deviceRecord(), names_)) {
      return failOfOutput();
    }
    const auto add = [this](const Message& message, const std::string& payload) {
      if (!names_.contains(static_cast<std::uint32_t>(message.header.topicId))) {
        ++result_.unnamed;
        return true;
      }
      ++result_.written;
      return recording_.add(message, payload);
    };
    if (!examination_.readPayloads(add, part(0.3, 0.7))) return failOfOutput();
    examination_.conclude();
    const bool isSound = examination_.account().verdict == Verdict::kSound;
    if (result_.written == 0 && !isSound) return fail(noMessageText());
    return recording_.finish() || failOfOutput();
  }

  [[nodiscard]] std::string noMessageText() const {
    return result_.unnamed > 0 ? "none of the topics that hold messages has a name"
                               : "no message can be read";
  }

  bool verify() { return recording_.verify(part(0.7, 1.0)) || failOfOutput(); }

  bool publish() {
    // With --force: that of what is replaced, which would be taken for the new one's.
    const std::string side = sidePathOf(options_.outPath);
    if (options_.force && !osmik::File::remove(side)) return fail(side + " cannot be removed");
    return recording_.publish(options_.force) || failOfOutput();
  }

  bool failOfOutput() {
    if (result_.isInterrupted) return fail("interrupted");
    return fail(StrUtil::format("%s: %s", options_.outPath, recording_.problem()));
  }

  const SalvageOptions& options_;
  const Progress& progress_;
  Examination examination_;
  BagReader like_;
  TopicNames names_;
  NewRecording recording_;
  SalvageResult result_;
};

}  // namespace

SalvageResult salvage(const SalvageOptions& options, const Progress& progress) {
  return Run(options, progress).run();
}

}  // namespace morva::doctor
