#ifndef MORVA_TESTS_HOSTILE_EVERY_TOPIC_H_
#define MORVA_TESTS_HOSTILE_EVERY_TOPIC_H_

#include <string>

#include "morva/records.h"

namespace morva::test {

/// The bytes of a small bag with messages of every kind.
[[nodiscard]] std::string bagOfEveryTopic(CompressionType compression);

}  // namespace morva::test

#endif  // MORVA_TESTS_HOSTILE_EVERY_TOPIC_H_
