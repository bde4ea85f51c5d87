#include "FilesControlBase.h"

#include "Delivery.h"

namespace NXQ {
namespace ZMCAR {

FilesControlBase::FilesControlBase() : m_delivery(new Delivery) {}

FilesControlBase::~FilesControlBase() {}

void FilesControlBase::OnPpsStatusChange(int, pps_status_t, pps_attrib_t*) {}

void FilesControlBase::OnAttributeDataChange(int, const char*) {}

bool FilesControlBase::Init() { return m_delivery->Prepare(); }

bool FilesControlBase::Close() { return m_delivery->Release(); }

bool FilesControlBase::Start() { return m_delivery->Start(); }

bool FilesControlBase::Stop() { return m_delivery->Stop(); }

bool FilesControlBase::AddFile(int key, FileBase* file) const { return m_delivery->Add(key, file); }

bool FilesControlBase::RemoveFile(int key) const { return m_delivery->Remove(key); }

}  // namespace ZMCAR
}  // namespace NXQ
