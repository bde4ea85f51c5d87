#include "events.h"

#include <rapidjson/writer.h>

#include "json_writer.h"
#include "run_report.h"

namespace station {

template <typename More>
void Events::Write(const char* event, More more) {
  {
    Json<rapidjson::Writer<rapidjson::OStreamWrapper>> json(out_);
    json.Open();
    json.Text("event", event);
    json.Text("time", TimeText(std::chrono::system_clock::now(), zone_minutes_));
    json.Text("run", run_);
    more(&json);
    json.Close();
  }
  out_ << std::endl;
}

void Events::BeginRun(const records::Run& run, std::size_t steps) {
  run_ = run.id;
  zone_minutes_ = run.zone_minutes;
  Write("run_start", [&](auto* json) {
    json->Text("sequence", run.title);
    json->Text("device", run.device);
    json->Text("station", run.station);
    json->Number("steps", static_cast<double>(steps));
  });
}

void Events::BeginPhase(const records::Phase& phase) {
  phase_ = phase.name;
  Write("phase_start", [&](auto* json) { json->Text("phase", phase_); });
}

void Events::BeginStep(const records::Step& step) {
  if (in_step_) return;  // another attempt
  in_step_ = true;
  Write("step_start", [&](auto* json) {
    json->Text("phase", phase_);
    json->Text("step", step.name);
  });
}

void Events::EndStep(const records::Step& step, const std::string& /*answer*/) {
  BeginStep(step);  // one that is skipped has not begun
  in_step_ = false;
  Write("step_end", [&](auto* json) {
    json->Text("phase", phase_);
    json->Text("step", step.name);
    json->Text("outcome", records::OutcomeText(step.outcome));
    json->Seconds(step.seconds);
    json->Number("attempts", step.attempts);
    json->TextUnlessEmpty("message", step.problem);
    WriteMeasurements(step.measurements, json);
  });
}

void Events::EndPhase(const records::Phase& phase) {
  Write("phase_end", [&](auto* json) {
    json->Text("phase", phase.name);
    json->Text("outcome", records::OutcomeText(phase.outcome));
    json->Seconds(phase.seconds);
  });
}

void Events::EndRun(const records::Run& run) {
  Write("run_end", [&](auto* json) {
    json->Text("device", run.device);
    json->Text("outcome", records::OutcomeText(run.outcome));
    json->Seconds(run.seconds);
  });
}

}  // namespace station
