#include "FileBase.h"

#include <cerrno>
#include <cstring>

#include "Delivery.h"
#include "Wakeup.h"
#include "platform/descriptor.h"
#include "platform/io.h"
#include "platform/logbase.h"

namespace NXQ {
namespace ZMCAR {
namespace {

// True when an open failed because descriptors or memory ran out: a later one may succeed.
bool IsWant(int error) { return error == EMFILE || error == ENFILE || error == ENOMEM; }

}  // namespace

FileBase::FileBase(const fileTagInfo& tag) : FileBase(tag, kObject) {}

FileBase::FileBase(const fileTagInfo& tag, Kind kind)
    : m_tag(tag), m_kind(kind), m_cut(false), m_owner(nullptr), m_lost(false) {}

FileBase::~FileBase() { Leave(); }

void FileBase::Leave() {
  Delivery* owner = nullptr;
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    owner = m_owner;
  }
  if (owner != nullptr) owner->Forget(this);
}

bool FileBase::Init() { return true; }

bool FileBase::Open() {
  std::lock_guard<std::mutex> lock(m_mutex);
  if (m_descriptor) return true;
  const int fd = platform::open(m_tag.path, m_tag.oflag, static_cast<mode_t>(m_tag.mode));
  if (fd < 0) {
    if (m_kind == kLink && !m_lost && IsWant(errno)) {
      m_lost = true;
      LOGBASE(LOG_LEV_ERROR, "Open", "%s: %s, tried again!\n", m_tag.path, std::strerror(errno));
    }
    return false;
  }
  m_descriptor.reset(new platform::Descriptor(fd));
  m_lost = false;
  if (m_wakeup) m_wakeup->Wake();
  return true;
}

void FileBase::OnDataChange(unsigned char*, int) {}

void FileBase::Close() {
  std::lock_guard<std::mutex> lock(m_mutex);
  m_descriptor.reset();
  m_lost = false;
  if (m_wakeup) m_wakeup->Wake();
}

int FileBase::GetKey() const { return m_tag.key; }

int FileBase::WriteMessage(const void* data, int size) const {
  if (data == nullptr || size < 0) return -EINVAL;
  const std::shared_ptr<platform::Descriptor> descriptor = Current();
  if (!descriptor) return -EBADF;
  const ssize_t written = platform::write(descriptor->Get(), data, static_cast<std::size_t>(size));
  return written < 0 ? -errno : static_cast<int>(written);
}

std::shared_ptr<platform::Descriptor> FileBase::Current() const {
  std::lock_guard<std::mutex> lock(m_mutex);
  return m_descriptor;
}

void FileBase::Lose(const std::shared_ptr<platform::Descriptor>& descriptor) {
  std::lock_guard<std::mutex> lock(m_mutex);
  if (m_descriptor != descriptor) return;
  m_descriptor.reset();
  m_lost = true;
}

bool FileBase::WantsReopen() const {
  std::lock_guard<std::mutex> lock(m_mutex);
  return m_lost && m_kind == kLink;
}

bool FileBase::Join(Delivery* owner) {
  std::lock_guard<std::mutex> lock(m_mutex);
  if (owner != nullptr && m_owner != nullptr && m_owner != owner) return false;
  m_owner = owner;
  return true;
}

void FileBase::SetWakeup(const std::shared_ptr<Wakeup>& wakeup) {
  std::lock_guard<std::mutex> lock(m_mutex);
  m_wakeup = wakeup;
}

}  // namespace ZMCAR
}  // namespace NXQ
