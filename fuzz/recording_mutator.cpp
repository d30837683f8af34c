#include "recording_mutator.h"

#include <algorithm>
#include <array>
#include <optional>
#include <utility>

#include "bag_draft.h"
#include "platform/byte_order.h"
#include "raw_mutation.h"
#include "recording_input.h"
#include "seeds.h"
#include "storage/bag_layout.h"
#include "wire.h"

namespace morva::fuzz {
namespace {

constexpr std::size_t kMaxGrowth = 4096;  // bytes by which one change may make an input larger

template <typename T>
void changeField(std::string* bytes, std::size_t at, Dice* dice) {
  if (bytes->size() < at + sizeof(T)) return;
  storeLe<T>(&(*bytes)[at],
             static_cast<T>(dice->changed(static_cast<std::uint64_t>(loadLe<T>(&(*bytes)[at])))));
}

std::string randomName(Dice* dice) {
  static constexpr std::string_view kOdd[] = {"",
                                              "/",
                                              "//",
                                              "..",
                                              "../../x",
                                              "/lidar/..",
                                              "/imu\n",
                                              "/imu/%s%n",
                                              "/IMU",
                                              "imu",
                                              "/camera_left",
                                              "/hesai/pandar",
                                              "/livox/lidar",
                                              "\xFF\xFE",
                                              "/\x1B[2J",
                                              "/raw_ntrip_log",
                                              "/raw_ppk_log"};
  const std::vector<SamplePayload>& samples = samplePayloads();
  if (dice->oneIn(12)) return std::string(200, 'n');
  return dice->oneIn(4) ? std::string(dice->pick(kOdd)) : dice->pick(samples).topic;
}

/// The changes that one draft can undergo. Each may find nothing to change.
class DraftMutator {
 public:
  DraftMutator(BagDraft* draft, std::uint8_t compression, Dice* dice)
      : draft_(*draft), compression_(compression), dice_(*dice) {}

  void payload() {
    DraftChunk* const chunk = chunkOf(layout::kTopicDataChunk);
    if (chunk == nullptr) return;
    changeData(chunk, [this](std::string* raw) {
      mutateMessageBytes(raw, &dice_, raw->size() + kMaxGrowth);
    });
  }

  void index() {
    DraftChunk* const chunk = chunkOf(layout::kIndexChunk);
    if (chunk == nullptr) return;
    changeData(chunk, [this](std::string* raw) {
      mutateMessageBytes(raw, &dice_, raw->size() + kMaxGrowth);
    });
  }

  /// Of messages: times, count, raw size, topic.
  void chunkHeader() {
    DraftChunk* const chunk = anyChunk();
    if (chunk == nullptr) return;
    static constexpr std::size_t kWide[] = {layout::kTopicTimeOffset, layout::kTopicFirstTimeOffset,
                                            layout::kTopicSecondTimeOffset};
    static constexpr std::size_t kNarrow[] = {layout::kRawSizeOffset, layout::kTopicCountOffset,
                                              layout::kTopicIdOffset, layout::kTopicIdOffset};
    switch (dice_.below(6)) {
      case 0:
        return changeField<std::uint64_t>(&chunk->header, dice_.pick(kWide), &dice_);
      case 1:
        chunk->header.resize(dice_.oneIn(2) ? 12 + dice_.below(40) : dice_.below(200));
        return;
      case 2:
        chunk->type =
            static_cast<std::uint16_t>(dice_.oneIn(2) ? dice_.pick(kTypes_) : dice_.number());
        return;
      default:
        return changeField<std::uint32_t>(&chunk->header, dice_.pick(kNarrow), &dice_);
    }
  }

  /// Raw sizes that the stored bytes can hardly have, or might just have.
  void rawSize() {
    DraftChunk* const chunk = anyChunk();
    if (chunk == nullptr) return;
    static constexpr std::uint64_t kFactors[] = {2, 8, 100, 254, 255, 256, 32768, 65536};
    const std::uint64_t size =
        dice_.oneIn(3) ? dice_.number() : chunk->data.size() * dice_.pick(kFactors);
    chunk->setRawSize(size);
  }

  void framing() {
    DraftChunk* const chunk = anyChunk();
    if (chunk == nullptr) return;
    const auto word = static_cast<std::uint32_t>(
        dice_.changed(dice_.oneIn(2) ? chunk->size() : chunk->data.size()));
    switch (dice_.below(4)) {
      case 0:
        chunk->wrongSize = word;
        break;
      case 1:
        chunk->wrongDataSize = word;
        break;
      case 2:
        chunk->wrongCrc = word;
        break;
      default:
        chunk->wrongHeaderSize = static_cast<std::uint16_t>(dice_.changed(chunk->header.size()));
        break;
    }
  }

