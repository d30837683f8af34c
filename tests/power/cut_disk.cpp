#include "power/cut_disk.h"

#include <algorithm>
#include <fcntl.h>

#include "platform/file_path.h"

namespace morva::test {
namespace {

std::size_t below(std::size_t end, std::mt19937* random) {
  return std::uniform_int_distribution<std::size_t>(0, end - 1)(*random);
}

}  // namespace

CutDisk::CutDisk() { osmik::FileCalls::replace(this); }

CutDisk::~CutDisk() { osmik::FileCalls::replace(nullptr); }

int CutDisk::open(const char* path, int flags, mode_t mode) {
  const int fd = FileCalls::open(path, flags, mode);
  if (fd < 0) return fd;
  open_[fd] = {.path = path, .isDirectory = (flags & O_DIRECTORY) != 0};
  if ((flags & O_CREAT) != 0) calls_.push_back({.kind = Kind::kCreate, .path = path, .data = {}});
  return fd;
}

ssize_t CutDisk::pwrite(int fd, const void* data, std::size_t size, off_t offset) {
  const ssize_t count = FileCalls::pwrite(fd, data, size, offset);
  if (count > 0) {
    calls_.push_back({.kind = Kind::kWrite,
                      .path = open_.at(fd).path,
                      .offset = static_cast<std::size_t>(offset),
                      .data = {static_cast<const char*>(data), static_cast<std::size_t>(count)}});
  }
  return count;
}

int CutDisk::ftruncate(int fd, off_t size) {
  const int result = FileCalls::ftruncate(fd, size);
  if (result == 0) {
    calls_.push_back({.kind = Kind::kResize,
                      .path = open_.at(fd).path,
                      .offset = static_cast<std::size_t>(size),
                      .data = {}});
  }
  return result;
}

int CutDisk::fsync(int fd) {
  const OpenFile& file = open_.at(fd);
  calls_.push_back({.kind = file.isDirectory ? Kind::kSyncDirectory : Kind::kSync,
                    .path = file.path,
                    .data = {}});
  return 0;
}

int CutDisk::close(int fd) {
  open_.erase(fd);
  return FileCalls::close(fd);
}

void CutDisk::apply(const Call& call, std::string* content) {
  if (call.kind == Kind::kCreate) content->clear();
  if (call.kind == Kind::kResize) content->resize(call.offset);
  if (call.kind != Kind::kWrite) return;
  if (content->size() < call.offset + call.data.size()) {
    content->resize(call.offset + call.data.size());
  }
  content->replace(call.offset, call.data.size(), call.data);
}

CutDisk::Files CutDisk::afterKill(std::size_t calls, std::mt19937* random) const {
  Files files;
  for (std::size_t i = 0; i < calls; ++i) {
    if (calls_[i].kind != Kind::kSyncDirectory) apply(calls_[i], &files[calls_[i].path]);
  }
  if (calls < calls_.size() && calls_[calls].kind == Kind::kWrite) {
    Call part = calls_[calls];
    part.data.resize(below(part.data.size() + 1, random));
    apply(part, &files[part.path]);
  }
  return files;
}

std::map<std::string, CutDisk::History> CutDisk::historiesAt(std::size_t calls) const {
  std::map<std::string, History> histories;
  for (std::size_t i = 0; i < calls; ++i) {
    const Call& call = calls_[i];
    if (call.kind == Kind::kSyncDirectory) {
      for (auto& [path, history] : histories) {
        if (osmik::FilePath(path).dirName() == call.path) history.isNameSynced = true;
      }
      continue;
    }
    History& history = histories[call.path];
    if (call.kind != Kind::kSync) {
      history.unsynced.push_back(&call);
      continue;
    }
    for (const Call* change : history.unsynced) apply(*change, &history.synced);
    history.unsynced.clear();
  }
  return histories;
}

std::vector<CutDisk::Files> CutDisk::afterCut(std::size_t calls, std::size_t blockBytes,
                                              std::size_t states, std::mt19937* random) const {
  std::vector<Files> all(states);
  for (const auto& [path, history] : historiesAt(calls)) {
    // What the file held after each of the calls, and with it each of its blocks.
    std::vector<std::string> contents = {history.synced};
    for (const Call* call : history.unsynced) {
      contents.push_back(contents.back());
      apply(*call, &contents.back());
    }
    for (Files& files : all) {
      if (!history.isNameSynced && below(4, random) == 0) continue;
      files[path] = stateOf(contents, blockBytes, random);
    }
  }
  return all;
}

std::string CutDisk::stateOf(const std::vector<std::string>& contents, std::size_t blockBytes,
                             std::mt19937* random) {
  const std::size_t last = contents.size() - 1;
  const std::size_t any = below(contents.size(), random);
  const std::size_t pattern = below(6, random);
  const std::size_t sizeOf = pattern == 0 ? any : pattern <= 3 ? last : below(last + 1, random);
  const std::size_t size = contents[sizeOf].size();
  const std::size_t blocks = (size + blockBytes - 1) / blockBytes;
  const std::size_t lost = blocks == 0 ? 0 : below(blocks, random);

  const auto versionOf = [&](std::size_t block) {
    switch (pattern) {
      case 0:  // in the order of the calls, up to one of them
        return any;
      case 1:  // all but one block
        return block == lost ? any : last;
      case 2:  // the size alone
        return std::size_t{0};
      case 3:  // few missing
        return below(8, random) == 0 ? std::size_t{0} : last;
      case 4:  // half of them
        return below(2, random) == 0 ? std::size_t{0} : last;
      default:
        return below(last + 1, random);
    }
  };
  std::string state(size, '\0');
  for (std::size_t block = 0; block < blocks; ++block) {
    const std::string& content = contents[versionOf(block)];
    const std::size_t begin = block * blockBytes;
    if (begin >= content.size()) continue;
    const std::size_t count = std::min({blockBytes, content.size() - begin, size - begin});
    state.replace(begin, count, content, begin, count);
  }
  return state;
}

}  // namespace morva::test
