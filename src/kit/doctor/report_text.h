#ifndef MORVA_KIT_DOCTOR_REPORT_TEXT_H_
#define MORVA_KIT_DOCTOR_REPORT_TEXT_H_

#include <string>

#include "kit/doctor/account.h"
#include "kit/doctor/salvage.h"

namespace morva::doctor {

/// What an account says, for people: coloured where standard output shows colours. Times are in
/// seconds since the Unix epoch, offsets in bytes.
[[nodiscard]] std::string textOf(const Account& account);

/// What was kept and what was lost.
[[nodiscard]] std::string textOf(const SalvageResult& result, const SalvageOptions& options);

}  // namespace morva::doctor

#endif  // MORVA_KIT_DOCTOR_REPORT_TEXT_H_