  void arrangement() {
    auto& chunks = draft_.chunks;
    if (chunks.empty()) return;
    const std::size_t at = dice_.below(chunks.size());
    const auto place = chunks.begin() + static_cast<std::ptrdiff_t>(at);
    switch (dice_.below(5)) {
      case 0:
        chunks.erase(place);
        break;
      case 1:
        if (place->size() < kMaxGrowth) {
          DraftChunk copy = *place;
          if (dice_.oneIn(2)) copy.origin = DraftChunk::kNew;
          chunks.insert(
              chunks.begin() + static_cast<std::ptrdiff_t>(dice_.below(chunks.size() + 1)),
              std::move(copy));
        }
        break;
      case 2:
        std::swap(*place, dice_.pick(chunks));
        break;
      case 3:
        chunks.insert(place, rubbish());
        break;
      default:
        chunks.insert(place, newMessage());
        break;
    }
  }

  void fileHeader() {
    std::string& header = draft_.header;
    if (!draft_.hasHeader()) {
      mutateRaw(&header, layout::kHeaderBytes);
      return;
    }
    switch (dice_.below(9)) {
      case 0:
        header[layout::kCompressionOffset] =
            static_cast<char>(dice_.oneIn(4) ? dice_.next() : dice_.below(4));
        break;
      case 1:
        changeField<std::uint16_t>(&header, layout::kVersionOffset, &dice_);
        break;
      case 2:
        changeField<std::uint64_t>(&header, layout::kDataStartOffset, &dice_);
        break;
      case 3:
        changeField<std::uint64_t>(&header, layout::kIndexChunkOffsetOffset, &dice_);
        break;
      case 4:
        changeField<std::uint32_t>(&header, layout::kPrivateSizeOffset, &dice_);
        break;
      case 5:
        changeField<std::uint64_t>(&header, layout::kCreationTimeOffset, &dice_);
        break;
      case 6:
        header[dice_.below(header.size())] = static_cast<char>(dice_.next());
        break;
      case 7:
        draft_.isHeaderCrcWrong = !draft_.isHeaderCrcWrong;
        break;
      default:
        changePrivateData();
        break;
    }
  }

  void topics() {
    DraftChunk* const chunk = chunkOf(layout::kDefinitionChunk);
    if (chunk == nullptr) return;
    changeData(chunk, [this](std::string* raw) { changeTopics(raw); });
  }

  /// Nothing of the file's end, or of a stretch of it.
  void cut() {
    auto& chunks = draft_.chunks;
    if (chunks.empty()) return;
    const std::size_t from = dice_.below(chunks.size());
    const std::size_t count = dice_.oneIn(2) ? chunks.size() - from : 1 + dice_.below(3);
    chunks.erase(
        chunks.begin() + static_cast<std::ptrdiff_t>(from),
        chunks.begin() + static_cast<std::ptrdiff_t>(std::min(from + count, chunks.size())));
    if (dice_.oneIn(20)) draft_.header.resize(dice_.below(draft_.header.size() + 1));
  }

 private:
  static constexpr std::array<std::uint16_t, 4> kTypes_ = {0, 1, 1, 255};

  DraftChunk* chunkOf(std::uint16_t type) {
    return pickChunk([type](const DraftChunk& chunk) { return chunk.type == type; });
  }
  DraftChunk* anyChunk() {
    return pickChunk([](const DraftChunk& /*chunk*/) { return true; });
  }
  template <typename Wanted>
  DraftChunk* pickChunk(Wanted wanted) {
    std::vector<DraftChunk*> found;
    for (DraftChunk& chunk : draft_.chunks) {
      if (chunk.isChunk && wanted(chunk)) found.push_back(&chunk);
    }
    return found.empty() ? nullptr : dice_.pick(found);
  }

  /// Changes what a chunk holds, as it is before compression; where that cannot be, or now and
  /// then, as it is stored.
  template <typename Change>
  void changeData(DraftChunk* chunk, Change change) {
    std::optional<std::string> raw;
    if (!dice_.oneIn(10)) raw = restored(*chunk, compression_);
    if (!raw) return mutateRaw(&chunk->data, chunk->data.size() + 64);
    const bool compress = raw->size() != chunk->data.size();
    change(&*raw);
    store(*std::move(raw), compress != dice_.oneIn(10), compression_, chunk);
    if (!dice_.oneIn(8)) chunk->wrongCrc.reset();
  }

  DraftChunk rubbish() {
    DraftChunk chunk;
    chunk.isChunk = false;
    chunk.data.assign(dice_.below(dice_.oneIn(8) ? 3000 : 40),
                      static_cast<char>(dice_.oneIn(2) ? 0 : dice_.next()));
    return chunk;
  }

