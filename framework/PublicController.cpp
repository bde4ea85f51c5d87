#include "PublicController.h"

namespace NXQ {
namespace ZMCAR {

PublicController::PublicController(IViewMessage* view) : m_view(view) {}

void PublicController::OnAttributeChange(int, pps_attrib_t*) {}

void PublicController::OnPpsStatusChange(int, pps_status_t, pps_attrib_t*) {}

bool PublicController::Init() { return FilesControlBase::Init(); }

bool PublicController::Close() { return FilesControlBase::Close(); }

void PublicController::OnTimer(unsigned int) {}

}  // namespace ZMCAR
}  // namespace NXQ
