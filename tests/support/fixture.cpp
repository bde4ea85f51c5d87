#include "support/fixture.h"

#include <poll.h>
#include <sys/slog.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <thread>

#include "platform/io.h"
#include "qnx/bench_link.h"
#include "wire/hex.h"

namespace support {
namespace {

// A question that is always answered, with an empty reply, without touching the unit.
const std::uint8_t kEchoCommand = 7;
const std::uint8_t kEchoSubCommand = 255;

const std::size_t kLongestObject = 1 << 20;
const milliseconds kPollInterval(2);

std::chrono::steady_clock::time_point Deadline(milliseconds limit) {
  return std::chrono::steady_clock::now() + limit;
}

}  // namespace

std::string Hex(const Bytes& bytes) {
  std::string text;
  for (const std::uint8_t byte : bytes) {
    if (!text.empty()) text += ' ';
    text += wire::HexDigit(byte >> 4U);
    text += wire::HexDigit(byte);
  }
  return text;
}

Bytes Text(const std::string& text) { return Bytes(text.begin(), text.end()); }

bool Contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

Bytes Reply(std::uint8_t command, std::uint8_t sub_command, const Bytes& data) {
  Bytes packet = wire::BuildRequest(command | wire::kReplyBit, sub_command, data);
  packet[wire::kHeaderSize + wire::kLinkSize + wire::kRecordLengthOffset] =
      static_cast<std::uint8_t>(data.size());
  return packet;
}

std::vector<std::string> Arguments(const std::string& line) {
  std::istringstream words(line);
  return {std::istream_iterator<std::string>(words), {}};
}

bool Eventually(const std::function<bool()>& condition, milliseconds limit) {
  const auto deadline = Deadline(limit * kPatience);
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(kPollInterval);
  }
  return true;
}

bool WaitReadable(int fd, milliseconds limit) {
  pollfd wait = {fd, POLLIN, 0};
  return ::poll(&wait, 1, static_cast<int>(limit.count())) > 0;
}

std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream content;
  content << file.rdbuf();
  return content.str();
}

int CountDescriptors(pid_t pid) {
  int count = 0;
  const auto directory = "/proc/" + std::to_string(pid) + "/fd";
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(directory)) ++count;
  return count;
}

std::string Completed(const TempRoot& root, const std::string& script, const std::string& words) {
  root.AddFile("/complete", ". '" + script + "'\nPATH='" + BinDir() + "':$PATH\nCOMP_WORDS=(" +
                                words + ")\nCOMP_CWORD=$((${#COMP_WORDS[@]} - 1))\n_" +
                                words.substr(0, words.find(' ')) + "\necho ${COMPREPLY[*]}\n");
  const std::string run = "bash " + root.path() + "/complete > " + root.path() + "/words";
  EXPECT_EQ(std::system(run.c_str()), 0) << words;
  return ReadFile(root.path() + "/words");
}

std::string SourceDir() { return KORVANDIS_SOURCE_DIR; }

std::string BinDir() { return KORVANDIS_BIN_DIR; }

Program::Program(const TempRoot& root, const std::string& name,
                 const std::vector<std::string>& arguments,
                 const std::function<void()>& before_exec) {
  static int number = 0;
  const std::string base = root.path() + "/" + name + "." + std::to_string(++number);
  output_path_ = base + ".out";
  error_path_ = base + ".err";
  qnx::ChildOptions options;
  if (KORVANDIS_EMULATOR[0] != '\0') options.words.push_back(KORVANDIS_EMULATOR);
  options.words.push_back(BinDir() + "/" + name);
  options.words.insert(options.words.end(), arguments.begin(), arguments.end());
  options.directory = root.path();
  options.input = "/dev/null";
  options.output = output_path_;
  options.errors = error_path_;
  options.before_exec = before_exec;
  child_.emplace(options);
}

int Program::Wait(milliseconds limit) { return child_->Wait(limit * kPatience).value_or(-1); }

int Program::Terminate(milliseconds limit) { return child_->Terminate(limit * kPatience); }

std::string Program::Output() const { return ReadFile(output_path_); }
std::string Program::Errors() const { return ReadFile(error_path_); }

Log::Log(const TempRoot& root) {
  const int error = reader_.Open(root.path() + qnx::kSlogPath);
  if (error != 0) ADD_FAILURE() << "no log ring: " << std::strerror(error);
  reader_.SkipToEnd();
}

const std::vector<Log::Line>& Log::Lines() {
  qnx::SlogLine line;
  std::uint64_t lost = 0;
  for (;;) {
    switch (reader_.Next(&line, &lost)) {
      case qnx::SlogReader::Result::kLine:
        lines_.push_back({line.severity, line.opcode, line.text});
        break;
      case qnx::SlogReader::Result::kLost:
      case qnx::SlogReader::Result::kUnfinished:
        break;
      case qnx::SlogReader::Result::kNothing:
        return lines_;
    }
  }
}

std::vector<std::string> Log::Texts(std::uint32_t severity) {
  std::vector<std::string> texts;
  for (const Line& line : Lines()) {
    if (line.severity == severity) texts.push_back(line.text);
  }
  return texts;
}

bool Log::Has(std::uint32_t severity, const std::string& text) {
  for (const Line& line : Lines()) {
    if (line.severity == severity && line.text == text) return true;
  }
  return false;
}

