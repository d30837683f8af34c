#ifndef MORVA_KIT_DOCTOR_TOPIC_TIMES_H_
#define MORVA_KIT_DOCTOR_TOPIC_TIMES_H_

#include "kit/doctor/account.h"

namespace morva::doctor {

/// Looks at the first header times of each topic's messages, in the order in which they were
/// written, and notes in its account their span, their period, and
///
/// - a step back: a time that is before the one of the message written before it;
/// - a gap: a step of more than 3 periods, in a topic that otherwise comes regularly. The period is
///   the median of the steps forward; a topic is regular where it has at least 10 of them and 9 in
///   10 are half a period to two periods long.
void assessTimes(Account* account);

}  // namespace morva::doctor

#endif  // MORVA_KIT_DOCTOR_TOPIC_TIMES_H_
