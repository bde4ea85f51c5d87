// A controller that can have a view and a timer.
#ifndef KORVANDIS_FRAMEWORK_PUBLICCONTROLLER_H
#define KORVANDIS_FRAMEWORK_PUBLICCONTROLLER_H

#include "FilesControlBase.h"

namespace NXQ {
namespace ZMCAR {

class PublicController : public FilesControlBase, public ITimerHandler {
 public:
  // `view` may be null; it is not owned.
  explicit PublicController(IViewMessage* view);

  // Changes of keys that a derived class does not handle: ignored.
  void OnAttributeChange(int key, pps_attrib_t* attribute) override;
  void OnPpsStatusChange(int key, pps_status_t status, pps_attrib_t* attribute) override;
  bool Init() override;
  bool Close() override;
  void OnTimer(unsigned int id) override;

 protected:
  IViewMessage* View() const { return m_view; }

 private:
  IViewMessage* const m_view;
};

}  // namespace ZMCAR
}  // namespace NXQ

#endif  // KORVANDIS_FRAMEWORK_PUBLICCONTROLLER_H
