#ifndef MORVA_KIT_DOCTOR_REPORT_JSON_H_
#define MORVA_KIT_DOCTOR_REPORT_JSON_H_

#include <string>
#include <vector>

#include "kit/doctor/account.h"
#include "kit/doctor/salvage.h"

namespace morva::doctor {

/// The reports as JSON, with a format name and a version; docs/commands/kbagkit-doctor.md describes
/// every field. Text that is not UTF-8 gets replacement characters.
[[nodiscard]] std::string jsonOf(const std::vector<Account>& accounts, int exitStatus);
[[nodiscard]] std::string jsonOf(const SalvageResult& result, const SalvageOptions& options,
                                 int exitStatus);

}  // namespace morva::doctor

#endif  // MORVA_KIT_DOCTOR_REPORT_JSON_H_
