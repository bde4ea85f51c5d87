// The application launcher: a request makes its application the source that plays.
#ifndef KORVANDIS_HEADUNIT_SERVICES_APP_LAUNCHER_H
#define KORVANDIS_HEADUNIT_SERVICES_APP_LAUNCHER_H

#include <vector>

#include "service.h"

namespace headunit {

class AppLauncher : public Service {
 public:
  explicit AppLauncher(EventLoop* loop);

 protected:
  void OnChange(const std::vector<PpsLine>& attributes) override;

 private:
  void Launch(const PpsLine& request);
};

}  // namespace headunit

#endif  // KORVANDIS_HEADUNIT_SERVICES_APP_LAUNCHER_H
