// The account of a damaged recording, and its reports.
#include <string>

#include <nlohmann/json.hpp>

#include "account_truth.h"
#include "kit/doctor/examination.h"
#include "kit/doctor/report_json.h"
#include "kit/doctor/report_text.h"
#include "morva/bag.h"
#include "target.h"
#include "work_place.h"

namespace morva::fuzz {

void runDoctor(std::string_view input) {
  WorkPlace& place = WorkPlace::get();
  const RecordingInput recording = RecordingInput::parse(input);
  place.put(recording);
  const doctor::Account account =
      doctor::examine(place.bag(), [](double /*done*/) { return true; });
  expectTrue(account, recording.bag);
  expect(!doctor::textOf(account).empty(), "an account has no text");
  expect(nlohmann::json::accept(doctor::jsonOf({account}, 0)), "a report is no JSON");
  if (account.verdict == doctor::Verdict::kSound) {
    expect(MorvaBag::checkAll(place.bag()) == 0,
           "a recording is called sound that fails its check");
    const View all = MorvaBag::getAllView(place.bag(), nullptr);
    expect(all.indexes.size() == account.messages.size(),
           "a recording is called sound of which the walk finds other messages");
  }
  expect(contentsOf(place.bag()) == recording.bag, "an examination changes the recording");
  place.expectNothingElse();
}

}  // namespace morva::fuzz
