// The measurements and the outcome of a step, from its exchange. Inside this room only.
#ifndef KORVANDIS_STATION_STEP_JUDGE_H
#define KORVANDIS_STATION_STEP_JUDGE_H

#include "station/requester.h"
#include "station/run_record.h"
#include "station/sequence.h"

namespace station {

// Puts the exchange into `record`: packets, every field of the answer or of what a verified write
// read back, outcome, problem and what was expected.
void JudgeStep(const Step& step, const Exchange& exchange, const Values& values,
               records::Step* record);

}  // namespace station

#endif  // KORVANDIS_STATION_STEP_JUDGE_H
