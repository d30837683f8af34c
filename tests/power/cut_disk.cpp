#include "power/cut_disk.h"

#include <algorithm>
#include <fcntl.h>

#include "platform/file_path.h"

namespace morva::test {
namespace {

// The system looks for a kill before it takes a page of a write.
constexpr std::size_t kPageBytes = 4096;

std::size_t below(std::size_t end, std::mt19937* random) {
  return std::uniform_int_distribution<std::size_t>(0, end - 1)(*random);
}

}  // namespace

CutDisk::CutDisk() { osmik::FileCalls::replace(this); }

CutDisk::~CutDisk() { stop(); }

void CutDisk::stop() { osmik::FileCalls::replace(nullptr); }

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
    const std::size_t end = part.offset + below(part.data.size() + 1, random);
    const std::size_t pageEnd = end / kPageBytes * kPageBytes;
    part.data.resize(pageEnd > part.offset ? pageEnd - part.offset : 0);
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
    for (Files& files : all) {
      if (!history.isNameSynced && below(4, random) == 0) continue;
      files[path] = stateOf(history, blockBytes, random);
    }
  }
  return all;
}

/// The sizes that a file has had since its last sync.
std::vector<std::size_t> CutDisk::sizesOf(const History& history) {
  std::vector<std::size_t> sizes = {history.synced.size()};
  for (const Call* call : history.unsynced) {
    const std::size_t end = call->offset + call->data.size();
    sizes.push_back(call->kind == Kind::kWrite ? std::max(sizes.back(), end) : end);
  }
  return sizes;
}

std::string CutDisk::stateOf(const History& history, std::size_t blockBytes, std::mt19937* random) {
  const std::vector<std::size_t> sizes = sizesOf(history);
  const std::size_t last = sizes.size() - 1;
  const std::size_t any = below(sizes.size(), random);
  const std::size_t pattern = below(6, random);
  const std::size_t size = sizes[pattern == 0   ? any
                                 : pattern <= 3 ? last
                                                : below(last + 1, random)];
  std::vector<std::size_t> versions((size + blockBytes - 1) / blockBytes);
  const std::size_t lost = versions.empty() ? 0 : below(versions.size(), random);

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
  for (std::size_t block = 0; block < versions.size(); ++block) versions[block] = versionOf(block);

  std::string state = history.synced;
  state.resize(size);
  for (std::size_t i = 0; i < last; ++i) {
    applyToBlocks(*history.unsynced[i], blockBytes, i, versions, &state);
  }
  return state;
}

/// Applies a call, number `number` of those since the last sync, to the blocks that have seen it.
void CutDisk::applyToBlocks(const Call& call, std::size_t blockBytes, std::size_t number,
                            const std::vector<std::size_t>& versions, std::string* state) {
  const bool isWrite = call.kind == Kind::kWrite;
  const std::size_t end =
      isWrite ? std::min(call.offset + call.data.size(), state->size()) : state->size();
  for (std::size_t at = call.offset; at < end;) {
    const std::size_t block = at / blockBytes;
    const std::size_t next = std::min((block + 1) * blockBytes, end);
    if (versions[block] > number) {
      if (isWrite) {
        state->replace(at, next - at, call.data, at - call.offset, next - at);
      } else {
        state->replace(at, next - at, next - at, '\0');
      }
    }
    at = next;
  }
}

}  // namespace morva::test
