#ifndef MORVA_FUZZ_ACCOUNT_TRUTH_H_
#define MORVA_FUZZ_ACCOUNT_TRUTH_H_

#include <string_view>

#include "kit/doctor/account.h"

namespace morva::fuzz {

/// Ends the process where an account of a recording says what the recording's bytes do not.
void expectTrue(const doctor::Account& account, std::string_view bag);

}  // namespace morva::fuzz

#endif  // MORVA_FUZZ_ACCOUNT_TRUTH_H_
