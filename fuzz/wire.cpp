#include "wire.h"

#include <algorithm>
#include <utility>

#include "raw_mutation.h"

namespace morva::fuzz {
namespace {

constexpr int kMaxDepth = 5;
constexpr std::size_t kMaxFields = 20'000;

bool takeVarint(std::string_view* bytes, std::uint64_t* value) {
  *value = 0;
  for (unsigned shift = 0; shift < 70 && !bytes->empty(); shift += 7) {
    const auto byte = static_cast<unsigned char>(bytes->front());
    bytes->remove_prefix(1);
    if (shift < 64) *value |= std::uint64_t{byte & 0x7FU} << shift;
    if (byte < 0x80) return true;
  }
  return false;
}

bool takeFixed(std::string_view* bytes, std::size_t size, std::uint64_t* value) {
  if (bytes->size() < size) return false;
  *value = 0;
  for (std::size_t i = 0; i < size; ++i) {
    *value |= std::uint64_t{static_cast<unsigned char>((*bytes)[i])} << (8 * i);
  }
  bytes->remove_prefix(size);
  return true;
}

bool looksLikeText(std::string_view bytes) {
  return std::ranges::all_of(bytes, [](char c) { return (c >= ' ' && c <= '~') || c == '\n'; });
}

bool parseInto(std::string_view bytes, int depth, WireMessage* message) {
  while (!bytes.empty()) {
    if (message->size() >= kMaxFields) return false;
    std::uint64_t tag = 0;
    if (!takeVarint(&bytes, &tag) || tag >> 3U == 0 || tag >> 32U != 0) return false;
    WireField field;
    field.number = static_cast<std::uint32_t>(tag >> 3U);
    field.type = static_cast<std::uint8_t>(tag & 7U);
    switch (field.type) {
      case WireField::kVarint:
        if (!takeVarint(&bytes, &field.value)) return false;
        break;
      case WireField::kFixed64:
        if (!takeFixed(&bytes, 8, &field.value)) return false;
        break;
      case WireField::kFixed32:
        if (!takeFixed(&bytes, 4, &field.value)) return false;
        break;
      case WireField::kBytes: {
        std::uint64_t length = 0;
        if (!takeVarint(&bytes, &length) || length > bytes.size()) return false;
        const std::string_view content = bytes.substr(0, length);
        bytes.remove_prefix(length);
        field.isMessage = depth < kMaxDepth && !content.empty() && !looksLikeText(content) &&
                          parseInto(content, depth + 1, &field.fields);
        if (!field.isMessage) {
          field.fields.clear();
          field.bytes = content;
        }
        break;
      }
      default:
        return false;
    }
    message->push_back(std::move(field));
  }
  return true;
}

void appendVarint(std::string* bytes, std::uint64_t value, unsigned spareBytes) {
  while (value >= 0x80) {
    *bytes += static_cast<char>(value | 0x80U);
    value >>= 7U;
  }
  *bytes += static_cast<char>(spareBytes > 0 ? value | 0x80U : value);
  for (unsigned i = 0; i < spareBytes; ++i) *bytes += i + 1 < spareBytes ? '\x80' : '\0';
}

void appendFixed(std::string* bytes, std::uint64_t value, std::size_t size) {
  for (std::size_t i = 0; i < size; ++i) *bytes += static_cast<char>(value >> (8 * i));
}

void appendField(std::string* bytes, const WireField& field) {
  appendVarint(bytes, std::uint64_t{field.number} << 3U | field.type, 0);
  switch (field.type) {
    case WireField::kVarint:
      return appendVarint(bytes, field.value, field.spareBytes);
    case WireField::kFixed64:
      return appendFixed(bytes, field.value, 8);
    case WireField::kFixed32:
      return appendFixed(bytes, field.value, 4);
    case WireField::kBytes: {
      const std::string content = field.isMessage ? encodeWire(field.fields) : field.bytes;
      appendVarint(bytes, content.size() + static_cast<std::uint64_t>(field.lengthError),
                   field.spareBytes);
      *bytes += content;
      return;
    }
    default:  // a type that there is not: the tag alone
      return;
  }
}

/// Every list of fields in the tree that is not empty.
void collectLists(WireMessage* message, std::vector<WireMessage*>* lists) {
  if (message->empty()) return;
  lists->push_back(message);
  for (WireField& field : *message) {
    if (field.isMessage) collectLists(&field.fields, lists);
  }
}

WireField randomField(Dice* dice) {
  static constexpr std::uint8_t kTypes[] = {0, 0, 0, 2, 2, 1, 5, 3, 4, 6};
  WireField field;
  field.number = static_cast<std::uint32_t>(1 + dice->below(dice->oneIn(4) ? 3000 : 10));
  field.type = dice->pick(kTypes);
  field.value = dice->number();
  field.bytes.assign(dice->below(12), static_cast<char>(dice->next()));
  return field;
}

void changeContent(WireField* field, Dice* dice, std::size_t maxGrowth) {
  if (field->type != WireField::kBytes) {
    field->value = dice->changed(field->value);
  } else if (field->isMessage) {
    field->fields.push_back(field->fields.empty() ? randomField(dice) : dice->pick(field->fields));
  } else {
    mutateRaw(&field->bytes, field->bytes.size() + std::min<std::size_t>(maxGrowth, 64));
  }
}

void changeForm(WireField* field, Dice* dice) {
  switch (dice->below(5)) {
    case 0:
      field->number = static_cast<std::uint32_t>(dice->oneIn(3) ? dice->number() & 0x1FFFFFFFU
                                                                : 1 + dice->below(9));
      break;
    case 1:
      field->type = static_cast<std::uint8_t>(dice->below(8));
      break;
    case 2:
      field->spareBytes = static_cast<unsigned>(dice->below(10));
      break;
    case 3:
      field->lengthError = dice->oneIn(2)
                               ? static_cast<std::int64_t>(dice->below(9)) - 4
                               : static_cast<std::int64_t>(dice->number() & 0x7FFFFFFFFFU);
      break;
    default:
      field->value = dice->number();
      break;
  }
}

void mutateList(WireMessage* list, Dice* dice, std::size_t maxGrowth) {
  const std::size_t at = dice->below(list->size());
  const auto place = list->begin() + static_cast<std::ptrdiff_t>(at);
  switch (dice->below(12)) {
    case 0:
      list->erase(place);
      break;
    case 1:
      if (maxGrowth > 100) list->insert(place, WireField(*place));
      break;
    case 2:
      std::swap(*place, dice->pick(*list));
      break;
    case 3:
      list->insert(place, randomField(dice));
      break;
    case 4:
    case 5:
      changeForm(&*place, dice);
      break;
    case 6: {  // many of them
      const WireField field = *place;
      const std::size_t size = encodeWire({field}).size();
      const std::size_t count = std::min(dice->below(200), maxGrowth / (size + 1));
      list->insert(place, count, field);
      break;
    }
    default:
      changeContent(&*place, dice, maxGrowth);
      break;
  }
}

}  // namespace

std::optional<WireMessage> parseWire(std::string_view bytes) {
  WireMessage message;
  if (!parseInto(bytes, 0, &message)) return std::nullopt;
  return message;
}

std::string encodeWire(const WireMessage& message) {
  std::string bytes;
  for (const WireField& field : message) appendField(&bytes, field);
  return bytes;
}

void mutateWire(WireMessage* message, Dice* dice, std::size_t maxGrowth) {
  std::vector<WireMessage*> lists;
  collectLists(message, &lists);
  if (lists.empty()) {
    message->push_back(randomField(dice));
  } else {
    mutateList(dice->pick(lists), dice, maxGrowth);
  }
}

void mutateMessageBytes(std::string* bytes, Dice* dice, std::size_t maxSize) {
  std::optional<WireMessage> message;
  if (!dice->oneIn(8)) message = parseWire(*bytes);
  if (!message) return mutateRaw(bytes, maxSize);
  const std::size_t room = maxSize > bytes->size() ? maxSize - bytes->size() : 0;
  do {
    mutateWire(&*message, dice, room / 4);
  } while (dice->oneIn(3));
  *bytes = encodeWire(*message);
  if (bytes->size() > maxSize) bytes->resize(maxSize);
}

}  // namespace morva::fuzz