  DraftChunk newMessage() {
    const std::vector<SamplePayload>& samples = samplePayloads();
    DraftChunk chunk;
    const DraftChunk* const like = chunkOf(layout::kTopicDataChunk);
    chunk.type = layout::kTopicDataChunk;
    chunk.header = like == nullptr ? std::string(layout::kTopicHeaderBytes, '\1') : like->header;
    store(dice_.pick(samples).payload, dice_.oneIn(2), compression_, &chunk);
    if (dice_.oneIn(5)) {  // a recording within a message
      BagDraft inner = draft_;
      if (inner.chunks.size() > 4) inner.chunks.resize(4);
      std::string bytes = inner.bytes();
      if (bytes.size() < kMaxGrowth * 2)
        store(std::move(bytes), dice_.oneIn(3), compression_, &chunk);
    }
    return chunk;
  }

  void changePrivateData() {
    std::string& header = draft_.header;
    const std::size_t size = std::min<std::size_t>(
        loadLe<std::uint32_t>(&header[layout::kPrivateSizeOffset]), layout::kMaxPrivateBytes);
    std::string data = header.substr(layout::kPrivateDataOffset, size);
    mutateMessageBytes(&data, &dice_, layout::kMaxPrivateBytes);
    header.replace(layout::kPrivateDataOffset, data.size(), data);
    storeLe<std::uint32_t>(&header[layout::kPrivateSizeOffset],
                           static_cast<std::uint32_t>(data.size()));
  }

  void changeTopics(std::string* records) {
    const std::size_t count = records->size() / layout::kTopicRecordBytes;
    const std::size_t at = dice_.below(count) * layout::kTopicRecordBytes;
    std::string record(layout::kTopicRecordBytes, '\0');
    if (count > 0 && !dice_.oneIn(3)) record = records->substr(at, layout::kTopicRecordBytes);
    switch (dice_.below(6)) {
      case 0:
        changeField<std::uint32_t>(&record, 0, &dice_);
        break;
      case 1:
        if (count > 0) records->erase(at, layout::kTopicRecordBytes);
        return;
      case 2:
        records->append(record);
        return;
      case 3:
        records->resize(dice_.below(records->size() + 1));
        return;
      default: {
        std::string name = randomName(&dice_);
        name.resize(layout::kTopicNameBytes, '\0');
        record.replace(layout::kTopicNameOffset, layout::kTopicNameBytes, name);
        break;
      }
    }
    if (count == 0 || dice_.oneIn(4)) {
      records->append(record);
    } else {
      records->replace(at, layout::kTopicRecordBytes, record);
    }
  }

