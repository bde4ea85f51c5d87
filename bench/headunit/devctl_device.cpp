#include "devctl_device.h"

#include <devctl.h>

#include <cerrno>
#include <utility>

#include "qnx/manager_protocol.h"

namespace headunit {
namespace {

const std::size_t kLargestRecord = 64 * 1024;
const std::size_t kLongestQueue = 256 * 1024;  // answers to a client that asks and never reads

}  // namespace

DevctlDevice::DevctlDevice(EventLoop* loop, std::string path)
    : ResourceManager(loop, std::move(path)) {}

int DevctlDevice::Decode(const std::string& message, std::uint32_t* dcmd, std::string* data) const {
  qnx::DevctlRequest request;
  if (message.size() < sizeof(request)) return EINVAL;
  std::memcpy(&request, message.data(), sizeof(request));
  const std::size_t sent = message.size() - sizeof(request);
  const std::size_t expected = (request.dcmd & DEVDIR_TO) != 0 ? request.size : 0;
  if (request.size > kLargestRecord || sent != expected) return EINVAL;
  *dcmd = request.dcmd;
  *data = message.substr(sizeof(request));
  data->resize(request.size);
  return 0;
}

void DevctlDevice::OnMessage(OpenFile* file, const std::string& message) {
  std::uint32_t dcmd = 0;
  std::string data;
  std::int32_t error = Decode(message, &dcmd, &data);
  if (error == 0) error = OnDevctl(dcmd, &data);

  std::string answer(sizeof(error), '\0');
  std::memcpy(&answer[0], &error, sizeof(error));
  if (error == 0 && (dcmd & DEVDIR_FROM) != 0) answer += data;
  file->SendWithin(answer, kLongestQueue);
}

}  // namespace headunit
