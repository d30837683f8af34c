#ifndef MORVA_TESTS_SUPPORT_REAL_DATA_DIR_H_
#define MORVA_TESTS_SUPPORT_REAL_DATA_DIR_H_

#include <string>

namespace morva::test {

/// The folder of real sensor data beside the checkout; empty where there is none. Tests that need
/// it skip then, and say so.
[[nodiscard]] std::string realDataDir();

}  // namespace morva::test

#endif  // MORVA_TESTS_SUPPORT_REAL_DATA_DIR_H_
