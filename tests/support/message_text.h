#ifndef MORVA_TESTS_SUPPORT_MESSAGE_TEXT_H_
#define MORVA_TESTS_SUPPORT_MESSAGE_TEXT_H_

#include <stdexcept>
#include <string>

#include <google/protobuf/text_format.h>

namespace morva::test {

/// A message from protobuf's text form; throws, which fails the test, where the text is not right.
///
///   fromText<pb::ImuMsgArray>("msgs { header { seq: 7 scale: 1000 } accel_x: 1500 }")
template <typename Message>
[[nodiscard]] Message fromText(const std::string& text) {
  Message message;
  if (!google::protobuf::TextFormat::ParseFromString(text, &message)) {
    throw std::runtime_error("no such message: " + text);
  }
  return message;
}

}  // namespace morva::test

#endif  // MORVA_TESTS_SUPPORT_MESSAGE_TEXT_H_
