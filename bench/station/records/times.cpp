// Words and times of a record.
#include <sys/random.h>

#include <ctime>

#include "qnx/text.h"
#include "records/database.h"

namespace records {
namespace {

const int kLastYear = 2261;  // the last one that Time, in nanoseconds, holds whole

const std::size_t kRunIdSize = 16;  // bytes

const char* const kOutcomes[] = {"passed", "failed", "error", "aborted", "skipped"};

// Takes as many digits as `width` from *at; -1 when there are fewer.
int TakeDigits(const char** at, int width) {
  int value = 0;
  for (int i = 0; i < width; ++i, ++*at) {
    if (**at < '0' || **at > '9') return -1;
    value = value * 10 + (**at - '0');
  }
  return value;
}

bool Take(const char** at, char expected) {
  if (**at != expected) return false;
  ++*at;
  return true;
}

// Takes "2026-11-23", and a time of day behind it when there is one.
bool TakeMoment(const char** at, std::tm* parts) {
  const int year = TakeDigits(at, 4);
  if (year < 1970 || year > kLastYear || !Take(at, '-')) return false;
  const int month = TakeDigits(at, 2);
  if (month < 1 || month > 12 || !Take(at, '-')) return false;
  const int day = TakeDigits(at, 2);
  if (day < 1 || day > 31) return false;
  parts->tm_year = year - 1900;
  parts->tm_mon = month - 1;
  parts->tm_mday = day;
  parts->tm_isdst = -1;
  if (**at != 'T' && **at != ' ') return true;
  ++*at;
  parts->tm_hour = TakeDigits(at, 2);
  if (parts->tm_hour < 0 || parts->tm_hour > 23 || !Take(at, ':')) return false;
  parts->tm_min = TakeDigits(at, 2);
  if (parts->tm_min < 0 || parts->tm_min > 59) return false;
  if (!Take(at, ':')) return true;
  parts->tm_sec = TakeDigits(at, 2);
  return parts->tm_sec >= 0 && parts->tm_sec <= 60;
}

}  // namespace

const char* OutcomeText(Outcome outcome) { return kOutcomes[static_cast<int>(outcome)]; }

Outcome ParseOutcome(const std::string& text) {
  for (const Outcome outcome :
       {Outcome::kPassed, Outcome::kFailed, Outcome::kAborted, Outcome::kSkipped}) {
    if (text == OutcomeText(outcome)) return outcome;
  }
  return Outcome::kError;
}

std::string NewRunId() {
  char bytes[kRunIdSize] = {};
  for (std::size_t filled = 0; filled < sizeof(bytes);) {
    const ssize_t count = ::getrandom(bytes + filled, sizeof(bytes) - filled, 0);
    if (count > 0) filled += static_cast<std::size_t>(count);
  }
  return qnx::LowerHex(std::string_view(bytes, sizeof(bytes)));
}

long long Nanoseconds(Time time) {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(time.time_since_epoch()).count();
}

Time FromNanoseconds(long long nanoseconds) {
  return Time(std::chrono::duration_cast<Time::duration>(std::chrono::nanoseconds(nanoseconds)));
}

std::string UtcText(Time time) {
  const auto since = std::chrono::floor<std::chrono::milliseconds>(time.time_since_epoch());
  const auto seconds =
      static_cast<std::time_t>(std::chrono::floor<std::chrono::seconds>(since).count());
  std::tm parts{};
  ::gmtime_r(&seconds, &parts);
  return qnx::Formatted("%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", parts.tm_year + 1900,
                        parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec,
                        static_cast<int>(since.count() - seconds * 1000));
}

bool ParseUtc(const std::string& text, Time* time) {
  std::tm parts{};
  const char* at = text.c_str();
  if (text.size() != 24 || !TakeMoment(&at, &parts) || !Take(&at, '.')) return false;
  const int milliseconds = TakeDigits(&at, 3);
  if (milliseconds < 0 || !Take(&at, 'Z') || *at != '\0') return false;
  *time = std::chrono::system_clock::from_time_t(::timegm(&parts)) +
          std::chrono::milliseconds(milliseconds);
  return true;
}

std::string ZoneOffset(int zone_minutes) {
  const int distance = zone_minutes < 0 ? -zone_minutes : zone_minutes;
  return qnx::Formatted("%c%02d:%02d", zone_minutes < 0 ? '-' : '+', distance / 60, distance % 60);
}

std::string ZoneText(const std::string& utc, int zone_minutes) {
  Time time;
  if (!ParseUtc(utc, &time)) return utc;
  std::string text = UtcText(time + std::chrono::minutes(zone_minutes)).substr(0, 19);
  text[10] = ' ';
  return text + " " + ZoneOffset(zone_minutes);
}

bool ParseMoment(const std::string& text, std::string* utc) {
  std::tm parts{};
  const char* at = text.c_str();
  if (!TakeMoment(&at, &parts)) return false;
  std::tm given = parts;
  std::time_t seconds = 0;
  if (*at == '\0') {
    seconds = ::mktime(&parts);
  } else {
    seconds = ::timegm(&parts);
    if (*at == '+' || *at == '-') {
      const int sign = *at++ == '-' ? -1 : 1;
      const int hours = TakeDigits(&at, 2);
      const int minutes = Take(&at, ':') && hours >= 0 ? TakeDigits(&at, 2) : -1;
      if (hours > 14 || minutes < 0 || minutes > 59) return false;
      seconds -= sign * (hours * 3600 + minutes * 60);
    } else if (!Take(&at, 'Z')) {
      return false;
    }
  }
  // 31 February becomes another day: that is a mistake, not a date.
  if (*at != '\0' || parts.tm_mday != given.tm_mday) return false;
  *utc = UtcText(std::chrono::system_clock::from_time_t(seconds));
  return true;
}

}  // namespace records
