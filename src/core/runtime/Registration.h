#pragma once

namespace wh {

// Something registered with a platform service; dropping it ends the registration.
class Registration {
 public:
  virtual ~Registration() = default;
};

}  // namespace wh
