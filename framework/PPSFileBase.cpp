#include "PPSFileBase.h"

namespace NXQ {
namespace ZMCAR {

PPSFileBase::PPSFileBase(const fileTagInfo& tag, IPPSOnChange* owner)
    : FileBase(tag), m_owner(owner) {}

PPSFileBase::~PPSFileBase() { Leave(); }

bool PPSFileBase::Init() { return FileBase::Init(); }

bool PPSFileBase::Open() { return FileBase::Open(); }

void PPSFileBase::OnDataChange(unsigned char* data, int size) {
  if (m_owner == nullptr) return;
  if (size == kMaxFileRead) {
    while (size > 0 && data[size - 1] != '\n') --size;
    data[size] = '\0';
  }
  char* text = reinterpret_cast<char*>(data);
  pps_attrib_t attribute = pps_attrib_t();
  pps_status_t status;
  while (!IsCut() && (status = ppsparse(&text, nullptr, nullptr, &attribute, 0)) != PPS_END) {
    if (status == PPS_ATTRIBUTE) {
      m_owner->OnAttributeChange(GetKey(), &attribute);
    } else if (status != PPS_OBJECT && status != PPS_ERROR) {
      OnPPSStatusChange(status, &attribute);
    }
  }
}

void PPSFileBase::OnPPSStatusChange(pps_status_t status, pps_attrib_t* attribute) {
  if (m_owner != nullptr) m_owner->OnPpsStatusChange(GetKey(), status, attribute);
}

bool PPSFileBase::WritePPS(const char* text, int length) const {
  return WriteMessage(text, length) == length;
}

}  // namespace ZMCAR
}  // namespace NXQ