  BagDraft& draft_;
  const std::uint8_t compression_;
  Dice& dice_;
};

using Change = void (DraftMutator::*)();

/// What is done to a bag, the more often the more rows it has.
constexpr Change kBagChanges[] = {
    &DraftMutator::payload,     &DraftMutator::payload,     &DraftMutator::payload,
    &DraftMutator::payload,     &DraftMutator::index,       &DraftMutator::index,
    &DraftMutator::chunkHeader, &DraftMutator::chunkHeader, &DraftMutator::rawSize,
    &DraftMutator::framing,     &DraftMutator::arrangement, &DraftMutator::arrangement,
    &DraftMutator::fileHeader,  &DraftMutator::topics,      &DraftMutator::cut,
};
constexpr Change kSideChanges[] = {
    &DraftMutator::index,       &DraftMutator::index,       &DraftMutator::index,
    &DraftMutator::rawSize,     &DraftMutator::chunkHeader, &DraftMutator::framing,
    &DraftMutator::arrangement, &DraftMutator::fileHeader,  &DraftMutator::cut,
};

/// The index chunk of a draft, which gains one where there is none.
DraftChunk* indexChunkOf(BagDraft* draft) {
  for (DraftChunk& chunk : draft->chunks) {
    if (chunk.isChunk && chunk.type == layout::kIndexChunk) return &chunk;
  }
  DraftChunk chunk;
  chunk.type = layout::kIndexChunk;
  chunk.header.assign(layout::kMinChunkHeaderBytes, '\0');
  draft->chunks.push_back(std::move(chunk));
  return &draft->chunks.back();
}

void giveTrueIndex(const BagDraft& bag, BagDraft* draft, bool compress) {
  std::string index = trueIndex(bag);
  DraftChunk* const chunk = indexChunkOf(draft);
  store(std::move(index), compress, bag.compression(), chunk);
  chunk->mend();
}

/// Makes most of what a change has upset right again.
void mend(BagDraft* bag, Dice* dice) {
  if (dice->oneIn(8)) {
    bag->isHeaderCrcWrong = false;
    for (DraftChunk& chunk : bag->chunks) chunk.mend();
  }
  if (dice->oneIn(6)) return;
  const BagDraft before = *bag;
  if (dice->oneIn(3)) {
    const bool gains = dice->oneIn(8);
    const bool hasIndex = std::ranges::any_of(bag->chunks, [](const DraftChunk& chunk) {
      return chunk.isChunk && chunk.type == layout::kIndexChunk;
    });
    if (hasIndex || gains) giveTrueIndex(before, bag, dice->oneIn(3));
  } else {
    relocateIndexes(before, bag);
  }
  correctHeader(bag);
}

void mendSide(const BagDraft& bag, BagDraft* side, Dice* dice) {
  if (dice->oneIn(8)) return;
  if (dice->oneIn(3)) {
    giveTrueIndex(bag, side, dice->oneIn(3));
  } else {
    relocateIndexes(bag, side);
  }
  if (!bag.hasHeader() || !side->hasHeader()) return;
  side->header.replace(0, layout::kMatchBytes, bag.header, 0, layout::kMatchBytes);
  // A reader takes the end of the definition chunk for the data's start, whatever the header says.
  const std::vector<std::uint64_t> offsets = bag.offsets();
  if (!bag.chunks.empty() && bag.chunks.front().type == layout::kDefinitionChunk) {
    storeLe<std::uint64_t>(&side->header[layout::kDataStartOffset],
                           offsets[0] + bag.chunks.front().size());
  }
}

template <std::size_t N>
void change(const Change (&changes)[N], std::uint8_t compression, BagDraft* draft, Dice* dice) {
  DraftMutator mutator(draft, compression, dice);
  do {
    (mutator.*dice->pick(changes))();
  } while (dice->oneIn(3));
}

/// Leaves chunks out until the bytes are few enough.
std::string shortened(BagDraft* bag, std::size_t maxSize) {
  std::string bytes = bag->bytes();
  while (bytes.size() > maxSize && !bag->chunks.empty()) {
    const auto largest = std::ranges::max_element(bag->chunks, {}, &DraftChunk::size);
    bag->chunks.erase(largest);
    bytes = bag->bytes();
  }
  return bytes;
}

std::string assembled(BagDraft* bag, RecordingInput* input, BagDraft* side, std::size_t maxSize,
                      Dice* dice) {
  mend(bag, dice);
  input->bag = shortened(bag, maxSize);
  if (input->hasSide) {
    mendSide(*bag, side, dice);
    input->side = side->bytes();
  }
  return input->bytes();
}

}  // namespace

std::string mutatedRecording(std::string_view bytes, std::size_t maxSize, Dice* dice) {
  RecordingInput input = RecordingInput::parse(bytes);
  BagDraft bag = BagDraft::parse(input.bag);
  if (dice->oneIn(30)) {
    input.hasSide = !input.hasSide;
    if (input.hasSide) {
      input.side = bag.header;
      if (input.side.size() == layout::kHeaderBytes) {
        storeLe<std::uint64_t>(&input.side[layout::kIndexChunkOffsetOffset], layout::kHeaderBytes);
      }
    }
  }
  BagDraft side = BagDraft::parse(input.side);
  if (input.hasSide && dice->oneIn(3)) {
    change(kSideChanges, bag.compression(), &side, dice);
  } else {
    change(kBagChanges, bag.compression(), &bag, dice);
  }
  return assembled(&bag, &input, &side, maxSize, dice);
}

std::string crossedRecordings(std::string_view a, std::string_view b, std::size_t maxSize,
                              Dice* dice) {
  RecordingInput input = RecordingInput::parse(a);
  BagDraft bag = BagDraft::parse(input.bag);
  BagDraft side = BagDraft::parse(input.side);
  const BagDraft other = BagDraft::parse(RecordingInput::parse(b).bag);
  if (!other.chunks.empty()) {
    const std::size_t from = dice->below(other.chunks.size());
    const std::size_t count = 1 + dice->below(std::min<std::size_t>(other.chunks.size() - from, 6));
    for (std::size_t i = from; i < from + count; ++i) {
      DraftChunk chunk = other.chunks[i];
      chunk.origin = DraftChunk::kNew;
      if (std::optional<std::string> raw = restored(chunk, other.compression());
          raw && chunk.isChunk) {
        const bool isPacked = raw->size() != chunk.data.size();
        store(*std::move(raw), isPacked, bag.compression(), &chunk);
      }
      const std::size_t at = dice->below(bag.chunks.size() + 1);
      bag.chunks.insert(bag.chunks.begin() + static_cast<std::ptrdiff_t>(at), std::move(chunk));
    }
  }
  return assembled(&bag, &input, &side, maxSize, dice);
}

}  // namespace morva::fuzz
