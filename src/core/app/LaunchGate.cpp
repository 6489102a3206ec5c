#include "core/app/LaunchGate.h"

namespace wh {

LaunchGate::Decision LaunchGate::decide() {
  if (host_.environmentHas(testRunnerVariable)) return Decision::hostedByTestRunner;
  const bool claimed = host_.claimSingleInstance([this] {
    if (onReopen) onReopen();
  });
  return claimed ? Decision::run : Decision::anotherInstanceRuns;
}

}  // namespace wh