void Log::Clear() {
  Lines();
  lines_.clear();
}

Station::Station() : fd_(platform::open(qnx::kStationPath, O_RDWR)) {
  if (fd_ < 0) ADD_FAILURE() << "no test connector: " << std::strerror(errno);
}

Station::~Station() {
  if (fd_ >= 0) ::close(fd_);
}

void Station::SendRaw(const Bytes& packet) const {
  const ssize_t sent = platform::write(fd_, packet.data(), packet.size());
  EXPECT_EQ(sent, static_cast<ssize_t>(packet.size())) << std::strerror(errno);
}

void Station::Send(std::uint8_t command, std::uint8_t sub_command, const Bytes& parameters) const {
  SendRaw(wire::BuildRequest(command, sub_command, parameters));
}

std::optional<Bytes> Station::Receive(milliseconds limit) const {
  if (!WaitReadable(fd_, limit)) return std::nullopt;
  Bytes packet(wire::kMaxPacket);
  const ssize_t count = ::read(fd_, packet.data(), packet.size());
  if (count <= 0) return std::nullopt;
  packet.resize(static_cast<std::size_t>(count));
  return packet;
}

Bytes Station::Ask(std::uint8_t command, std::uint8_t sub_command, const Bytes& parameters) const {
  Send(command, sub_command, parameters);
  const std::optional<Bytes> packet = Receive();
  wire::Reply reply{};
  if (!packet) {
    ADD_FAILURE() << "no reply to " << int{command} << "/" << int{sub_command};
  } else if (!wire::ParseReply(*packet, &reply)) {
    ADD_FAILURE() << "not a reply: " << Hex(*packet);
  } else if (reply.command != command || reply.sub_command != sub_command) {
    ADD_FAILURE() << "a reply to another request: " << Hex(*packet);
  }
  return reply.data;
}

void Station::Do(std::uint8_t command, std::uint8_t sub_command, const Bytes& parameters) const {
  Send(command, sub_command, parameters);
  EXPECT_EQ(Ask(kEchoCommand, kEchoSubCommand), Bytes());
}

bool ServiceAnswers() {
  return Eventually([] {
    const Station station;
    station.Send(kEchoCommand, kEchoSubCommand);
    return station.Receive(milliseconds(500)).has_value();
  });
}

std::optional<std::string> ReadObject(const std::string& path) {
  const int fd = platform::open(path.c_str(), O_RDONLY);
  if (fd < 0) return std::nullopt;
  std::string text(kLongestObject, '\0');
  const ssize_t count = ::read(fd, text.data(), text.size());
  ::close(fd);
  text.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
  return text;
}

std::optional<std::string> Attribute(const std::string& path, const std::string& name) {
  const std::optional<std::string> text = ReadObject(path);
  if (!text) return std::nullopt;
  std::istringstream lines(*text);
  std::string line;
  while (std::getline(lines, line)) {
    if (line.rfind(name + ":", 0) == 0) return line.substr(name.size() + 1);
  }
  return std::nullopt;
}

void WriteObject(const std::string& path, const std::string& lines) {
  const int fd = platform::open(path.c_str(), O_WRONLY | O_CREAT, 0666);
  ASSERT_GE(fd, 0) << path << ": " << std::strerror(errno);
  EXPECT_EQ(platform::write(fd, lines.data(), lines.size()), static_cast<ssize_t>(lines.size()));
  ::close(fd);
}

headunit::UnitOptions WholeUnit() {
  headunit::UnitOptions options;
  options.profile = SourceDir() + "/bench/headunit/profiles/default";
  return options;
}

headunit::UnitOptions ServiceOnUnit::Empty() {
  headunit::UnitOptions options;
  options.services = false;
  return options;
}

ServiceOnUnit::ServiceOnUnit(headunit::UnitOptions options) : options_(std::move(options)) {
  options_.root = root_.path();
}

ServiceOnUnit::~ServiceOnUnit() = default;

void ServiceOnUnit::SetUp() {
  unit_ = std::make_unique<headunit::Unit>(options_);
  ASSERT_EQ(unit_->Start(), "");
  log_ = std::make_unique<Log>(root_);
  StartService();
  station_ = std::make_unique<Station>();
}

void ServiceOnUnit::StartService(const std::function<void()>& before_exec) {
  log_->Clear();
  service_ = std::make_unique<Program>(root_, "korvandis", std::vector<std::string>(), before_exec);
  errors_seen_ = 0;
  output_seen_ = 0;
  ASSERT_TRUE(unit_->WaitForService(milliseconds(10000))) << service_->Errors();
  // It logs until it is started; a test wants to see its own lines only.
  ASSERT_TRUE(Eventually([this] { return log_->Has(_SLOG_DEBUG1, "_KRV_[Start]-Start!\n"); }));
}

std::string ServiceOnUnit::Errors() const { return service_->Errors().substr(errors_seen_); }
std::string ServiceOnUnit::Output() const { return service_->Output().substr(output_seen_); }

void ServiceOnUnit::Mark() {
  errors_seen_ = service_->Errors().size();
  output_seen_ = service_->Output().size();
  log_->Clear();
}

int ServiceOnUnit::StopService() { return service_->Terminate(); }

}  // namespace support
